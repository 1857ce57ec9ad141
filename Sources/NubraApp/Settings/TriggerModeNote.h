#pragma once

#include "NubraCore/Vocabulary/Models.h"
#include "NubraPlatform/DesktopCapabilities.h"

#include <QString>

// What a trigger mode does on this desktop where that differs from what its name promises (a desktop
// that hides clicks and keys from Nubra in some applications); empty where it works as named.
namespace TriggerModeNote {

QString text(TriggerMode mode, const DesktopCapabilities& capabilities);

// Whether the mode works on this desktop, in a few words for the trigger picker ("works here",
// "X11 applications only", "needs a shortcut").
Capability availability(TriggerMode mode, const DesktopCapabilities& capabilities);

} // namespace TriggerModeNote
