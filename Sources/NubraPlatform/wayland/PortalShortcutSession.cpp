#include "NubraPlatform/wayland/PortalShortcutSession.h"

#include "NubraCore/Support/DebugLog.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>

namespace {

const QString interface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
using DesktopBindingState = GlobalHotkeys::DesktopBinding::State;

// One element of the portal's a(sa{sv}) shortcut lists.
struct Shortcut {
    QString id;
    QVariantMap properties;
};

QDBusArgument& operator<<(QDBusArgument& argument, const Shortcut& shortcut) {
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, Shortcut& shortcut) {
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

} // namespace

Q_DECLARE_METATYPE(Shortcut)

namespace {

void registerTypes() {
    static const bool registered = [] {
        qDBusRegisterMetaType<Shortcut>();
        qDBusRegisterMetaType<QList<Shortcut>>();
        return true;
    }();
    (void)registered;
}

// Our shortcut `id` in a list the portal sent: its trigger description, or nothing when it is not listed
// (the user left it unbound).
std::optional<QString> triggerIn(const QVariant& list, const QString& id) {
    for (const Shortcut& shortcut : qdbus_cast<QList<Shortcut>>(list))
        if (shortcut.id == id)
            return shortcut.properties.value(QStringLiteral("trigger_description")).toString();
    return std::nullopt;
}

} // namespace

PortalShortcutSession::PortalShortcutSession(const QDBusConnection& bus, const Listing& shortcut,
                                             const QString& preferredTrigger,
                                             const Portal::Deadlines& deadlines, QObject* parent)
    : QObject(parent), m_bus(bus), m_shortcut(shortcut), m_preferredTrigger(preferredTrigger),
      m_deadlines(deadlines) {
    registerTypes();
    const QString token = Portal::newToken();
    const QString sessionToken = Portal::newToken();
    m_sessionPath = Portal::objectPath(bus, QStringLiteral("session"), sessionToken);
    QDBusMessage call = QDBusMessage::createMethodCall(Portal::service, Portal::path, interface,
                                                       QStringLiteral("CreateSession"));
    call << QVariantMap{{QStringLiteral("handle_token"), token},
                        {QStringLiteral("session_handle_token"), sessionToken}};
    m_request = std::make_unique<PortalRequest>(
        bus, call, token, m_deadlines.answer,
        [this](uint outcome, const QVariantMap& results) { created(outcome, results); });
}

PortalShortcutSession::~PortalShortcutSession() {
    unwatch();
    // A session still being made is closed at its expected path: the portal handles our calls in order.
    m_request.reset();
    Portal::closeSession(m_bus, m_sessionPath);
}

void PortalShortcutSession::unwatch() {
    if (!m_sessionOpen)
        return;
    m_sessionOpen = false;
    m_bus.disconnect(QString(), Portal::path, interface, QStringLiteral("Activated"), this,
                     SLOT(onActivated(QDBusMessage)));
    m_bus.disconnect(QString(), Portal::path, interface, QStringLiteral("ShortcutsChanged"), this,
                     SLOT(onShortcutsChanged(QDBusMessage)));
    m_bus.disconnect(QString(), m_sessionPath, QStringLiteral("org.freedesktop.portal.Session"),
                     QStringLiteral("Closed"), this, SLOT(onClosed()));
}

void PortalShortcutSession::created(uint outcome, const QVariantMap& results) {
    if (outcome != PortalRequest::success) {
        settle(outcome == PortalRequest::cancelled ? DesktopBindingState::declined
                                                   : DesktopBindingState::failed);
        return;
    }
    const QString sessionPath = results.value(QStringLiteral("session_handle")).toString();
    if (!sessionPath.isEmpty())
        m_sessionPath = sessionPath;
    m_sessionOpen = true;
    // Matched by path and session handle rather than by sender: naming the portal's well-known name
    // would have Qt ask the bus for its owner and wait for the answer.
    m_bus.connect(QString(), Portal::path, interface, QStringLiteral("Activated"), this,
                  SLOT(onActivated(QDBusMessage)));
    m_bus.connect(QString(), Portal::path, interface, QStringLiteral("ShortcutsChanged"), this,
                  SLOT(onShortcutsChanged(QDBusMessage)));
    m_bus.connect(QString(), m_sessionPath, QStringLiteral("org.freedesktop.portal.Session"),
                  QStringLiteral("Closed"), this, SLOT(onClosed()));

    QVariantMap properties{{QStringLiteral("description"), m_shortcut.description}};
    if (!m_preferredTrigger.isEmpty())
        properties.insert(QStringLiteral("preferred_trigger"), m_preferredTrigger);
    const QString token = Portal::newToken();
    QDBusMessage call = QDBusMessage::createMethodCall(Portal::service, Portal::path, interface,
                                                       QStringLiteral("BindShortcuts"));
    call << QVariant::fromValue(QDBusObjectPath(m_sessionPath))
         << QVariant::fromValue(QList<Shortcut>{{m_shortcut.id, properties}}) << QString()
         << QVariantMap{{QStringLiteral("handle_token"), token}};
    // The desktop may show a dialog here, which the user answers in their own time.
    m_request = std::make_unique<PortalRequest>(
        m_bus, call, token, m_deadlines.userAnswer,
        [this](uint outcome, const QVariantMap& results) { bound(outcome, results); });
}

void PortalShortcutSession::bound(uint outcome, const QVariantMap& results) {
    m_request.reset();
    if (outcome != PortalRequest::success) {
        settle(outcome == PortalRequest::cancelled ? DesktopBindingState::declined
                                                   : DesktopBindingState::failed);
        return;
    }
    const std::optional<QString> trigger =
        triggerIn(results.value(QStringLiteral("shortcuts")), m_shortcut.id);
    settle(trigger ? DesktopBindingState::bound : DesktopBindingState::declined, trigger.value_or(QString()));
}

void PortalShortcutSession::settle(DesktopBindingState state, const QString& trigger) {
    nbDebug(QStringLiteral("portal: shortcut %1 state=%2 trigger=%3")
                .arg(m_sessionPath)
                .arg(int(state))
                .arg(trigger));
    m_binding = {state, trigger};
    emit bindingChanged();
}

void PortalShortcutSession::onActivated(const QDBusMessage& message) {
    const QList<QVariant> arguments = message.arguments();
    if (arguments.size() < 2 || arguments[0].value<QDBusObjectPath>().path() != m_sessionPath ||
        arguments[1].toString() != m_shortcut.id)
        return;
    emit activated();
}

void PortalShortcutSession::onShortcutsChanged(const QDBusMessage& message) {
    // The user changed the key in the desktop's settings.
    const QList<QVariant> arguments = message.arguments();
    if (arguments.size() < 2 || arguments[0].value<QDBusObjectPath>().path() != m_sessionPath)
        return;
    const std::optional<QString> trigger = triggerIn(arguments[1], m_shortcut.id);
    settle(trigger ? DesktopBindingState::bound : DesktopBindingState::declined, trigger.value_or(QString()));
}

void PortalShortcutSession::onClosed() {
    // The desktop ended the session: the shortcut is gone with it.
    unwatch();
    settle(DesktopBindingState::failed);
}
