#pragma once

#include "NubraApp/Settings/LaunchAtLogin.h"

#include <QCheckBox>

class TaskRunner;

// "Launch at Login": shows whether the autostart entry is in force, and writes or removes it when
// clicked. The file work runs in the background; the box is disabled until it is done, then shows
// the state read back. A failure is only logged. Reads the entry again whenever it is shown.
class LaunchAtLoginToggle final : public QCheckBox {
    Q_OBJECT

public:
    // `tasks` must outlive the toggle.
    explicit LaunchAtLoginToggle(TaskRunner& tasks, QWidget* parent = nullptr);

    // Reads the entry again.
    void refresh();

protected:
    void showEvent(QShowEvent* event) override;

private:
    void apply(bool enabled);
    // Shows the state read back and takes clicks again.
    void settle(bool enabled);

    TaskRunner& m_tasks;
    LaunchAtLogin m_entry;
    bool m_busy = false;
};
