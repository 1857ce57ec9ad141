#include "NubraPlatform/linux/X11Connection.h"

#include <QSocketNotifier>

#include <X11/Xlib.h>

#include <atomic>

namespace {
std::atomic<int> lastError = 0;

int recordError(Display*, XErrorEvent* event) {
    lastError = event->error_code;
    return 0;
}
} // namespace

X11Connection::X11Connection() {
    m_display = XOpenDisplay(nullptr);
    if (!m_display)
        return;
    m_notifier = new QSocketNotifier(ConnectionNumber(m_display), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this]() { drain(); });
}

X11Connection::~X11Connection() {
    if (m_display)
        XCloseDisplay(m_display);
}

void X11Connection::drain() {
    while (XPending(m_display)) {
        XEvent event;
        XNextEvent(m_display, &event);
        if (m_handler)
            m_handler(event);
    }
}

void X11Connection::keepRunningOnErrors() {
    XSetErrorHandler(recordError);
}

int X11Connection::rootHeight(Display* display) {
    Window root = 0;
    int x = 0, y = 0;
    unsigned int width = 0, height = 0, border = 0, depth = 0;
    if (!XGetGeometry(display, DefaultRootWindow(display), &root, &x, &y, &width, &height, &border, &depth))
        return DisplayHeight(display, DefaultScreen(display));
    return int(height);
}

QByteArray X11Connection::property(Display* display, unsigned long window, const char* name,
                                   unsigned long type) {
    Atom actualType = 0;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    const Atom atom = XInternAtom(display, name, True);
    if (atom == None ||
        XGetWindowProperty(display, window, atom, 0, 1024, False, type, &actualType, &format, &count, &after,
                           &data) != Success ||
        !data)
        return {};
    const QByteArray bytes(reinterpret_cast<const char*>(data),
                           int(count * (format == 32 ? sizeof(long) : format / 8)));
    XFree(data);
    return bytes;
}

int X11Connection::trapErrors(const std::function<void()>& request) {
    XSync(m_display, False);
    lastError = 0;
    auto* previous = XSetErrorHandler(recordError);
    request();
    XSync(m_display, False);
    XSetErrorHandler(previous);
    return lastError.exchange(0);
}
