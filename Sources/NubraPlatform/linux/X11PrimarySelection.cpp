#include "NubraPlatform/linux/X11PrimarySelection.h"

#include "NubraPlatform/linux/X11SelectionReader.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/Xfixes.h>

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
