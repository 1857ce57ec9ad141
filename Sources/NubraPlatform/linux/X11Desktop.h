#pragma once

#include "NubraPlatform/FrontApplications.h"
#include "NubraPlatform/ScreenGeometry.h"
#include "NubraPlatform/linux/DesktopEntryNames.h"

#include <QRect>

#include <mutex>

typedef struct _XDisplay Display;

// Front application and screen facts read from X11 on a private connection; safe from any thread.
class X11Desktop final : public FrontApplications, public ScreenGeometry {
public:
    // `entryNames` must outlive this object.
    explicit X11Desktop(DesktopEntryNames& entryNames);
    ~X11Desktop() override;

    std::optional<FrontApp> frontmost() override;
    double primaryScreenHeight() override;
    ScreenSpace screens() override;
    QPointF mouseLocation() override;

    // The screen rectangle of the active window's inside, in device pixels.
    std::optional<QRect> activeWindowRect();

private:
    unsigned long activeWindow();

    std::mutex m_lock;
    Display* m_display = nullptr;
    DesktopEntryNames& m_entryNames;
};
