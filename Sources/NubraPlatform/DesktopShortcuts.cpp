#include "NubraPlatform/DesktopShortcuts.h"

#include <QRegularExpression>

DesktopShortcutsThread::DesktopShortcutsThread(std::unique_ptr<BlockingShortcuts> settings)
    : m_settings(std::move(settings)) {
    m_worker.setMaxThreadCount(1);
}

DesktopShortcutsThread::~DesktopShortcutsThread() {
    m_worker.waitForDone();
}

void DesktopShortcutsThread::query(const HotkeyCombo& combo, Done done) {
    run([this, combo] { return m_settings->query(combo); }, std::move(done));
}

void DesktopShortcutsThread::add(const HotkeyCombo& combo, Done done) {
    run([this, combo] { return m_settings->add(combo); }, std::move(done));
}

void DesktopShortcutsThread::remove(Done done) {
    run([this] { return m_settings->remove(); }, std::move(done));
}

void DesktopShortcutsThread::run(std::function<Status()> work, Done done) {
    m_worker.start([this, work = std::move(work), done = std::move(done)] {
        const Status status = work();
        QMetaObject::invokeMethod(
            &m_receiver,
            [this, done, status] {
                if (status.active.has_value())
                    m_lastActive = status.active;
                done(status);
            },
            Qt::QueuedConnection);
    });
}

QString lookupCommand(const QString& program) {
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_/.,:@%+=-]+$"));
    QString quoted = program;
    if (!plain.match(program).hasMatch())
        quoted = u'\'' + QString(program).replace(u'\'', QStringLiteral("'\\''")) + u'\'';
    return quoted + QStringLiteral(" --lookup");
}
