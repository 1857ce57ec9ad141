#pragma once

#include <QSet>
#include <QString>

#include <functional>

class FrontApplications;

// The standard wiring of the capture gate that both starters of the selection monitor use.
namespace CaptureGate {

// Asks SelectionGate with the live pause flag, the front application's identifier and the exclusion set,
// on the main thread. The password-field probe talks to another application and may wait for it, so
// the selection monitor asks it on the reading thread, just before the read (the gate's last question).
std::function<bool()> standard(std::function<bool()> paused, std::function<QSet<QString>()> excludedApps,
                               FrontApplications& frontApplications);

} // namespace CaptureGate
