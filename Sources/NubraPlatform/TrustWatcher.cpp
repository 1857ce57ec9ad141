#include "NubraPlatform/TrustWatcher.h"

#include "NubraPlatform/Accessibility.h"
#include "NubraPlatform/TaskRunner.h"

#include <QPointer>

TrustWatcher::TrustWatcher(Accessibility& accessibility, TaskRunner& tasks, QObject* parent)
    : QObject(parent), m_accessibility(accessibility), m_tasks(tasks) {}

void TrustWatcher::refresh() {
    if (m_asking)
        return;
    m_asking = true;
    QPointer<TrustWatcher> self(this);
    Accessibility* accessibility = &m_accessibility;
    TaskRunner* tasks = &m_tasks;
    tasks->runInBackground([self, accessibility, tasks]() {
        const bool trusted = accessibility->isTrusted();
        tasks->runOnMain([self, trusted]() {
            if (!self)
                return;
            self->m_asking = false;
            const bool changed = self->m_trusted != trusted;
            self->m_trusted = trusted;
            emit self->answered(trusted);
            if (changed && self)
                emit self->trustChanged(trusted);
        });
    });
}
