#pragma once

// Whether a compositing manager runs on the application's X screen. Only then do translucent windows
// show what lies beneath; without one their transparent pixels come out black, so windows with
// rounded shapes paint an opaque background instead. Main thread only; false off X11.
namespace X11Compositor {

bool isRunning();

} // namespace X11Compositor
