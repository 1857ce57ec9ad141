#include "NubraPlatform/linux/X11SelectionReader.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <poll.h>

struct X11SelectionReader::Connection {
    Display* display = nullptr;
    Window window = 0;
    Atom selection = None;
    Atom property = None;
    Atom incr = None;
};

namespace {

// The next event for `window` of `type`, or nothing once the deadline has passed.
std::optional<XEvent> nextEvent(Display* display, Window window, int type, const QDeadlineTimer& deadline) {
    XEvent event;
    for (;;) {
        while (XPending(display)) {
            XNextEvent(display, &event);
            if (event.xany.window == window && event.type == type)
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

struct Property {
    Atom type = None;
    int format = 0;
    QByteArray bytes; // 8-bit data as is; 32-bit items as one long each
    bool tooBig = false;
};

// Reads and deletes the whole property, refusing to hold more than `maxBytes`.
Property takeProperty(Display* display, Window window, Atom property, qsizetype maxBytes) {
    Property read;
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
        read.format = format;
        const qsizetype itemBytes = format == 8    ? 1
                                    : format == 16 ? qsizetype(sizeof(short))
                                                   : qsizetype(sizeof(long));
        if (data)
            read.bytes.append(reinterpret_cast<const char*>(data), qsizetype(items) * itemBytes);
        if (data)
            XFree(data);
        if (read.bytes.size() > maxBytes) {
            read.tooBig = true;
            break;
        }
        if (after == 0)
            break;
        offset += long(items * (format == 8 ? 1 : format == 16 ? 2 : 4) / 4);
    }
    XDeleteProperty(display, window, property);
    XFlush(display);
    return read;
}

} // namespace

X11SelectionReader::X11SelectionReader(const char* selection, int timeoutMs)
    : m_connection(std::make_unique<Connection>()), m_deadline(timeoutMs) {
    Connection& c = *m_connection;
    c.display = XOpenDisplay(nullptr);
    if (!c.display)
        return;
    c.selection = XInternAtom(c.display, selection, False);
    c.property = XInternAtom(c.display, "NUBRA_SELECTION", False);
    c.incr = XInternAtom(c.display, "INCR", False);
    c.window = XCreateSimpleWindow(c.display, DefaultRootWindow(c.display), 0, 0, 1, 1, 0, 0, 0);
    XSelectInput(c.display, c.window, PropertyChangeMask);
}

X11SelectionReader::~X11SelectionReader() {
    if (m_connection->display) {
        XDestroyWindow(m_connection->display, m_connection->window);
        XCloseDisplay(m_connection->display);
    }
}

bool X11SelectionReader::hasOwner() const {
    return m_connection->display &&
           XGetSelectionOwner(m_connection->display, m_connection->selection) != None;
}

X11SelectionReader::Read X11SelectionReader::read(const QByteArray& target, qsizetype maxBytes) {
    Connection& c = *m_connection;
    if (!c.display)
        return {};
    XConvertSelection(c.display, c.selection, XInternAtom(c.display, target.constData(), False), c.property,
                      c.window, CurrentTime);
    XFlush(c.display);
    const std::optional<XEvent> notify = nextEvent(c.display, c.window, SelectionNotify, m_deadline);
    if (!notify)
        return {};
    if (notify->xselection.property == None)
        return {Outcome::refused, {}};
    Property first = takeProperty(c.display, c.window, c.property, maxBytes);
    if (first.tooBig)
        return {};
    if (first.type != c.incr)
        return {Outcome::ok, first.bytes};
    // A large selection arrives in chunks: each deletion asks for the next, an empty chunk ends it.
    QByteArray whole;
    for (;;) {
        std::optional<XEvent> change;
        do {
            change = nextEvent(c.display, c.window, PropertyNotify, m_deadline);
        } while (change &&
                 (change->xproperty.atom != c.property || change->xproperty.state != PropertyNewValue));
        if (!change)
            return {};
        Property chunk = takeProperty(c.display, c.window, c.property, maxBytes - whole.size());
        if (chunk.tooBig)
            return {};
        if (chunk.bytes.isEmpty())
            return {Outcome::ok, whole};
        whole += chunk.bytes;
    }
}

std::optional<QStringList> X11SelectionReader::targets() {
    const Read read = this->read("TARGETS", 64 * 1024);
    if (read.outcome != Outcome::ok)
        return std::nullopt;
    QStringList names;
    const auto* atoms = reinterpret_cast<const long*>(read.bytes.constData());
    for (qsizetype i = 0; i < read.bytes.size() / qsizetype(sizeof(long)); ++i) {
        char* name = XGetAtomName(m_connection->display, Atom(atoms[i]));
        if (!name)
            continue;
        names << QString::fromLatin1(name);
        XFree(name);
    }
    return names;
}
