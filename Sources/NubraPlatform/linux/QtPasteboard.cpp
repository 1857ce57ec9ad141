#include "NubraPlatform/linux/QtPasteboard.h"

#include "NubraPlatform/linux/MainThreadCall.h"
#include "NubraPlatform/linux/X11SelectionReader.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

#include <algorithm>

namespace {

// A type the owner does not offer under its MIME name may still be there as X11's own text target.
bool isPlainText(const QString& type) {
    return type == u"text/plain" || type == Pasteboard::plainTextType();
}

} // namespace

QtPasteboard::QtPasteboard() : m_readOverX11(QGuiApplication::platformName() == u"xcb") {
    connect(QGuiApplication::clipboard(), &QClipboard::changed, this, [this](QClipboard::Mode mode) {
        if (mode == QClipboard::Clipboard)
            ++m_changes;
    });
}

QStringList QtPasteboard::types() const {
    if (m_readOverX11) {
        X11SelectionReader reader("CLIPBOARD", mainThreadTimeoutMs);
        if (!reader.hasOwner()) {
            m_readsIncomplete = false;
            return {};
        }
        const std::optional<QStringList> targets = reader.targets();
        m_readsIncomplete = !targets;
        if (!targets)
            return {};
        // MIME types are what can be put back; X11's own names (TARGETS, UTF8_STRING, ...) follow from them,
        // except plain text, which some owners offer under X11's name alone.
        QStringList types;
        for (const QString& target : *targets) {
            if (target.contains(u'/'))
                types << target;
        }
        if (targets->contains(u"UTF8_STRING"_qs) && std::none_of(types.cbegin(), types.cend(), isPlainText))
            types << QStringLiteral("text/plain");
        return types;
    }
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
    std::optional<std::optional<QByteArray>> read;
    if (m_readOverX11) {
        // Plain text is asked for under X11's own name, which every owner offers: some (Qt among them)
        // answer a MIME name they do not offer with empty data instead of refusing it.
        X11SelectionReader reader("CLIPBOARD", mainThreadTimeoutMs);
        X11SelectionReader::Read answer =
            reader.read(isPlainText(type) ? "UTF8_STRING" : type.toLatin1(), maxFormatBytes);
        if (answer.outcome == X11SelectionReader::Outcome::refused && isPlainText(type))
            answer = reader.read(type.toLatin1(), maxFormatBytes);
        if (answer.outcome == X11SelectionReader::Outcome::ok)
            read = std::optional<QByteArray>(answer.bytes);
        else if (answer.outcome == X11SelectionReader::Outcome::refused)
            read = std::optional<QByteArray>();
    } else {
        read = callOnMainThread(
            [type]() -> std::optional<QByteArray> {
                const QMimeData* mime = QGuiApplication::clipboard()->mimeData(QClipboard::Clipboard);
                if (!mime || !mime->hasFormat(type))
                    return std::nullopt;
                return mime->data(type);
            },
            mainThreadTimeoutMs);
    }
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
