#include "NubraApp/Settings/LaunchAtLoginToggle.h"

#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/TaskRunner.h"

#include <QPointer>

LaunchAtLoginToggle::LaunchAtLoginToggle(TaskRunner& tasks, QWidget* parent)
    : QCheckBox(L10n::t(QStringLiteral("Launch at Login"), QStringLiteral("开机自启")), parent),
      m_tasks(tasks) {
    setObjectName(QStringLiteral("launchAtLoginToggle"));
    connect(this, &QCheckBox::clicked, this, &LaunchAtLoginToggle::apply);
}

void LaunchAtLoginToggle::showEvent(QShowEvent* event) {
    QCheckBox::showEvent(event);
    refresh();
}

void LaunchAtLoginToggle::refresh() {
    if (m_busy)
        return; // the work under way reads the entry back when it is done
    m_busy = true;
    setEnabled(false);
    QPointer<LaunchAtLoginToggle> self(this);
    TaskRunner* tasks = &m_tasks;
    m_tasks.runInBackground([self, tasks, entry = m_entry] {
        const bool enabled = entry.isEnabled();
        tasks->runOnMain([self, enabled] {
            if (self)
                self->settle(enabled);
        });
    });
}

void LaunchAtLoginToggle::apply(bool enabled) {
    m_busy = true;
    setEnabled(false);
    QPointer<LaunchAtLoginToggle> self(this);
    TaskRunner* tasks = &m_tasks;
    m_tasks.runInBackground([self, tasks, entry = m_entry, enabled] {
        const std::optional<QString> failure = entry.setEnabled(enabled);
        const bool inForce = entry.isEnabled();
        tasks->runOnMain([self, enabled, failure, inForce] {
            if (failure)
                nbDebug(QStringLiteral("launchAtLogin: %1 failed %2")
                            .arg(enabled ? QStringLiteral("true") : QStringLiteral("false"), *failure));
            if (self)
                self->settle(inForce);
        });
    });
}

void LaunchAtLoginToggle::settle(bool enabled) {
    m_busy = false;
    setChecked(enabled);
    setEnabled(true);
}
