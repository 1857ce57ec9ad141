#include "NubraApp/Capture/CaptureGate.h"

#include "NubraCore/Capture/SelectionGate.h"
#include "NubraPlatform/FrontApplications.h"

namespace CaptureGate {

std::function<bool()> standard(std::function<bool()> paused, std::function<QSet<QString>()> excludedApps,
                               FrontApplications& frontApplications) {
    return [paused = std::move(paused), excludedApps = std::move(excludedApps), &frontApplications]() {
        const std::optional<FrontApp> front = frontApplications.frontmost();
        return SelectionGate::shouldCapture(paused(), front ? front->identifier : std::nullopt, excludedApps(),
                                            false);
    };
}

} // namespace CaptureGate
