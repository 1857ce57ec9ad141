#include "NubraPlatform/linux/X11PrimarySelection.h"

#include <QDeadlineTimer>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/Xfixes.h>

#include <poll.h>

#include <memory>

namespace {

struct DisplayCloser {
    void operator()(Display* display) const { XCloseDisplay(display); }
};
using DisplayHandle = std::unique_ptr<Display, DisplayCloser>;

// The next event for `window` of one of the two types, or nothing once the deadline has passed.
std::optional<XEvent> nextEvent(Display* display, Window window, int typeA, int typeB,
                                const QDeadlineTimer& deadline) {
    XEvent event;
    for (;;) {
        while (XPending(display)) {
            XNextEvent(display, &event);
            if (event.xany.window == window && (event.type == typeA || event.type == typeB))
                return event;
        }
        const qint64 left = deadline.remainingTime();
        if (left <= 0)
            return std::nullopt;
        pollfd fd{ConnectionNumber(display), POLLIN, 0};
        if (poll(&fd, 1, int(left)) < 0)
            return std::nullopt;
    }
}

struct PropertyRead {
    Atom type = None;
    QByteArray bytes;
    bool tooBig = false;
};

// Reads and deletes the whole property (8-bit data only; anything else reads as empty).
PropertyRead takeProperty(Display* display, Window window, Atom property) {
    PropertyRead read;
    long offset = 0;
    for (;;) {
        Atom type = None;
        int format = 0;
        unsigned long items = 0, after = 0;
        unsigned char* data = nullptr;
        if (XGetWindowProperty(display, window, property, offset, 64 * 1024, False, AnyPropertyType, &type,
                               &format, &items, &after, &data) != Success)
            break;
        read.type = type;
        if (format == 8 && data)
            read.bytes.append(reinterpret_cast<const char*>(data), qsizetype(items));
        if (data)
            XFree(data);
        if (read.bytes.size() > X11PrimarySelection::maxBytes) {
            read.tooBig = true;
            break;
        }
        if (after == 0 || format != 8)
            break;
        offset += long(items / 4);
    }
    XDeleteProperty(display, window, property);
    XFlush(display);
    return read;
}

// One conversion of PRIMARY to `target`; nothing when the owner refuses, gives too much or is too slow.
std::optional<QByteArray> convert(Display* display, Window window, Atom target,
                                  const QDeadlineTimer& deadline) {
    const Atom property = XInternAtom(display, "NUBRA_SELECTION", False);
    const Atom incr = XInternAtom(display, "INCR", False);
    XConvertSelection(display, XA_PRIMARY, target, property, window, CurrentTime);
    XFlush(display);
    const std::optional<XEvent> notify =
        nextEvent(display, window, SelectionNotify, SelectionNotify, deadline);
    if (!notify || notify->xselection.property == None)
        return std::nullopt;
    PropertyRead first = takeProperty(display, window, property);
    if (first.tooBig)
        return std::nullopt;
    if (first.type != incr)
        return first.bytes;
    // A large selection arrives in chunks: each deletion asks for the next, an empty chunk ends it.
    QByteArray whole;
    for (;;) {
        std::optional<XEvent> change;
        do {
            change = nextEvent(display, window, PropertyNotify, PropertyNotify, deadline);
        } while (change &&
                 (change->xproperty.atom != property || change->xproperty.state != PropertyNewValue));
        if (!change)
            return std::nullopt;
        PropertyRead chunk = takeProperty(display, window, property);
        if (chunk.tooBig || whole.size() + chunk.bytes.size() > X11PrimarySelection::maxBytes)
            return std::nullopt;
        if (chunk.bytes.isEmpty())
            return whole;
        whole += chunk.bytes;
    }
}

} // namespace

X11PrimarySelection::X11PrimarySelection() {
    Display* display = m_watch.display();
    int errorBase = 0;
    if (!display || !XFixesQueryExtension(display, &m_xfixesEventBase, &errorBase)) {
        m_xfixesEventBase = -1;
        return;
    }
    XFixesSelectSelectionInput(display, DefaultRootWindow(display), XA_PRIMARY,
                               XFixesSetSelectionOwnerNotifyMask);
    XFlush(display);
    m_watch.setHandler([this](XEvent& event) {
        if (event.type != m_xfixesEventBase + XFixesSelectionNotify)
            return;
        const auto& notify = reinterpret_cast<const XFixesSelectionNotifyEvent&>(event);
        if (notify.owner != None)
            m_ownerChangedAt = quint64(notify.timestamp);
    });
}

std::optional<quint64> X11PrimarySelection::ownerChangedAt() {
    if (m_xfixesEventBase < 0)
        return std::nullopt;
    return m_ownerChangedAt.load();
}

std::optional<QString> X11PrimarySelection::text() {
    const QDeadlineTimer deadline(readTimeoutMs);
    const DisplayHandle display(XOpenDisplay(nullptr));
    if (!display || XGetSelectionOwner(display.get(), XA_PRIMARY) == None)
        return std::nullopt;
    const Window window =
        XCreateSimpleWindow(display.get(), DefaultRootWindow(display.get()), 0, 0, 1, 1, 0, 0, 0);
    XSelectInput(display.get(), window, PropertyChangeMask);

    std::optional<QString> text;
    if (const auto utf8 =
            convert(display.get(), window, XInternAtom(display.get(), "UTF8_STRING", False), deadline))
        text = QString::fromUtf8(*utf8);
    else if (const auto latin1 = convert(display.get(), window, XA_STRING, deadline))
        text = QString::fromLatin1(*latin1);
    XDestroyWindow(display.get(), window);
    if (!text || text->isEmpty())
        return std::nullopt;
    return text;
}
