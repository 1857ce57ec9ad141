#pragma once

#include "NubraPlatform/Accessibility.h"
#include "NubraPlatform/EventMonitors.h"
#include "NubraPlatform/linux/AtspiTextNode.h"

#include <functional>
#include <memory>

class AtspiThread;

// What the session tells of the windows text is shown in, asked for each focused element.
struct AtspiWindows {
    // The screen rectangle of the active X11 window's inside.
    std::function<std::optional<QRect>()> activeX11Window;
    // On a Wayland session: whether a process shows an X11 (XWayland) window. Unset on an X11 session,
    // where every window is one.
    std::function<bool(qint64 processId)> showsX11Window;
    // The focused native Wayland window's rectangle, where the compositor tells it (sway, Hyprland);
    // unset where it does not (GNOME).
    std::function<std::optional<QRect>()> focusedWaylandWindow;

    // The window an element of `processId` is in. On a Wayland session an element of unknown process is
    // taken for a Wayland one: better no rectangle than one counted from the wrong place.
    AtspiTextNode::Window windowOf(std::optional<qint64> processId) const;
};

// The accessibility service over AT-SPI 2. All libatspi calls run on one thread of its own with its own
// GLib context (libatspi is not thread-safe); callers wait for each answer at most `callTimeoutMs`, and
// libatspi's own D-Bus timeout is kept short, so a hung application cannot stall capture.
class AtspiAccessibility final : public Accessibility {
public:
    static constexpr int dbusTimeoutMs = 300;
    static constexpr int callTimeoutMs = 400;

    explicit AtspiAccessibility(AtspiWindows windows);
    ~AtspiAccessibility() override;

    bool isTrusted() override;
    bool enableApplication(qint64 processId) override;
    FocusQuery focusedElement() override;
    void openSettings() override;

    // See AtspiThread: selection changes in other applications, told on the AT-SPI thread.
    void setSelectionListener(std::function<void(const SelectionChange&)> listener);
    // The process id and AT-SPI name of the application the user last worked in.
    std::optional<std::pair<qint64, QString>> focusedApplication();

private:
    std::shared_ptr<AtspiThread> m_thread;
    AtspiWindows m_windows;
};
