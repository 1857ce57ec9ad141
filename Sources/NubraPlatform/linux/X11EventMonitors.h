#pragma once

#include "NubraPlatform/EventMonitors.h"
#include "NubraPlatform/linux/ClickCounter.h"
#include "NubraPlatform/linux/X11Connection.h"

#include <QElapsedTimer>
#include <QObject>
#include <QSet>

#include <map>

// Global monitors from XInput2 raw button and key events on a private connection (they arrive even
// while another client holds a grab); local monitors from an event filter on this application. Raw key
// presses are selected only while a global key monitor exists, and only Escape is passed on.
class X11EventMonitors final : public QObject, public EventMonitors {
public:
    X11EventMonitors();
    ~X11EventMonitors() override;

    std::optional<Token> addGlobalMouseUpMonitor(MouseHandler handler) override;
    std::optional<Token> addGlobalMouseDownMonitor(MouseHandler handler) override;
    std::optional<Token> addLocalMouseDownMonitor(MouseHandler handler) override;
    std::optional<Token> addLocalKeyDownMonitor(KeyHandler handler) override;
    std::optional<Token> addGlobalKeyDownMonitor(KeyHandler handler) override;
    // X11 shows every release: a selection is told by the gesture that made it.
    std::optional<Token> addGlobalSelectionMonitor(SelectionHandler) override { return std::nullopt; }
    void removeMonitor(Token token) override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    enum class Kind { globalUp, globalDown, localDown, localKey, globalKey };
    struct Entry {
        Kind kind;
        MouseHandler mouse;
        KeyHandler key;
    };
    std::optional<Token> add(Kind kind, MouseHandler mouse, KeyHandler key);
    void onXEvent(XEvent& event);
    void play(Kind kind, const MouseEvent& event);
    void playKey(Kind kind, const KeyEvent& event);
    void selectRawEvents();

    X11Connection m_connection;
    int m_xiOpcode = -1;
    bool m_keysSelected = false;
    ClickCounter m_clicks;
    QElapsedTimer m_elapsed;
    int m_lastClickCount = 1;
    // Where and when each button still held went down, in device pixels and server time.
    struct Press {
        quint64 time = 0;
        QPointF at;
    };
    std::map<int, Press> m_presses;
    // Buttons whose press went to one of this application's windows, until their release.
    QSet<int> m_ownPresses;
    // Server times of the last presses Qt delivered to this application's windows.
    QSet<quint64> m_localPressTimes;
    Token m_next = 1;
    std::map<Token, Entry> m_monitors;
};
