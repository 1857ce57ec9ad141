#include "NubraPlatform/fake/FakeGlobalHotkeys.h"

#include <QList>

GlobalHotkeys::Installed FakeGlobalHotkeys::installHandler(std::function<void(quint32, quint32)> onPressed) {
    if (installStatus != 0)
        return {installStatus, 0};
    const HandlerRef ref = m_next++;
    m_handlers.emplace(ref, std::move(onPressed));
    return {0, ref};
}

void FakeGlobalHotkeys::removeHandler(HandlerRef handler) {
    m_handlers.erase(handler);
}

GlobalHotkeys::Registered FakeGlobalHotkeys::registerHotKey(quint32 keyCode, quint32 carbonModifiers,
                                                            quint32 signature, quint32 id) {
    if (registerStatus != 0)
        return {registerStatus, 0};
    const HotKeyRef ref = m_next++;
    m_hotKeys.emplace(ref, HotKey{keyCode, carbonModifiers, signature, id});
    return {0, ref};
}

void FakeGlobalHotkeys::unregisterHotKey(HotKeyRef hotKey) {
    m_hotKeys.erase(hotKey);
}

std::optional<FakeGlobalHotkeys::HotKey> FakeGlobalHotkeys::onlyHotKey() const {
    if (m_hotKeys.size() != 1)
        return std::nullopt;
    return m_hotKeys.begin()->second;
}

void FakeGlobalHotkeys::press() {
    if (m_hotKeys.empty())
        return;
    const HotKey key = m_hotKeys.begin()->second;
    QList<std::function<void(quint32, quint32)>> handlers;
    for (const auto& [ref, handler] : m_handlers)
        handlers.append(handler);
    for (const auto& handler : handlers)
        handler(key.signature, key.id);
}
