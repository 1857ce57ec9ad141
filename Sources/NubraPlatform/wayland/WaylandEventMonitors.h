#pragma once

#include "NubraPlatform/EventMonitors.h"
#include "NubraPlatform/linux/X11EventMonitors.h"

#include <QObject>

#include <map>

// The monitors of a Wayland session. Nubra's own windows and X11 applications are X11 windows on
// XWayland, where the X11 monitors see their clicks and keys; Wayland applications show nothing of
// the pointer, so what they tell instead, selection changes, is passed on from whichever thread
// reports it to the handlers on the main thread.
class WaylandEventMonitors final : public QObject, public EventMonitors {
public:
    std::optional<Token> addGlobalMouseUpMonitor(MouseHandler handler) override;
    std::optional<Token> addGlobalMouseDownMonitor(MouseHandler handler) override;
    std::optional<Token> addLocalMouseDownMonitor(MouseHandler handler) override;
    std::optional<Token> addLocalKeyDownMonitor(KeyHandler handler) override;
    std::optional<Token> addGlobalKeyDownMonitor(KeyHandler handler) override;
    std::optional<Token> addGlobalSelectionMonitor(SelectionHandler handler) override;
    void removeMonitor(Token token) override;

    // Safe from any thread.
    void post(const SelectionChange& change);

private:
    void deliver(const SelectionChange& change);

    // Tokens of the X11 monitors count up from 1; these stay clear of them.
    static constexpr Token firstSelectionToken = Token(1) << 40;

    X11EventMonitors m_x11;
    std::map<Token, SelectionHandler> m_selection;
    Token m_next = firstSelectionToken;
};
