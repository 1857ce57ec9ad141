#include "NubraPlatform/fake/FakeDesktop.h"

std::optional<QString> FakePrimarySelection::text() {
    ++reads;
    return current;
}

Desktop FakeDesktop::desktop() {
    return {accessibility, frontApplications, screen,  pasteboard, primarySelection,
            keyboard,      eventMonitors,     hotkeys, clock,      tasks};
}
