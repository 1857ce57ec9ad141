#pragma once

#include "NubraPlatform/ScreenSpace.h"

// The screens as Qt sees them now, the primary one first. Main thread only.
namespace QtScreens {
ScreenSpace space();
} // namespace QtScreens
