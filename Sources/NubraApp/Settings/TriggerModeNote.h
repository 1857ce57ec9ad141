#pragma once

#include "NubraCore/Vocabulary/Models.h"
#include "NubraPlatform/DesktopCapabilities.h"

#include <QString>

// What a trigger mode does on this desktop where that differs from what its name promises (a desktop
// that hides clicks and keys from Nubra in some applications); empty where it works as named.
namespace TriggerModeNote {

QString text(TriggerMode mode, const DesktopCapabilities& capabilities);

} // namespace TriggerModeNote
