#include "NubraPlatform/linux/QtPasteboard.h"

#include "NubraPlatform/linux/MainThreadCall.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

QtPasteboard::QtPasteboard() {
    connect(QGuiApplication::clipboard(), &QClipboard::changed, this, [this](QClipboard::Mode mode) {
        if (mode == QClipboard::Clipboard)
            ++m_changes;
    });
}

QStringList QtPasteboard::types() const {
    const std::optional<QStringList> types = callOnMainThread(
        []() {
            const QMimeData* mime = QGuiApplication::clipboard()->mimeData(QClipboard::Clipboard);
            return mime ? mime->formats() : QStringList();
        },
        mainThreadTimeoutMs);
    m_readsIncomplete = !types;
    return types.value_or(QStringList());
}

std::optional<QByteArray> QtPasteboard::data(const QString& type) const {
    std::optional<std::optional<QByteArray>> read = callOnMainThread(
        [type]() -> std::optional<QByteArray> {
            const QMimeData* mime = QGuiApplication::clipboard()->mimeData(QClipboard::Clipboard);
            if (!mime || !mime->hasFormat(type))
                return std::nullopt;
            return mime->data(type);
        },
        mainThreadTimeoutMs);
    // Too slow to answer, or too big to keep: either way the save would lose part of the clipboard.
    if (!read || (*read && (*read)->size() > maxFormatBytes)) {
        m_readsIncomplete = true;
        return std::nullopt;
    }
    return *read;
}

void QtPasteboard::clearContents() {
    callOnMainThread(
        []() {
            QGuiApplication::clipboard()->clear(QClipboard::Clipboard);
            return true;
        },
        mainThreadTimeoutMs);
}

bool QtPasteboard::setData(const QByteArray& data, const QString& type) {
    // All saved types go back as one item: add to what we already own instead of replacing it.
    return callOnMainThread(
               [data, type]() {
                   QClipboard* clipboard = QGuiApplication::clipboard();
                   auto* mime = new QMimeData;
                   if (clipboard->ownsClipboard()) {
                       if (const QMimeData* current = clipboard->mimeData(QClipboard::Clipboard)) {
                           for (const QString& format : current->formats())
                               mime->setData(format, current->data(format));
                       }
                   }
                   mime->setData(type, data);
                   clipboard->setMimeData(mime, QClipboard::Clipboard);
                   return true;
               },
               mainThreadTimeoutMs)
        .value_or(false);
}

void QtPasteboard::replaceContents(const QList<std::pair<QString, QByteArray>>& items) {
    callOnMainThread(
        [items]() {
            QClipboard* clipboard = QGuiApplication::clipboard();
            if (items.isEmpty()) {
                clipboard->clear(QClipboard::Clipboard);
                return true;
            }
            auto* mime = new QMimeData;
            for (const auto& [type, data] : items)
                mime->setData(type, data);
            clipboard->setMimeData(mime, QClipboard::Clipboard);
            return true;
        },
        mainThreadTimeoutMs);
}
