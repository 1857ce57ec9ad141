#include "NubraPlatform/fake/FakeDesktop.h"

std::optional<QString> FakePrimarySelection::text() {
    ++reads;
    return current;
}

QList<TreelessApp> FakeTreelessApplications::running() {
    ++scans;
    return apps;
}

std::optional<TreelessApp> FakeTreelessApplications::application(qint64 processId) {
    for (const TreelessApp& app : std::as_const(apps)) {
        if (app.processId == processId)
            return app;
    }
    return std::nullopt;
}

Desktop FakeDesktop::desktop() {
    return {accessibility, frontApplications, treeless,  screen, pasteboard, primarySelection, keyboard,
            eventMonitors, hotkeys,           shortcuts, clock,  tasks,      capabilities,     screenPicture};
}
