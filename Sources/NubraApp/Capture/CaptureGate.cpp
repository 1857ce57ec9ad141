#include "NubraApp/Capture/CaptureGate.h"

#include "NubraApp/Capture/SelectionService.h"
#include "NubraCore/Capture/SelectionGate.h"
#include "NubraPlatform/FrontApplications.h"

namespace CaptureGate {

std::function<bool()> standard(std::function<bool()> paused, std::function<QSet<QString>()> excludedApps,
                               FrontApplications& frontApplications, SelectionService& service) {
    return
        [paused = std::move(paused), excludedApps = std::move(excludedApps), &frontApplications, &service]() {
            const bool isPaused = paused();
            const std::optional<FrontApp> front = frontApplications.frontmost();
            const std::optional<QString> id = front ? front->identifier : std::nullopt;
            const QSet<QString> excluded = excludedApps();
            // The secure-field probe talks to another process; skip it when the answer is already no.
            if (!SelectionGate::shouldCapture(isPaused, id, excluded, false))
                return false;
            return SelectionGate::shouldCapture(isPaused, id, excluded, service.isSecureInputActive());
        };
}

} // namespace CaptureGate
