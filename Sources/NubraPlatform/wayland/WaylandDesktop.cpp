#include "NubraPlatform/wayland/WaylandDesktop.h"

WaylandDesktop::WaylandDesktop(const DesktopSession& session)
    : m_capabilities(DesktopCapabilities::forSession(session)) {
    m_accessibility.setSelectionListener(
        [monitors = &m_eventMonitors](const SelectionChange& change) { monitors->post(change); });
    // A Wayland application's selection reaches XWayland's PRIMARY through the window manager, even from
    // an application without accessibility. X11 applications' selections are told by their release.
    // Whether the new owner has text (a deselect leaves it empty) is for the capture to find out: reading
    // it here would keep the main thread waiting on the owner.
    m_primarySelection.setChangeListener([monitors = &m_eventMonitors](bool fromWaylandClient) {
        if (fromWaylandClient)
            monitors->post({SelectionChange::Source::primary, false, std::nullopt});
    });
}

Desktop WaylandDesktop::desktop() {
    return {m_accessibility, m_front,         m_treeless, m_x11,   m_pasteboard, m_primarySelection,
            m_keyboard,      m_eventMonitors, m_hotkeys,  m_clock, m_tasks,      m_capabilities};
}
