#pragma once

#include <QPointF>
#include <QtGlobal>

#include <functional>
#include <optional>

enum class MouseButton { left, right, other };

// A mouse event as the monitors hand it on. `modifierFlags` uses the device-independent flag layout of
// HotkeyCombo (Option 0x80000 ...); `location` is in bottom-left-origin global coordinates.
struct MouseEvent {
    MouseButton button = MouseButton::left;
    quint64 modifierFlags = 0;
    int clickCount = 1;
    QPointF location;
    std::optional<quint64> windowId; // the window of this application the event went to, if any
    // Global events: the server time (ms) of the press that began this click or drag, 0 when unknown,
    // and, on a release, whether the pointer moved past the drag distance since that press.
    quint64 pressTime = 0;
    bool dragged = false;
};

// A key press (inside this application unless a global monitor says otherwise); `keyCode` is an ANSI virtual
// key code (Escape is 53).
struct KeyEvent {
    int keyCode = 0;
    quint64 modifierFlags = 0;
};

// A selection changed somewhere on the desktop, as desktops that hide the pointer and the keys still tell
// (accessibility events, a new owner of the primary selection). Every step of a drag or of Shift+arrow
// is one change; nothing says that the user has finished.
struct SelectionChange {
    enum class Source { accessibility, primary };
    Source source = Source::accessibility;
    bool empty = false;              // the selection was collapsed or cleared
    std::optional<qint64> processId; // the application it changed in, when known
};

// Global (other applications) and local (this application) event monitors. Handlers run on the main
// thread. A monitor the platform refuses gives no token.
class EventMonitors {
public:
    using Token = quint64;
    using MouseHandler = std::function<void(const MouseEvent&)>;
    using KeyHandler = std::function<void(const KeyEvent&)>;
    using SelectionHandler = std::function<void(const SelectionChange&)>;

    virtual ~EventMonitors() = default;

    // Releases of the left button and of other (third and beyond) buttons; never the right one.
    virtual std::optional<Token> addGlobalMouseUpMonitor(MouseHandler handler) = 0;
    // Left-button presses that go to other applications.
    virtual std::optional<Token> addGlobalMouseDownMonitor(MouseHandler handler) = 0;
    // Left-button presses in this application's windows; the event itself is never swallowed.
    virtual std::optional<Token> addLocalMouseDownMonitor(MouseHandler handler) = 0;
    virtual std::optional<Token> addLocalKeyDownMonitor(KeyHandler handler) = 0;
    // Escape pressed anywhere, whichever window has the keyboard; no other key is ever reported. A
    // window that never takes focus (the bubble, an unclicked card) hears Escape only this way.
    virtual std::optional<Token> addGlobalKeyDownMonitor(KeyHandler handler) = 0;
    // Selection changes in applications whose pointer gestures the desktop does not show us; none where
    // the mouse monitors see every application (a change there is told by its release).
    virtual std::optional<Token> addGlobalSelectionMonitor(SelectionHandler handler) = 0;
    virtual void removeMonitor(Token token) = 0;
};
