#include "NubraPlatform/linux/X11PrimarySelection.h"

#include "NubraPlatform/linux/X11SelectionReader.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/XRes.h>
#include <X11/extensions/Xfixes.h>

namespace {

// The first window a window property names, 0 when none.
Window windowIn(const QByteArray& property) {
    return property.size() >= qsizetype(sizeof(long)) ? *reinterpret_cast<const Window*>(property.constData())
                                                      : 0;
}

// The resource base of the X client that created `window`, 0 when the server cannot tell.
XID clientOf(Display* display, Window window) {
    XResClientIdSpec asked{window, XRES_CLIENT_ID_XID_MASK};
    long count = 0;
    XResClientIdValue* values = nullptr;
    XID client = 0;
    // Each answer begins with the client it names (a standard-layout struct's first member).
    if (XResQueryClientIds(display, 1, &asked, &count, &values) == Success && count > 0)
        client = reinterpret_cast<const XResClientIdSpec*>(&values[0])->client;
    XResClientIdsDestroy(count, values);
    return client;
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
        if (notify.owner == None)
            return;
        m_ownerChangedAt = quint64(notify.timestamp);
        if (m_listener)
            m_listener(ownedByWindowManager(notify.owner));
    });
}

void X11PrimarySelection::setChangeListener(std::function<void(bool fromWaylandClient)> listener) {
    m_listener = std::move(listener);
}

bool X11PrimarySelection::ownedByWindowManager(unsigned long owner) {
    Display* display = m_watch.display();
    const Window root = DefaultRootWindow(display);
    const Window manager =
        windowIn(X11Connection::property(display, root, "_NET_SUPPORTING_WM_CHECK", XA_WINDOW));
    int eventBase = 0;
    int errorBase = 0;
    if (manager != 0 && XResQueryExtension(display, &eventBase, &errorBase)) {
        const XID client = clientOf(display, owner);
        return client != 0 && client == clientOf(display, manager);
    }
    // Without X-Resource: the bridge takes PRIMARY for a Wayland window, and then no X11 window is active.
    return windowIn(X11Connection::property(display, root, "_NET_ACTIVE_WINDOW", XA_WINDOW)) == 0;
}

std::optional<quint64> X11PrimarySelection::ownerChangedAt() {
    if (m_xfixesEventBase < 0)
        return std::nullopt;
    return m_ownerChangedAt.load();
}

std::optional<QString> X11PrimarySelection::text() {
    X11SelectionReader reader("PRIMARY", readTimeoutMs);
    if (!reader.hasOwner())
        return std::nullopt;
    std::optional<QString> text;
    if (const auto utf8 = reader.read("UTF8_STRING", maxBytes);
        utf8.outcome == X11SelectionReader::Outcome::ok)
        text = QString::fromUtf8(utf8.bytes);
    else if (const auto latin1 = reader.read("STRING", maxBytes);
             latin1.outcome == X11SelectionReader::Outcome::ok)
        text = QString::fromLatin1(latin1.bytes);
    if (!text || text->isEmpty())
        return std::nullopt;
    return text;
}
