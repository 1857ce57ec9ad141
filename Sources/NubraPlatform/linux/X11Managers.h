#pragma once

// Which managers run on the application's X screen, from the selections they own (EWMH and the system
// tray convention). Main thread only; false off X11.
namespace X11Managers {

// A compositing manager (_NET_WM_CM_S<screen>). Only then do translucent windows show what lies beneath;
// without one their transparent pixels come out black, so rounded windows paint an opaque background.
bool compositorRunning();

// An XEmbed system tray (_NET_SYSTEM_TRAY_S<screen>).
bool systemTrayRunning();

} // namespace X11Managers
