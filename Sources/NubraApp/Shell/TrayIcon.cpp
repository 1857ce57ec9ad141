#include "NubraApp/Shell/TrayIcon.h"

#include "NubraApp/Foundation/AppState.h"
#include "NubraApp/Foundation/BrandIcon.h"
#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/linux/X11Managers.h"

#include <QCursor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QSystemTrayIcon>
#include <QTimer>

TrayIcon::TrayIcon(AppState& state, const Desktop& desktop, QObject* parent)
    : QObject(parent), m_state(state), m_menu(std::make_unique<TrayMenu>(state, desktop)) {
    connect(&m_state.settings(), &AppSettings::pausedChanged, this, &TrayIcon::updateLook);
    // The language can change between openings; the tooltip follows at the next one.
    connect(m_menu.get(), &QMenu::aboutToShow, this, &TrayIcon::updateLook);
    updateLook();
    watchForHost();
}

TrayIcon::~TrayIcon() {
    delete m_tray; // before the menu it shows
}

void TrayIcon::watchForHost() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()) {
        show();
        return;
    }
    const QString service = QLatin1String(watcherService);
    auto* watcher = new QDBusServiceWatcher(service, bus, QDBusServiceWatcher::WatchForRegistration, this);
    connect(watcher, &QDBusServiceWatcher::serviceRegistered, this, &TrayIcon::show);

    // Asked without blocking; the watcher above covers a registration while the question is out.
    auto* pending = new QDBusPendingCallWatcher(
        bus.interface()->asyncCall(QStringLiteral("NameHasOwner"), service), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* call) {
        const QDBusPendingReply<bool> reply = *call;
        call->deleteLater();
        // No D-Bus tray, but an XEmbed tray already runs: the panel is up and that is the tray to use.
        if ((reply.isValid() && reply.value()) || X11Managers::systemTrayRunning())
            show();
    });

    m_hostWait = new QTimer(this);
    m_hostWait->setSingleShot(true);
    m_hostWait->setInterval(hostWaitMs);
    connect(m_hostWait, &QTimer::timeout, this, &TrayIcon::show);
    m_hostWait->start();
}

void TrayIcon::show() {
    if (m_tray)
        return;
    if (m_hostWait)
        m_hostWait->stop();
    // The first tray call: Qt settles on its backend here.
    m_tray = new QSystemTrayIcon(m_icon);
    m_tray->setToolTip(m_toolTip);
    m_tray->setContextMenu(m_menu.get());
    connect(m_tray, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        // XEmbed trays open the menu on a right click only; a left click opens it too. A D-Bus host has
        // no geometry and opens the menu itself.
        const QRect area = m_tray->geometry();
        if (reason == QSystemTrayIcon::Trigger && !area.isEmpty() && !m_menu->isVisible())
            m_menu->popup(area.bottomLeft());
    });
    m_tray->show();
    nbDebug(
        QStringLiteral("tray: shown, tray available=%1")
            .arg(QSystemTrayIcon::isSystemTrayAvailable() ? QStringLiteral("yes") : QStringLiteral("no")));
    emit shown();
}

void TrayIcon::setActivity(const QString& activity) {
    if (activity == m_activity)
        return;
    m_activity = activity;
    m_menu->setActivity(activity);
    updateLook();
}

void TrayIcon::updateLook() {
    const bool paused = m_state.settings().paused();
    const bool iconChanged = m_icon.isNull() || paused != m_iconPaused;
    if (iconChanged) {
        m_icon = BrandIcon::menuBarIcon(paused);
        m_iconPaused = paused;
    }
    m_toolTip = BrandIcon::menuBarIconDescription(paused);
    if (!m_activity.isEmpty())
        m_toolTip += QStringLiteral(" — ") + m_activity;
    if (!m_tray)
        return;
    // A D-Bus host is told of every change, so only real changes are passed on.
    if (iconChanged)
        m_tray->setIcon(m_icon);
    if (m_tray->toolTip() != m_toolTip)
        m_tray->setToolTip(m_toolTip);
}
