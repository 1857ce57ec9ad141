#include "NubraPlatform/fake/FakeEventMonitors.h"

#include <QList>

EventMonitors::Token FakeEventMonitors::add(Entry entry) {
    const Token token = m_next++;
    m_monitors.emplace(token, std::move(entry));
    return token;
}

std::optional<EventMonitors::Token> FakeEventMonitors::addGlobalMouseUpMonitor(MouseHandler handler) {
    return add({Kind::globalUp, std::move(handler), {}});
}

std::optional<EventMonitors::Token> FakeEventMonitors::addGlobalMouseDownMonitor(MouseHandler handler) {
    return add({Kind::globalDown, std::move(handler), {}});
}

std::optional<EventMonitors::Token> FakeEventMonitors::addLocalMouseDownMonitor(MouseHandler handler) {
    return add({Kind::localDown, std::move(handler), {}});
}

std::optional<EventMonitors::Token> FakeEventMonitors::addLocalKeyDownMonitor(KeyHandler handler) {
    return add({Kind::localKey, {}, std::move(handler)});
}

std::optional<EventMonitors::Token> FakeEventMonitors::addGlobalKeyDownMonitor(KeyHandler handler) {
    return add({Kind::globalKey, {}, std::move(handler)});
}

std::optional<EventMonitors::Token> FakeEventMonitors::addGlobalSelectionMonitor(SelectionHandler handler) {
    if (!reportsSelectionChanges)
        return std::nullopt;
    return add({Kind::selection, {}, {}, std::move(handler)});
}

void FakeEventMonitors::removeMonitor(Token token) {
    m_monitors.erase(token);
}

int FakeEventMonitors::installed() const {
    return int(m_monitors.size());
}

void FakeEventMonitors::playMouse(Kind kind, const MouseEvent& event) {
    // Copy first: a handler may remove monitors while we iterate.
    QList<MouseHandler> handlers;
    for (const auto& [token, entry] : m_monitors) {
        if (entry.kind == kind)
            handlers.append(entry.mouse);
    }
    for (const MouseHandler& handler : handlers)
        handler(event);
}

void FakeEventMonitors::globalMouseUp(const MouseEvent& event) {
    // The platform never reports right-button releases to this monitor.
    if (event.button != MouseButton::right)
        playMouse(Kind::globalUp, event);
}

void FakeEventMonitors::globalMouseDown(const MouseEvent& event) {
    if (event.button == MouseButton::left)
        playMouse(Kind::globalDown, event);
}

void FakeEventMonitors::localMouseDown(const MouseEvent& event) {
    if (event.button == MouseButton::left)
        playMouse(Kind::localDown, event);
}

void FakeEventMonitors::playKey(Kind kind, const KeyEvent& event) {
    QList<KeyHandler> handlers;
    for (const auto& [token, entry] : m_monitors) {
        if (entry.kind == kind)
            handlers.append(entry.key);
    }
    for (const KeyHandler& handler : handlers)
        handler(event);
}

void FakeEventMonitors::localKeyDown(const KeyEvent& event) {
    playKey(Kind::localKey, event);
}

void FakeEventMonitors::globalKeyDown(const KeyEvent& event) {
    constexpr int escapeKeyCode = 53;
    if (event.keyCode == escapeKeyCode)
        playKey(Kind::globalKey, event);
}

void FakeEventMonitors::selectionChanged(const SelectionChange& change) {
    QList<SelectionHandler> handlers;
    for (const auto& [token, entry] : m_monitors) {
        if (entry.kind == Kind::selection)
            handlers.append(entry.selection);
    }
    for (const SelectionHandler& handler : handlers)
        handler(change);
}
