#pragma once

#include "NubraCore/Capture/Pasteboard.h"

#include <QObject>

#include <atomic>

// The X11 CLIPBOARD through QClipboard. Safe to call from any thread: every access runs on the main
// thread with a bounded wait. Create it on the main thread.
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

    // Whether a read since the last listing of the types went unanswered (the main thread was busy) or
    // was too big to keep, so that a snapshot taken now would miss some of the user's clipboard.
    bool readsIncomplete() const { return m_readsIncomplete.load(); }

private:
    std::atomic<qint64> m_changes = 0;
    mutable std::atomic<bool> m_readsIncomplete = false;
};
