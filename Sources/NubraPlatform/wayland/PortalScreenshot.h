#pragma once

#include "NubraPlatform/ScreenPicture.h"
#include "NubraPlatform/wayland/Portal.h"

#include <QDBusConnection>

#include <memory>

// The screen as the desktop's Screenshot portal gives it, interactive so that the user may pick a screen,
// a window or an area in the desktop's own dialog. The picture is shown on the screen under the pointer;
// the file the portal wrote for it is read off the main thread and removed, so no picture of the screen
// stays behind.
class PortalScreenshot final : public ScreenPicture {
public:
    explicit PortalScreenshot(const QDBusConnection& bus, const Portal::Deadlines& deadlines = {});
    ~PortalScreenshot() override;

    void take(QObject* context, std::function<void(Result)> done) override;

private:
    QDBusConnection m_bus;
    Portal::Deadlines m_deadlines;
    std::unique_ptr<PortalRequest> m_request;
};
