#pragma once

#include "NubraPlatform/GlobalHotkeys.h"
#include "NubraPlatform/wayland/Portal.h"

#include <QDBusConnection>
#include <QObject>

#include <map>
#include <memory>

class PortalShortcutSession;

// Hot keys bound through the GlobalShortcuts portal where the desktop offers it (KDE Plasma, GNOME 48,
// Hyprland), which sees keys in every window, Wayland ones included. Whether it does is asked once, without
// waiting: until the answer, and for good where there is no portal, keys go to `fallback` (the X11
// grab, which sees only XWayland windows); a portal that answers later takes them over.
class PortalHotkeys final : public QObject, public GlobalHotkeys {
    Q_OBJECT

public:
    // `fallback` must outlive this object.
    PortalHotkeys(GlobalHotkeys& fallback, const QDBusConnection& bus,
                  const Portal::Deadlines& deadlines = {});
    ~PortalHotkeys() override;

    Installed installHandler(std::function<void(quint32, quint32)> onPressed) override;
    void removeHandler(HandlerRef handler) override;
    Registered registerHotKey(quint32 keyCode, quint32 carbonModifiers, quint32 signature,
                              quint32 id) override;
    void unregisterHotKey(HotKeyRef hotKey) override;

    std::optional<DesktopBinding> desktopBinding() const override;
    // Whether the portal offers GlobalShortcuts; empty until it has answered.
    std::optional<bool> desktopBinds() const override { return m_portal; }
    void watchDesktopBinding(QObject* context, std::function<void()> changed) override;

    // A key in the portal's trigger notation ("ALT+g", "CTRL+SHIFT+space"); empty for a key it cannot
    // name.
    static QString triggerFor(quint32 keyCode, quint32 carbonModifiers);

signals:
    void desktopBindingChanged();

private:
    struct Registration {
        quint32 keyCode = 0;
        quint32 modifiers = 0;
        quint32 signature = 0;
        quint32 id = 0;
        std::optional<HotKeyRef> fallbackKey;
        std::unique_ptr<PortalShortcutSession> session;
    };

    void portalAnswered(bool offersShortcuts);
    void bind(HotKeyRef ref, Registration& registration);
    void fire(quint32 signature, quint32 id);

    GlobalHotkeys& m_fallback;
    QDBusConnection m_bus;
    Portal::Deadlines m_deadlines;
    std::optional<bool> m_portal;
    std::optional<HandlerRef> m_fallbackHandler;
    quint64 m_next = 1;
    std::map<HandlerRef, std::function<void(quint32, quint32)>> m_handlers;
    std::map<HotKeyRef, Registration> m_registrations;
};
