#include "NubraApp/Capture/HotkeyManager.h"

#include "NubraCore/Support/DebugLog.h"

#include <limits>

HotkeyManager::~HotkeyManager() {
    unregister();
}

void HotkeyManager::unregister() {
    if (m_hotKeyRef)
        m_hotkeys.unregisterHotKey(*m_hotKeyRef);
    if (m_eventHandler)
        m_hotkeys.removeHandler(*m_eventHandler);
    m_hotKeyRef.reset();
    m_eventHandler.reset();
    m_registeredCombo.reset();
}

void HotkeyManager::followTriggerMode(TriggerMode mode, const Defaults& defaults) {
    if (mode == TriggerMode::hotkey)
        registerCombo(HotkeyCombo::load(defaults));
    else
        unregister();
}

void HotkeyManager::registerCombo(const HotkeyCombo& combo) {
    unregister();
    if (!combo.isMeaningful() || combo.keyCode > std::numeric_limits<quint32>::max())
        return;

    const GlobalHotkeys::Installed installed =
        m_hotkeys.installHandler([this](quint32 signature, quint32 id) {
            if (signature == HotkeyManager::signature && id == m_id)
                fired();
        });
    if (installed.status == 0)
        m_eventHandler = installed.handler;
    nbDebug(QStringLiteral("hotkey: InstallEventHandler status=%1").arg(installed.status));
    if (installed.status != 0)
        return;

    const quint32 keyCode = quint32(combo.keyCode);
    const quint32 modifiers = combo.carbonModifiers();
    const GlobalHotkeys::Registered registered =
        m_hotkeys.registerHotKey(keyCode, modifiers, signature, m_id);
    if (registered.status == 0)
        m_hotKeyRef = registered.hotKey;
    nbDebug(QStringLiteral("hotkey: RegisterEventHotKey keyCode=%1 carbonMods=%2 status=%3")
                .arg(keyCode)
                .arg(modifiers)
                .arg(registered.status));
    if (registered.status == 0)
        m_registeredCombo = combo;
}

void HotkeyManager::fired() {
    nbDebug(QStringLiteral("hotkey: FIRED"));
    if (onHotkey)
        onHotkey();
}
