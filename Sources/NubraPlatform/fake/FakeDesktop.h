#pragma once

#include "NubraCore/Capture/Pasteboard.h"
#include "NubraPlatform/Desktop.h"
#include "NubraPlatform/DesktopCapabilities.h"
#include "NubraPlatform/FrontApplications.h"
#include "NubraPlatform/PrimarySelection.h"
#include "NubraPlatform/ScreenGeometry.h"
#include "NubraPlatform/TreelessApplications.h"
#include "NubraPlatform/fake/FakeAccessibility.h"
#include "NubraPlatform/fake/FakeClock.h"
#include "NubraPlatform/fake/FakeDesktopShortcuts.h"
#include "NubraPlatform/fake/FakeEventMonitors.h"
#include "NubraPlatform/fake/FakeGlobalHotkeys.h"
#include "NubraPlatform/fake/FakeKeyboard.h"
#include "NubraPlatform/fake/FakeScreenPicture.h"
#include "NubraPlatform/fake/FakeTaskRunner.h"

class FakeFrontApplications final : public FrontApplications {
public:
    std::optional<FrontApp> front;
    std::optional<FrontApp> frontmost() override { return front; }
};

class FakeTreelessApplications final : public TreelessApplications {
public:
    QList<TreelessApp> apps;
    int scans = 0;
    QList<TreelessApp> running() override;
    std::optional<TreelessApp> application(qint64 processId) override;
};

class FakePrimarySelection final : public PrimarySelection {
public:
    std::optional<QString> current;
    int reads = 0;
    std::optional<quint64> ownerChange = 0;
    std::optional<QString> text() override;
    std::optional<quint64> ownerChangedAt() override { return ownerChange; }
};

class FakeScreen final : public ScreenGeometry {
public:
    // One 1440 x 900 screen whose top 25 pixels are taken by a panel.
    QList<ScreenInfo> screenList{{QRect(0, 0, 1440, 900), QRect(0, 25, 1440, 875), 1}};
    QPointF mouse{100, 100};

    double primaryScreenHeight() override { return screens().deviceHeight(); }
    ScreenSpace screens() override { return ScreenSpace(screenList); }
    QPointF mouseLocation() override { return mouse; }
};

// A whole simulated desktop: every service in memory, one fake clock, queued work.
struct FakeDesktop {
    FakeAccessibility accessibility;
    FakeFrontApplications frontApplications;
    FakeTreelessApplications treeless;
    FakeScreen screen;
    InMemoryPasteboard pasteboard;
    FakePrimarySelection primarySelection;
    FakeKeyboard keyboard{pasteboard};
    FakeEventMonitors eventMonitors;
    FakeGlobalHotkeys hotkeys;
    FakeDesktopShortcuts shortcuts;
    FakeClock clock;
    FakeTaskRunner tasks;
    FakeScreenPicture screenPicture;
    DesktopCapabilities capabilities =
        DesktopCapabilities::forSession({DesktopSession::Kind::x11, DesktopSession::Family::x11, {}});

    Desktop desktop();
};
