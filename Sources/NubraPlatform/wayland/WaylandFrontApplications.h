#pragma once

#include "NubraPlatform/FrontApplications.h"

class AtspiAccessibility;
class DesktopEntryNames;
class X11Desktop;

// The application in front on Wayland: the active X11 window when an X11 application has focus (as on
// X11), otherwise the application accessibility last saw focus or a selection in; Wayland does not tell
// other clients which window is active.
class WaylandFrontApplications final : public FrontApplications {
public:
    WaylandFrontApplications(X11Desktop& x11, AtspiAccessibility& accessibility, DesktopEntryNames& names)
        : m_x11(x11), m_accessibility(accessibility), m_names(names) {}

    std::optional<FrontApp> frontmost() override;

private:
    X11Desktop& m_x11;
    AtspiAccessibility& m_accessibility;
    DesktopEntryNames& m_names;
};
