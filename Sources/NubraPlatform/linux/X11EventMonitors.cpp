#include "NubraPlatform/linux/X11EventMonitors.h"

#include "NubraPlatform/Coordinates.h"
#include "NubraPlatform/linux/QtScreens.h"
#include "NubraPlatform/linux/X11KeyMap.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QStyleHints>
#include <QWindow>

#include <algorithm>
#include <cmath>

namespace {
// Read before the X11 headers, which define KeyPress as a macro.
constexpr QEvent::Type qtKeyPress = QEvent::KeyPress;
} // namespace

#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <X11/keysym.h>

namespace {
constexpr int escapeKeyCode = 53;
constexpr int unknownKeyCode = -1;
} // namespace

X11EventMonitors::X11EventMonitors()
    : m_clicks(QGuiApplication::styleHints()->mouseDoubleClickInterval(),
               QGuiApplication::styleHints()->startDragDistance()) {
    m_elapsed.start();
    qApp->installEventFilter(this);
    Display* display = m_connection.display();
    if (!display)
        return;
    int event = 0, error = 0;
    int major = 2, minor = 2;
    if (!XQueryExtension(display, "XInputExtension", &m_xiOpcode, &event, &error) ||
        XIQueryVersion(display, &major, &minor) != Success) {
        m_xiOpcode = -1;
        return;
    }
    selectRawEvents();
    m_connection.setHandler([this](XEvent& e) { onXEvent(e); });
}

void X11EventMonitors::selectRawEvents() {
    Display* display = m_connection.display();
    unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
    XISetMask(bits, XI_RawButtonPress);
    XISetMask(bits, XI_RawButtonRelease);
    // Every key typed anywhere would reach us with this bit; ask for keys only while someone listens.
    if (m_keysSelected)
        XISetMask(bits, XI_RawKeyPress);
    XIEventMask mask{XIAllMasterDevices, int(sizeof(bits)), bits};
    XISelectEvents(display, DefaultRootWindow(display), &mask, 1);
    XFlush(display);
}

X11EventMonitors::~X11EventMonitors() {
    if (qApp)
        qApp->removeEventFilter(this);
}

std::optional<EventMonitors::Token> X11EventMonitors::add(Kind kind, MouseHandler mouse, KeyHandler key) {
    const bool global = kind == Kind::globalUp || kind == Kind::globalDown || kind == Kind::globalKey;
    if (global && m_xiOpcode < 0)
        return std::nullopt;
    const Token token = m_next++;
    m_monitors.emplace(token, Entry{kind, std::move(mouse), std::move(key)});
    if (kind == Kind::globalKey && !m_keysSelected) {
        m_keysSelected = true;
        selectRawEvents();
    }
    return token;
}

std::optional<EventMonitors::Token> X11EventMonitors::addGlobalMouseUpMonitor(MouseHandler handler) {
    return add(Kind::globalUp, std::move(handler), {});
}
std::optional<EventMonitors::Token> X11EventMonitors::addGlobalMouseDownMonitor(MouseHandler handler) {
    return add(Kind::globalDown, std::move(handler), {});
}
std::optional<EventMonitors::Token> X11EventMonitors::addLocalMouseDownMonitor(MouseHandler handler) {
    return add(Kind::localDown, std::move(handler), {});
}
std::optional<EventMonitors::Token> X11EventMonitors::addLocalKeyDownMonitor(KeyHandler handler) {
    return add(Kind::localKey, {}, std::move(handler));
}

std::optional<EventMonitors::Token> X11EventMonitors::addGlobalKeyDownMonitor(KeyHandler handler) {
    return add(Kind::globalKey, {}, std::move(handler));
}

void X11EventMonitors::removeMonitor(Token token) {
    m_monitors.erase(token);
    const bool keysWanted = std::any_of(m_monitors.begin(), m_monitors.end(),
                                        [](const auto& item) { return item.second.kind == Kind::globalKey; });
    if (m_keysSelected && !keysWanted) {
        m_keysSelected = false;
        selectRawEvents();
    }
}

void X11EventMonitors::play(Kind kind, const MouseEvent& event) {
    std::vector<MouseHandler> handlers;
    for (const auto& [token, entry] : m_monitors) {
        if (entry.kind == kind)
            handlers.push_back(entry.mouse);
    }
    for (const MouseHandler& handler : handlers)
        handler(event);
}

void X11EventMonitors::playKey(Kind kind, const KeyEvent& event) {
    std::vector<KeyHandler> handlers;
    for (const auto& [token, entry] : m_monitors) {
        if (entry.kind == kind)
            handlers.push_back(entry.key);
    }
    for (const KeyHandler& handler : handlers)
        handler(event);
}

void X11EventMonitors::onXEvent(XEvent& event) {
    Display* display = m_connection.display();
    if (event.xcookie.type != GenericEvent || event.xcookie.extension != m_xiOpcode ||
        !XGetEventData(display, &event.xcookie))
        return;
    const int type = event.xcookie.evtype;
    const int detail = static_cast<XIRawEvent*>(event.xcookie.data)->detail;
    const quint64 time = static_cast<XIRawEvent*>(event.xcookie.data)->time;
    XFreeEventData(display, &event.xcookie);

    if (type == XI_RawKeyPress) {
        // The detail is a key code; anything but Escape is dropped here, unseen and unkept.
        const int escape = XKeysymToKeycode(display, XK_Escape);
        if (escape != 0 && detail == escape)
            playKey(Kind::globalKey, KeyEvent{escapeKeyCode, 0});
        return;
    }

    const int button = detail;
    // Raw events carry no position or modifiers: ask the server now.
    Window root = 0, child = 0;
    int rootX = 0, rootY = 0, winX = 0, winY = 0;
    unsigned int state = 0;
    XQueryPointer(display, DefaultRootWindow(display), &root, &child, &rootX, &rootY, &winX, &winY, &state);
    // Like a system-wide monitor, see only what goes to other applications. These raw events come on a
    // connection of their own, so Qt may already have handled the same press (and a click on the bubble
    // hidden it): a press Qt delivered to one of our windows carries the same server time. A release
    // belongs where its press went, so the end of a click on the bubble never looks like the end of a
    // selection somewhere else.
    const QPoint logical = QtScreens::space().deviceToLogical(QPointF(rootX, rootY)).toPoint();
    const bool overOwnWindow = m_localPressTimes.contains(time) || QGuiApplication::topLevelAt(logical);
    if (type == XI_RawButtonPress) {
        if (overOwnWindow)
            m_ownPresses.insert(button);
        else
            m_ownPresses.remove(button);
    }
    const bool pressedInOwnWindow = m_ownPresses.contains(button);
    if (type == XI_RawButtonRelease)
        m_ownPresses.remove(button);
    if (overOwnWindow || pressedInOwnWindow)
        return;

    MouseEvent mouse;
    mouse.modifierFlags = X11KeyMap::modifierFlags(state);
    mouse.location = Coordinates::flipPoint(QPointF(rootX, rootY), X11Connection::rootHeight(display));
    // Buttons 4 to 7 are the wheel; 3 is the right button.
    if (button == 1)
        mouse.button = MouseButton::left;
    else if (button == 2 || button >= 8)
        mouse.button = MouseButton::other;
    else
        return;

    const QPointF at(rootX, rootY);
    if (type == XI_RawButtonPress) {
        m_lastClickCount = m_clicks.press(button, m_elapsed.elapsed(), at);
        m_presses[button] = Press{time, at};
        mouse.clickCount = m_lastClickCount;
        mouse.pressTime = time;
        if (mouse.button == MouseButton::left)
            play(Kind::globalDown, mouse);
    } else if (type == XI_RawButtonRelease) {
        mouse.clickCount = m_lastClickCount;
        if (const auto press = m_presses.find(button); press != m_presses.end()) {
            mouse.pressTime = press->second.time;
            const QPointF moved = at - press->second.at;
            mouse.dragged = std::max(std::abs(moved.x()), std::abs(moved.y())) >
                            QGuiApplication::styleHints()->startDragDistance();
            m_presses.erase(press);
        }
        play(Kind::globalUp, mouse);
    }
}

bool X11EventMonitors::eventFilter(QObject* watched, QEvent* event) {
    // Every event reaches its QWindow before any widget, so looking at windows sees each one once.
    if (!watched->isWindowType())
        return false;
    auto* window = static_cast<QWindow*>(watched);
    if (event->type() == QEvent::MouseButtonPress) {
        // Remembered for the raw press of the same click, which may be read only after this one.
        if (m_localPressTimes.size() >= 16)
            m_localPressTimes.clear();
        m_localPressTimes.insert(static_cast<QMouseEvent*>(event)->timestamp());
    }
    if (event->type() == QEvent::MouseButtonPress &&
        static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton) {
        MouseEvent mouse;
        mouse.windowId = quint64(window->winId());
        play(Kind::localDown, mouse);
    } else if (event->type() == qtKeyPress) {
        const auto* keyEvent = static_cast<QKeyEvent*>(event);
        playKey(Kind::localKey,
                KeyEvent{keyEvent->key() == Qt::Key_Escape ? escapeKeyCode : unknownKeyCode, 0});
    }
    return false;
}
