#pragma once

class HotkeyManager;
class TrustWatcher;
struct Desktop;

// What windows use of the running application beyond its state: the desktop, the two hot keys and the
// accessibility trust. The application owns them; windows hold references for as long as they live.
struct AppServices {
    Desktop& desktop;
    HotkeyManager& hotkeys;
    HotkeyManager& screenTextHotkeys;
    TrustWatcher& trust;
};
