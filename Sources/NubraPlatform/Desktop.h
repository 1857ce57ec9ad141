#pragma once

class Accessibility;
struct DesktopCapabilities;
class Clock;
class DesktopShortcuts;
class EventMonitors;
class FrontApplications;
class GlobalHotkeys;
class Pasteboard;
class PrimarySelection;
class ScreenGeometry;
class ScreenPicture;
class SyntheticKeyboard;
class TaskRunner;
class TreelessApplications;

// The desktop services capture uses, gathered so that the reader, the monitor and the hot-key
// manager are written once and run on the simulated desktop in tests and the real one in the product.
struct Desktop {
    Accessibility& accessibility;
    FrontApplications& frontApplications;
    TreelessApplications& treelessApplications;
    ScreenGeometry& screen;
    Pasteboard& pasteboard;
    PrimarySelection& primarySelection;
    SyntheticKeyboard& keyboard;
    EventMonitors& eventMonitors;
    GlobalHotkeys& hotkeys;
    DesktopShortcuts& shortcuts; // where the desktop runs the lookup on a key of its own
    Clock& clock;
    TaskRunner& tasks;
    const DesktopCapabilities& capabilities;
    ScreenPicture& screenPicture; // the screen frozen for marking an area to read
};
