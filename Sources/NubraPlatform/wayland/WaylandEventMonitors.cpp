#include "NubraPlatform/wayland/WaylandEventMonitors.h"

#include <QList>
#include <QMetaObject>

std::optional<EventMonitors::Token> WaylandEventMonitors::addGlobalMouseUpMonitor(MouseHandler handler) {
    return m_x11.addGlobalMouseUpMonitor(std::move(handler));
}

std::optional<EventMonitors::Token> WaylandEventMonitors::addGlobalMouseDownMonitor(MouseHandler handler) {
    return m_x11.addGlobalMouseDownMonitor(std::move(handler));
}

std::optional<EventMonitors::Token> WaylandEventMonitors::addLocalMouseDownMonitor(MouseHandler handler) {
    return m_x11.addLocalMouseDownMonitor(std::move(handler));
}

std::optional<EventMonitors::Token> WaylandEventMonitors::addLocalKeyDownMonitor(KeyHandler handler) {
    return m_x11.addLocalKeyDownMonitor(std::move(handler));
}

std::optional<EventMonitors::Token> WaylandEventMonitors::addGlobalKeyDownMonitor(KeyHandler handler) {
    return m_x11.addGlobalKeyDownMonitor(std::move(handler));
}

std::optional<EventMonitors::Token>
WaylandEventMonitors::addGlobalSelectionMonitor(SelectionHandler handler) {
    const Token token = m_next++;
    m_selection.emplace(token, std::move(handler));
    return token;
}

void WaylandEventMonitors::removeMonitor(Token token) {
    if (token >= firstSelectionToken)
        m_selection.erase(token);
    else
        m_x11.removeMonitor(token);
}

void WaylandEventMonitors::post(const SelectionChange& change) {
    QMetaObject::invokeMethod(
        this, [this, change]() { deliver(change); }, Qt::QueuedConnection);
}

void WaylandEventMonitors::deliver(const SelectionChange& change) {
    // Copied first: a handler may remove monitors.
    QList<SelectionHandler> handlers;
    for (const auto& [token, handler] : m_selection)
        handlers.append(handler);
    for (const SelectionHandler& handler : handlers)
        handler(change);
}
