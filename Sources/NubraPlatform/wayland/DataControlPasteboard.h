#pragma once

#include "NubraCore/Capture/Pasteboard.h"

#include <mutex>

class WaylandConnection;

// The clipboard through data-control: on wlroots compositors Qt's clipboard on XWayland does not see
// what Wayland applications copy. Writing makes Nubra the clipboard's owner, serving the formats it
// was given until another application takes the clipboard. Safe from any thread.
class DataControlPasteboard final : public Pasteboard {
public:
    static constexpr int timeoutMs = 500;
    // Formats bigger than this are left out: nobody selects that much text, and we hold it in memory.
    static constexpr qsizetype maxFormatBytes = 16 * 1024 * 1024;

    explicit DataControlPasteboard(WaylandConnection& connection) : m_connection(connection) {}

    QStringList types() const override;
    std::optional<QByteArray> data(const QString& type) const override;
    qint64 changeCount() const override;
    void clearContents() override;
    bool setData(const QByteArray& data, const QString& type) override;
    // One source with every format: one change of owner, as a clipboard manager should see a restore.
    void replaceContents(const QList<std::pair<QString, QByteArray>>& items) override;

private:
    bool own(const QList<std::pair<QString, QByteArray>>& items);

    WaylandConnection& m_connection;
    // What we last offered, so that setData() adds to it as one item.
    std::mutex m_ownedLock;
    QList<std::pair<QString, QByteArray>> m_owned;
};
