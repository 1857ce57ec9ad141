#pragma once

#include "NubraPlatform/PrimarySelection.h"

#include <functional>

class WaylandConnection;

// The seat's primary selection through data-control (wlroots compositors, KWin). Safe from any thread.
class DataControlPrimarySelection final : public PrimarySelection {
public:
    static constexpr int readTimeoutMs = 500;
    // Bytes accepted from the owner; a selection nobody could mean to look up is refused whole.
    static constexpr qsizetype maxBytes = 1024 * 1024;

    explicit DataControlPrimarySelection(WaylandConnection& connection) : m_connection(connection) {}

    std::optional<QString> text() override;
    // Data-control events carry no time, and none on the clock of input events.
    std::optional<quint64> ownerChangedAt() override { return std::nullopt; }

    // `listener` runs on the connection's thread for every new primary selection after the one present
    // when we started watching; `cleared` when the selection became empty. It must hand the news on
    // rather than read the selection there: the thread it runs on is the one that brings the data.
    void setChangeListener(std::function<void(bool cleared)> listener);

private:
    WaylandConnection& m_connection;
};
