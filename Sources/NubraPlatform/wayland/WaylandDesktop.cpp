#include "NubraPlatform/wayland/WaylandDesktop.h"

#include "NubraPlatform/wayland/GnomeShortcuts.h"
#include "NubraPlatform/wayland/HyprlandShortcuts.h"
#include "NubraPlatform/wayland/SwayShortcuts.h"

#include <QCoreApplication>

namespace {

// Where the hot key cannot be grabbed for Wayland applications, the compositor runs the lookup on a
// binding of its own: GNOME's custom shortcuts, or a line of sway's or Hyprland's configuration.
std::unique_ptr<DesktopShortcuts> shortcutsFor(const DesktopSession& session) {
    const QString program = QCoreApplication::applicationFilePath();
    std::unique_ptr<BlockingShortcuts> settings;
    const QString swaySocket = qEnvironmentVariable("SWAYSOCK");
    if (session.family == DesktopSession::Family::gnome && GnomeShortcuts::available())
        settings = std::make_unique<GnomeShortcuts>(program);
    else if (session.compositor == u"sway" && !swaySocket.isEmpty())
        settings = std::make_unique<SwayShortcuts>(program, swaySocket);
    else if (session.compositor == u"Hyprland")
        settings = std::make_unique<HyprlandShortcuts>(program, CompositorWindows::hyprlandSocket());
    if (!settings)
        return std::make_unique<NoDesktopShortcuts>();
    return std::make_unique<DesktopShortcutsThread>(std::move(settings));
}

} // namespace

WaylandDesktop::WaylandDesktop(const DesktopSession& session)
    : m_capabilities(DesktopCapabilities::forSession(session, m_wayland.globals())),
      m_shortcuts(shortcutsFor(session)) {
    m_accessibility.setSelectionListener(
        [monitors = &m_eventMonitors](const SelectionChange& change) { monitors->post(change); });
    if (m_capabilities.primary == DesktopCapabilities::Primary::dataControl) {
        m_dataControlPrimary.setChangeListener([monitors = &m_eventMonitors](bool cleared) {
            monitors->post({SelectionChange::Source::primary, cleared, std::nullopt});
        });
    }
    // Mutter hands a Wayland application's selection to XWayland's PRIMARY, even from an application
    // without accessibility. X11 applications' selections are told by their release. Whether the new
    // owner has text (a deselect leaves it empty) is for the capture to find out: reading it here would
    // keep the main thread waiting on the owner.
    if (m_capabilities.primary == DesktopCapabilities::Primary::xwaylandBridge) {
        m_primarySelection.setChangeListener([monitors = &m_eventMonitors](bool fromWaylandClient) {
            if (fromWaylandClient)
                monitors->post({SelectionChange::Source::primary, false, std::nullopt});
        });
    }
}

WaylandDesktop::~WaylandDesktop() {
    // The connection outlives the monitors the listener posts to.
    m_dataControlPrimary.setChangeListener({});
}

std::function<std::optional<QRect>()> WaylandDesktop::compositorWindow() {
    if (m_capabilities.placement != DesktopCapabilities::Placement::compositorOrigin)
        return {};
    return [this] { return m_compositorWindows.focusedWindowRect(); };
}

Desktop WaylandDesktop::desktop() {
    // Qt's clipboard on XWayland sees Wayland applications' clipboards only on some compositors;
    // data-control sees them all, X11 applications' included.
    const bool dataControl = m_capabilities.primary == DesktopCapabilities::Primary::dataControl;
    Pasteboard& pasteboard = dataControl ? static_cast<Pasteboard&>(m_dataControlPasteboard) : m_pasteboard;
    PrimarySelection& primary =
        dataControl ? static_cast<PrimarySelection&>(m_dataControlPrimary) : m_primarySelection;
    // X11 still names its last active window while a Wayland one has focus: the compositor knows.
    FrontApplications& front = m_capabilities.placement == DesktopCapabilities::Placement::compositorOrigin
                                   ? static_cast<FrontApplications&>(m_compositorFront)
                                   : m_front;
    SyntheticKeyboard& keyboard = m_capabilities.copy == DesktopCapabilities::Copy::virtualKeyboard
                                      ? static_cast<SyntheticKeyboard&>(m_virtualKeyboard)
                                      : m_portalKeyboard;
    return {m_accessibility, front,    m_treeless,      m_x11,           pasteboard,
            primary,         keyboard, m_eventMonitors, m_portalHotkeys, *m_shortcuts,
            m_clock,         m_tasks,  m_capabilities,  m_screenshot};
}
