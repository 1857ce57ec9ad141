#pragma once

#include "NubraPlatform/FrontApplications.h"

class CompositorWindows;
class DesktopEntryNames;

// The application in front as the compositor's IPC names it (sway, Hyprland): the only source that
// knows a Wayland window nobody reads through accessibility, such as a terminal, into which no
// synthetic Control+C may go. Falls back to `other` where the compositor tells nothing.
class CompositorFrontApplications final : public FrontApplications {
public:
    CompositorFrontApplications(const CompositorWindows& windows, DesktopEntryNames& names,
                                FrontApplications& other)
        : m_windows(windows), m_names(names), m_other(other) {}

    std::optional<FrontApp> frontmost() override;

private:
    const CompositorWindows& m_windows;
    DesktopEntryNames& m_names;
    FrontApplications& m_other;
};
