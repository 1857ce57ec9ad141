#include "NubraApp/Capture/SessionCapabilities.h"

#include "NubraPlatform/Desktop.h"
#include "NubraPlatform/DesktopShortcuts.h"
#include "NubraPlatform/GlobalHotkeys.h"
#include "NubraPlatform/SyntheticKeyboard.h"

namespace SessionCapabilities {

DesktopCapabilities now(const Desktop& desktop) {
    DesktopCapabilities capabilities = desktop.capabilities;
    if (desktop.hotkeys.desktopBinds().value_or(false))
        capabilities.hotkey = DesktopCapabilities::Hotkey::portal;
    capabilities.desktopShortcutActive = desktop.shortcuts.lastKnownActive().value_or(false);
    using Permission = SyntheticKeyboard::Permission;
    switch (desktop.keyboard.permission()) {
    case Permission::notNeeded:
    case Permission::unavailable:
        break;
    case Permission::granted:
        capabilities.remoteDesktopAllowed = true;
        [[fallthrough]];
    case Permission::off:
    case Permission::asking:
    case Permission::refused:
    case Permission::failed:
        capabilities.copy = DesktopCapabilities::Copy::remoteDesktop;
        break;
    }
    return capabilities;
}

} // namespace SessionCapabilities
