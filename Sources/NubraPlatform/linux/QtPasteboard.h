#pragma once

#include "NubraCore/Capture/Pasteboard.h"

#include <QObject>

#include <atomic>

// The X11 CLIPBOARD. Written through QClipboard on the main thread with a bounded wait. Read, under X11,
// over a connection of the reading thread's own (Qt's clipboard would block the GUI thread for seconds
// on an owner that does not answer); on other Qt platforms through QClipboard like the writes. Safe to
// call from any thread; create it on the main thread.
class QtPasteboard final : public QObject, public Pasteboard {
public:
    // Formats bigger than this are left out: nobody selects that much text, and we hold it in memory.
    static constexpr qsizetype maxFormatBytes = 16 * 1024 * 1024;
    static constexpr int mainThreadTimeoutMs = 500;

    QtPasteboard();

    QStringList types() const override;
    std::optional<QByteArray> data(const QString& type) const override;
    qint64 changeCount() const override { return m_changes.load(); }
    void clearContents() override;
    bool setData(const QByteArray& data, const QString& type) override;
    // One QMimeData with every format: a single change of owner, so clipboard managers and the
    // applications watching the clipboard see the restore as one change.
    void replaceContents(const QList<std::pair<QString, QByteArray>>& items) override;

    // Whether a read since the last listing of the types went unanswered (the owner, or our main thread,
    // was busy) or was too big to keep, so that a snapshot taken now would miss some of the clipboard.
    bool readsIncomplete() const { return m_readsIncomplete.load(); }

private:
    bool m_readOverX11 = false;
    std::atomic<qint64> m_changes = 0;
    mutable std::atomic<bool> m_readsIncomplete = false;
};
