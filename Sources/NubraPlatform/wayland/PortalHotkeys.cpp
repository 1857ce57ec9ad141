#include "NubraPlatform/wayland/PortalHotkeys.h"

#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/linux/X11KeyMap.h"
#include "NubraPlatform/wayland/PortalShortcutSession.h"

#include <xkbcommon/xkbcommon.h>

#include <vector>

PortalHotkeys::PortalHotkeys(GlobalHotkeys& fallback, const QDBusConnection& bus,
                             const Portal::Deadlines& deadlines)
    : m_fallback(fallback), m_bus(bus), m_deadlines(deadlines) {
    const Installed forwarded =
        m_fallback.installHandler([this](quint32 signature, quint32 id) { fire(signature, id); });
    if (forwarded.status == 0)
        m_fallbackHandler = forwarded.handler;
    Portal::readProperties(m_bus, QStringLiteral("org.freedesktop.portal.GlobalShortcuts"),
                           m_deadlines.answer, this, [this](const std::optional<QVariantMap>& properties) {
                               portalAnswered(properties &&
                                              properties->value(QStringLiteral("version")).toUInt() >= 1);
                           });
}

PortalHotkeys::~PortalHotkeys() {
    for (const auto& [ref, registration] : m_registrations)
        if (registration.fallbackKey)
            m_fallback.unregisterHotKey(*registration.fallbackKey);
    if (m_fallbackHandler)
        m_fallback.removeHandler(*m_fallbackHandler);
}

GlobalHotkeys::Installed PortalHotkeys::installHandler(std::function<void(quint32, quint32)> onPressed) {
    const HandlerRef ref = m_next++;
    m_handlers.emplace(ref, std::move(onPressed));
    return {0, ref};
}

void PortalHotkeys::removeHandler(HandlerRef handler) {
    m_handlers.erase(handler);
}

GlobalHotkeys::Registered PortalHotkeys::registerHotKey(quint32 keyCode, quint32 carbonModifiers,
                                                        quint32 signature, quint32 id) {
    Registration registration{keyCode, carbonModifiers, signature, id, std::nullopt, nullptr};
    if (m_portal != true) {
        const Registered grabbed = m_fallback.registerHotKey(keyCode, carbonModifiers, signature, id);
        // Once the portal has said no, the grab is all there is; before that, a portal may still bind it.
        if (m_portal == false && grabbed.status != 0)
            return {grabbed.status, 0};
        if (grabbed.status == 0)
            registration.fallbackKey = grabbed.hotKey;
    }
    const HotKeyRef ref = m_next++;
    Registration& stored = m_registrations.emplace(ref, std::move(registration)).first->second;
    if (m_portal == true)
        bind(ref, stored);
    emit desktopBindingChanged();
    return {0, ref};
}

void PortalHotkeys::unregisterHotKey(HotKeyRef hotKey) {
    const auto found = m_registrations.find(hotKey);
    if (found == m_registrations.end())
        return;
    if (found->second.fallbackKey)
        m_fallback.unregisterHotKey(*found->second.fallbackKey);
    m_registrations.erase(found); // closes its portal session
    emit desktopBindingChanged();
}

std::optional<GlobalHotkeys::DesktopBinding> PortalHotkeys::desktopBinding() const {
    // The latest registration is the one the user sees.
    if (m_portal != true)
        return std::nullopt;
    for (auto found = m_registrations.rbegin(); found != m_registrations.rend(); ++found)
        if (found->second.id != screenTextKeyId)
            return found->second.session->binding();
    return std::nullopt;
}

void PortalHotkeys::watchDesktopBinding(QObject* context, std::function<void()> changed) {
    connect(this, &PortalHotkeys::desktopBindingChanged, context, std::move(changed));
}

QString PortalHotkeys::triggerFor(quint32 keyCode, quint32 carbonModifiers) {
    const std::optional<quint32> keysym = X11KeyMap::keysymFor(keyCode);
    char name[64] = {};
    if (!keysym || xkb_keysym_get_name(*keysym, name, sizeof name) <= 0)
        return {};
    QStringList parts;
    if (carbonModifiers & 0x1000)
        parts << QStringLiteral("CTRL");
    if (carbonModifiers & 0x800)
        parts << QStringLiteral("ALT");
    if (carbonModifiers & 0x200)
        parts << QStringLiteral("SHIFT");
    if (carbonModifiers & 0x100)
        parts << QStringLiteral("LOGO");
    parts << QString::fromLatin1(name);
    return parts.join(u'+');
}

void PortalHotkeys::portalAnswered(bool offersShortcuts) {
    nbDebug(QStringLiteral("portal: GlobalShortcuts %1")
                .arg(offersShortcuts ? QStringLiteral("offered") : QStringLiteral("not offered")));
    m_portal = offersShortcuts;
    if (offersShortcuts) {
        // The portal sees every window; the grab saw only XWayland's, and would fire a second time there.
        for (auto& [ref, registration] : m_registrations) {
            if (registration.fallbackKey)
                m_fallback.unregisterHotKey(*std::exchange(registration.fallbackKey, std::nullopt));
            bind(ref, registration);
        }
    }
    emit desktopBindingChanged();
}

void PortalHotkeys::bind(HotKeyRef ref, Registration& registration) {
    // Named in the desktop's list of shortcuts by what it does.
    const PortalShortcutSession::Listing listing =
        registration.id == screenTextKeyId
            ? PortalShortcutSession::Listing{QStringLiteral("ocr"),
                                             L10n::t(QStringLiteral("Explain text on the screen with Nubra"),
                                                     QStringLiteral("用 Nubra 解释屏幕上的文字"))}
            : PortalShortcutSession::Listing{QStringLiteral("lookup"),
                                             L10n::t(QStringLiteral("Look up the selected text in Nubra"),
                                                     QStringLiteral("用 Nubra 查询所选文字"))};
    registration.session = std::make_unique<PortalShortcutSession>(
        m_bus, listing, triggerFor(registration.keyCode, registration.modifiers), m_deadlines);
    connect(registration.session.get(), &PortalShortcutSession::bindingChanged, this,
            &PortalHotkeys::desktopBindingChanged);
    connect(registration.session.get(), &PortalShortcutSession::activated, this, [this, ref] {
        const auto found = m_registrations.find(ref);
        if (found != m_registrations.end())
            fire(found->second.signature, found->second.id);
    });
}

void PortalHotkeys::fire(quint32 signature, quint32 id) {
    // A handler may remove handlers.
    std::vector<std::function<void(quint32, quint32)>> handlers;
    for (const auto& [ref, handler] : m_handlers)
        handlers.push_back(handler);
    for (const auto& handler : handlers)
        handler(signature, id);
}
