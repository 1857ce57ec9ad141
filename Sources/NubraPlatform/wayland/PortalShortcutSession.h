#pragma once

#include "NubraPlatform/GlobalHotkeys.h"
#include "NubraPlatform/wayland/Portal.h"

#include <QDBusConnection>
#include <QObject>

#include <memory>

class QDBusMessage;

// One shortcut bound through the GlobalShortcuts portal, in a session of its own: CreateSession, then
// BindShortcuts with the key the user recorded as the preferred trigger. The desktop may bind another
// key or none (its dialog is the user's to answer); binding() says what it did. Destroying the session
// object closes the portal session, which unbinds the shortcut.
class PortalShortcutSession final : public QObject {
    Q_OBJECT

public:
    // The shortcut as the desktop lists it: a name of its own and the words that say what it does.
    struct Listing {
        QString id;
        QString description;
    };

    PortalShortcutSession(const QDBusConnection& bus, const Listing& shortcut,
                          const QString& preferredTrigger, const Portal::Deadlines& deadlines,
                          QObject* parent = nullptr);
    ~PortalShortcutSession() override;

    const GlobalHotkeys::DesktopBinding& binding() const { return m_binding; }

signals:
    void bindingChanged();
    void activated();

private slots:
    void onActivated(const QDBusMessage& message);
    void onShortcutsChanged(const QDBusMessage& message);
    void onClosed();

private:
    void created(uint outcome, const QVariantMap& results);
    void bound(uint outcome, const QVariantMap& results);
    void settle(GlobalHotkeys::DesktopBinding::State state, const QString& trigger = {});
    void unwatch();

    QDBusConnection m_bus;
    Listing m_shortcut;
    QString m_preferredTrigger;
    Portal::Deadlines m_deadlines;
    QString m_sessionPath;
    bool m_sessionOpen = false;
    std::unique_ptr<PortalRequest> m_request;
    GlobalHotkeys::DesktopBinding m_binding;
};
