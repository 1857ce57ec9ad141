#pragma once

#include "NubraPlatform/GlobalHotkeys.h"

#include <map>

// Hot keys in memory: statuses are scriptable and press() plays a key press to the handlers.
class FakeGlobalHotkeys final : public GlobalHotkeys {
public:
    struct HotKey {
        quint32 keyCode;
        quint32 modifiers;
        quint32 signature;
        quint32 id;
    };

    int installStatus = 0;
    int registerStatus = 0;
    std::optional<bool> binds = false; // whether the desktop binds keys itself

    std::optional<bool> desktopBinds() const override { return binds; }

    Installed installHandler(std::function<void(quint32, quint32)> onPressed) override;
    void removeHandler(HandlerRef handler) override;
    Registered registerHotKey(quint32 keyCode, quint32 carbonModifiers, quint32 signature,
                              quint32 id) override;
    void unregisterHotKey(HotKeyRef hotKey) override;

    int handlers() const { return int(m_handlers.size()); }
    int hotKeys() const { return int(m_hotKeys.size()); }
    std::optional<HotKey> onlyHotKey() const;
    // The user presses the first registered hot key.
    void press();

private:
    quint64 m_next = 1;
    std::map<HandlerRef, std::function<void(quint32, quint32)>> m_handlers;
    std::map<HotKeyRef, HotKey> m_hotKeys;
};
