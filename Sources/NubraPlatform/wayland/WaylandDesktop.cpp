#include "NubraPlatform/wayland/WaylandDesktop.h"

WaylandDesktop::WaylandDesktop(const DesktopSession& session)
    : m_capabilities(DesktopCapabilities::forSession(session)) {
    m_accessibility.setSelectionListener(
        [monitors = &m_eventMonitors](const SelectionChange& change) { monitors->post(change); });
}

Desktop WaylandDesktop::desktop() {
    return {m_accessibility, m_front,         m_treeless, m_x11,   m_pasteboard, m_primarySelection,
            m_keyboard,      m_eventMonitors, m_hotkeys,  m_clock, m_tasks,      m_capabilities};
}
