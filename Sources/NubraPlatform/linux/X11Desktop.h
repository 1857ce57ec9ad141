#pragma once

#include "NubraPlatform/FrontApplications.h"
#include "NubraPlatform/ScreenGeometry.h"
#include "NubraPlatform/linux/DesktopEntryNames.h"

#include <QElapsedTimer>
#include <QRect>
#include <QSet>

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

    // Whether the process shows a top-level X11 window (_NET_CLIENT_LIST, _NET_WM_PID). The list is
    // read again at most every `clientListTtlMs`, so that a run of reads costs one walk over it.
    static constexpr int clientListTtlMs = 1000;
    bool showsWindowOf(qint64 processId);

private:
    unsigned long activeWindow();

    std::mutex m_lock;
    Display* m_display = nullptr;
    QSet<qint64> m_clientProcesses;
    QElapsedTimer m_clientProcessesRead;
    DesktopEntryNames& m_entryNames;
};
