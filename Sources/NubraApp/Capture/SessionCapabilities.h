#pragma once

#include "NubraPlatform/DesktopCapabilities.h"

struct Desktop;

// What capture can do in this session as of now: the capabilities read at start-up, with what has been
// learnt since — whether the desktop binds the hot key itself (its portal answers after start-up) and
// how the copy through the desktop's remote control stands.
namespace SessionCapabilities {

DesktopCapabilities now(const Desktop& desktop);

} // namespace SessionCapabilities
