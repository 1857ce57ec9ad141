#pragma once

#include "NubraCore/Capture/HotkeyCombo.h"
#include "NubraCore/Vocabulary/Models.h"
#include "NubraPlatform/GlobalHotkeys.h"

#include <functional>
#include <optional>

class Defaults;

// Keeps at most one global hot key registered and calls onHotkey when it fires (on the main thread). Each
// manager has an id of its own, so that two of them (the lookup and the text on screen) answer only their
// own key.
class HotkeyManager {
public:
    // "NBRA" as a big-endian four-character code.
    static constexpr quint32 signature = 0x4E425241;
    static constexpr quint32 hotKeyId = GlobalHotkeys::lookupKeyId;
    static constexpr quint32 screenTextHotKeyId = GlobalHotkeys::screenTextKeyId;

    explicit HotkeyManager(GlobalHotkeys& hotkeys, quint32 id = hotKeyId) : m_hotkeys(hotkeys), m_id(id) {}
    ~HotkeyManager();
    HotkeyManager(const HotkeyManager&) = delete;
    HotkeyManager& operator=(const HotkeyManager&) = delete;

    // Replaces whatever was registered. A combination that is not meaningful registers nothing.
    void registerCombo(const HotkeyCombo& combo);
    void unregister();
    // In hotkey mode registers the combination stored in `defaults` (Option+G when none is); in every
    // other mode unregisters.
    void followTriggerMode(TriggerMode mode, const Defaults& defaults);

    std::optional<HotkeyCombo> registeredCombo() const { return m_registeredCombo; }
    // The desktop's hot keys, for what it says about the key it bound.
    GlobalHotkeys& globalHotkeys() const { return m_hotkeys; }

    std::function<void()> onHotkey;

private:
    void fired();

    GlobalHotkeys& m_hotkeys;
    quint32 m_id;
    std::optional<GlobalHotkeys::HotKeyRef> m_hotKeyRef;
    std::optional<GlobalHotkeys::HandlerRef> m_eventHandler;
    std::optional<HotkeyCombo> m_registeredCombo;
};
