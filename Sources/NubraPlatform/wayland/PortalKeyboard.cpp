#include "NubraPlatform/wayland/PortalKeyboard.h"

#include "NubraCore/Support/DebugLog.h"

#include <QDBusObjectPath>

namespace {

const QString interface = QStringLiteral("org.freedesktop.portal.RemoteDesktop");
const QString sessionInterface = QStringLiteral("org.freedesktop.portal.Session");
constexpr uint keyboardDevice = 1;

} // namespace

PortalKeyboard::PortalKeyboard(SyntheticKeyboard& fallback, const QDBusConnection& bus,
                               const Portal::Deadlines& deadlines)
    : m_fallback(fallback), m_bus(bus), m_deadlines(deadlines) {
    Portal::readProperties(
        m_bus, interface, m_deadlines.answer, this, [this](const std::optional<QVariantMap>& properties) {
            const uint devices =
                properties ? properties->value(QStringLiteral("AvailableDeviceTypes")).toUInt() : 0;
            portalAnswered(devices & keyboardDevice);
        });
}

PortalKeyboard::~PortalKeyboard() {
    stop(Permission::off);
}

bool PortalKeyboard::beginCopy() {
    if (!m_fallback.beginCopy())
        return false;
    std::lock_guard guard(m_lock);
    m_copySession = m_grantedSession;
    return true;
}

bool PortalKeyboard::post(CopyStroke stroke) {
    QString session;
    {
        std::lock_guard guard(m_lock);
        session = m_copySession;
    }
    if (session.isEmpty())
        return m_fallback.post(stroke);
    const bool modifier = stroke == CopyStroke::modifierDown || stroke == CopyStroke::modifierUp;
    const bool pressed = stroke == CopyStroke::modifierDown || stroke == CopyStroke::keyDown;
    QDBusMessage call = QDBusMessage::createMethodCall(Portal::service, Portal::path, interface,
                                                       QStringLiteral("NotifyKeyboardKeycode"));
    call << QVariant::fromValue(QDBusObjectPath(session)) << QVariantMap() << (modifier ? controlKey : cKey)
         << uint(pressed ? 1 : 0);
    // On the reading thread, so waiting for the answer keeps the strokes in order and holds no window.
    const QDBusMessage reply = m_bus.call(call, QDBus::Block, m_deadlines.reply);
    if (reply.type() == QDBusMessage::ErrorMessage)
        nbDebug(QStringLiteral("portal: key not sent: %1").arg(reply.errorName()));
    return reply.type() == QDBusMessage::ReplyMessage;
}

void PortalKeyboard::setPermissionWanted(bool wanted) {
    m_wanted = wanted;
    if (!wanted)
        stop(m_offered == false ? Permission::unavailable : Permission::off);
    else if (m_offered == true && !m_request && !m_sessionOpen)
        start();
}

void PortalKeyboard::watchPermission(QObject* context, std::function<void()> changed) {
    connect(this, &PortalKeyboard::permissionChanged, context, std::move(changed));
}

void PortalKeyboard::portalAnswered(bool offersKeyboard) {
    nbDebug(QStringLiteral("portal: RemoteDesktop keyboard %1")
                .arg(offersKeyboard ? QStringLiteral("offered") : QStringLiteral("not offered")));
    m_offered = offersKeyboard;
    if (!offersKeyboard)
        setPermission(Permission::unavailable);
    else if (m_wanted)
        start();
}

void PortalKeyboard::start() {
    setPermission(Permission::asking);
    const QString token = Portal::newToken();
    const QString sessionToken = Portal::newToken();
    m_sessionPath = Portal::objectPath(m_bus, QStringLiteral("session"), sessionToken);
    QDBusMessage call = QDBusMessage::createMethodCall(Portal::service, Portal::path, interface,
                                                       QStringLiteral("CreateSession"));
    call << QVariantMap{{QStringLiteral("handle_token"), token},
                        {QStringLiteral("session_handle_token"), sessionToken}};
    m_request = std::make_unique<PortalRequest>(
        m_bus, call, token, m_deadlines.answer,
        [this](uint outcome, const QVariantMap& results) { created(outcome, results); });
}

void PortalKeyboard::created(uint outcome, const QVariantMap& results) {
    if (outcome != PortalRequest::success) {
        stop(outcome == PortalRequest::cancelled ? Permission::refused : Permission::failed);
        return;
    }
    const QString sessionPath = results.value(QStringLiteral("session_handle")).toString();
    if (!sessionPath.isEmpty())
        m_sessionPath = sessionPath;
    m_sessionOpen = true;
    m_bus.connect(QString(), m_sessionPath, sessionInterface, QStringLiteral("Closed"), this,
                  SLOT(onClosed()));
    const QString token = Portal::newToken();
    QDBusMessage call = QDBusMessage::createMethodCall(Portal::service, Portal::path, interface,
                                                       QStringLiteral("SelectDevices"));
    call << QVariant::fromValue(QDBusObjectPath(m_sessionPath))
         << QVariantMap{{QStringLiteral("handle_token"), token}, {QStringLiteral("types"), keyboardDevice}};
    m_request = std::make_unique<PortalRequest>(
        m_bus, call, token, m_deadlines.answer,
        [this](uint outcome, const QVariantMap&) { devicesSelected(outcome); });
}

void PortalKeyboard::devicesSelected(uint outcome) {
    if (outcome != PortalRequest::success) {
        stop(outcome == PortalRequest::cancelled ? Permission::refused : Permission::failed);
        return;
    }
    const QString token = Portal::newToken();
    QDBusMessage call =
        QDBusMessage::createMethodCall(Portal::service, Portal::path, interface, QStringLiteral("Start"));
    call << QVariant::fromValue(QDBusObjectPath(m_sessionPath)) << QString()
         << QVariantMap{{QStringLiteral("handle_token"), token}};
    // The desktop asks the user here.
    m_request = std::make_unique<PortalRequest>(
        m_bus, call, token, m_deadlines.userAnswer,
        [this](uint outcome, const QVariantMap& results) { started(outcome, results); });
}

void PortalKeyboard::started(uint outcome, const QVariantMap& results) {
    m_request.reset();
    const bool keyboard = results.value(QStringLiteral("devices")).toUInt() & keyboardDevice;
    if (outcome != PortalRequest::success || !keyboard) {
        stop(outcome == PortalRequest::failed ? Permission::failed : Permission::refused);
        return;
    }
    {
        std::lock_guard guard(m_lock);
        m_grantedSession = m_sessionPath;
    }
    setPermission(Permission::granted);
}

void PortalKeyboard::onClosed() {
    // The user ended it from the desktop (GNOME's "stop sharing"), or the portal went away.
    m_sessionOpen = false;
    stop(Permission::failed);
}

void PortalKeyboard::stop(Permission after) {
    {
        std::lock_guard guard(m_lock);
        m_grantedSession.clear();
    }
    // A session still being made is closed at its expected path: the portal handles our calls in order.
    const bool pending = m_request != nullptr;
    m_request.reset();
    if (m_sessionOpen || pending) {
        m_bus.disconnect(QString(), m_sessionPath, sessionInterface, QStringLiteral("Closed"), this,
                         SLOT(onClosed()));
        Portal::closeSession(m_bus, m_sessionPath);
    }
    m_sessionOpen = false;
    setPermission(after);
}

void PortalKeyboard::setPermission(Permission permission) {
    if (permission == m_permission)
        return;
    nbDebug(QStringLiteral("portal: remote-desktop permission %1").arg(int(permission)));
    m_permission = permission;
    emit permissionChanged();
}
