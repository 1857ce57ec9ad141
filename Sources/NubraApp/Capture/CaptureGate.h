#pragma once

#include <QSet>
#include <QString>

#include <functional>

class FrontApplications;
class SelectionService;

// The standard wiring of the capture gate that both starters of the selection monitor use.
namespace CaptureGate {

// Asks SelectionGate with the live pause flag, the front application's identifier, the exclusion set and,
// last and only when still needed, the secure-field probe.
std::function<bool()> standard(std::function<bool()> paused, std::function<QSet<QString>()> excludedApps,
                               FrontApplications& frontApplications, SelectionService& service);

} // namespace CaptureGate
