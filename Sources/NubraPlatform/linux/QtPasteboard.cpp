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
            QByteArray bytes = mime->data(type);
            if (bytes.size() > maxFormatBytes)
                return std::nullopt;
            return bytes;
        },
        mainThreadTimeoutMs);
    if (!read)
        m_readsIncomplete = true;
    return read.value_or(std::nullopt);
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
