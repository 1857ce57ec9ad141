#pragma once

#include "NubraPlatform/SyntheticKeyboard.h"
#include "NubraPlatform/wayland/Portal.h"

#include <QDBusConnection>
#include <QObject>

#include <memory>
#include <mutex>

// Control+C through a RemoteDesktop portal session (GNOME, KDE Plasma), for native Wayland windows where
// the compositor offers no virtual keyboard. The desktop asks the user before it lets us type (GNOME 43
// at every session), so the session is started when the user opts in, never in the middle of a copy;
// until it runs, and wherever there is no such portal, copies go to `fallback` (XTest, which reaches
// XWayland windows). The fallback's checks before a copy (an incompletely saved clipboard, modifiers
// still held) stand for both.
class PortalKeyboard final : public QObject, public SyntheticKeyboard {
    Q_OBJECT

public:
    // evdev codes, which the portal takes whatever the layout.
    static constexpr int controlKey = 29;
    static constexpr int cKey = 46;

    // `fallback` must outlive this object.
    PortalKeyboard(SyntheticKeyboard& fallback, const QDBusConnection& bus,
                   const Portal::Deadlines& deadlines = {});
    ~PortalKeyboard() override;

    // From the reading thread.
    bool beginCopy() override;
    bool post(CopyStroke stroke) override;

    // On the main thread.
    Permission permission() const override { return m_permission; }
    void setPermissionWanted(bool wanted) override;
    void watchPermission(QObject* context, std::function<void()> changed) override;

signals:
    void permissionChanged();

private slots:
    void onClosed();

private:
    void portalAnswered(bool offersKeyboard);
    void start();
    void created(uint outcome, const QVariantMap& results);
    void devicesSelected(uint outcome);
    void started(uint outcome, const QVariantMap& results);
    void stop(Permission after);
    void setPermission(Permission permission);

    SyntheticKeyboard& m_fallback;
    QDBusConnection m_bus;
    Portal::Deadlines m_deadlines;
    bool m_wanted = false;
    std::optional<bool> m_offered;
    Permission m_permission = Permission::off;
    std::unique_ptr<PortalRequest> m_request;
    QString m_sessionPath;
    bool m_sessionOpen = false;

    // What the reading thread sees: the running session, and the copy under way.
    std::mutex m_lock;
    QString m_grantedSession;
    QString m_copySession; // empty: this copy goes to the fallback
};
