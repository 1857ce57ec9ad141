"""A headless KDE Plasma compositor (KWin 5.27, `kwin_wayland --virtual`) for the Wayland end-to-end tests.

`KWin` starts, once per suite: a private runtime folder and session bus with the accessibility bus on,
then KWin with XWayland on that bus (its scripting interface lives there), and hands out the environment
a Plasma session gives its clients. KWin runs as whoever runs the tests, root included. Debian installs
kwin_wayland with a file capability (CAP_SYS_RESOURCE) that exec refuses where the capability bounding
set lacks it (containers): a copy without it, still named kwin_wayland, runs the same. Exits with 77
(skipped) when KWin or XWayland are missing or KWin does not start.
"""
import os
import shutil
import subprocess

from desktop_kit import SCREEN_H, SCREEN_W, check, home_env, poll, skip
from wayland_kit import HeadlessCompositor, _read

SOCKET = "nubra-kwin"


class KWin(HeadlessCompositor):
    tools = ("kwin_wayland", "Xwayland", "dbus-daemon", "gdbus")

    def _start(self):
        runtime = self._private_dir("nubra-kwin-")
        home = os.path.join(runtime, "home")
        os.makedirs(home)
        # The session variables startplasma sets, by which Nubra knows the desktop.
        self.env = dict(os.environ, XDG_RUNTIME_DIR=runtime, XDG_SESSION_TYPE="wayland", XDG_CURRENT_DESKTOP="KDE",
                        KDE_FULL_SESSION="true", KDE_SESSION_VERSION="5", **home_env(home))
        for name in ("DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "DBUS_SESSION_BUS_ADDRESS", "QT_QPA_PLATFORM",
                     "GDK_BACKEND", "SWAYSOCK", "I3SOCK", "HYPRLAND_INSTANCE_SIGNATURE"):
            self.env.pop(name, None)
        self._start_session_bus()

        kwin = os.path.join(runtime, "kwin_wayland")
        shutil.copy(shutil.which("kwin_wayland"), kwin)
        # KWin starts XWayland when it is ready and gives its display to the applications it starts.
        display_file = os.path.join(runtime, "display")
        tell_display = os.path.join(runtime, "tell-display")
        with open(tell_display, "w", encoding="utf-8") as f:
            f.write(f'#!/bin/sh\necho "$DISPLAY" > {display_file}.part && mv {display_file}.part {display_file}\n')
        os.chmod(tell_display, 0o700)
        log = os.path.join(self.artifacts, "kwin.log")
        self.compositor = self.spawn([kwin, "--virtual", "--xwayland", "--no-lockscreen", "--no-kactivities",
                                      "--socket", SOCKET, "--width", str(SCREEN_W), "--height", str(SCREEN_H),
                                      tell_display], stderr=log)

        def ready():
            if self.compositor.poll() is not None:
                skip(f"KWin did not start (see {log})")
            return _read(display_file)

        self.env["DISPLAY"] = poll("KWin's XWayland", ready, 30)
        self.env["WAYLAND_DISPLAY"] = SOCKET

    def run_script(self, name, source):
        """Has KWin run a script (JavaScript, KWin's scripting API); it stays loaded, under `name`."""
        path = os.path.join(self.env["XDG_RUNTIME_DIR"], f"{name}.js")
        with open(path, "w", encoding="utf-8") as f:
            f.write(source)
        loaded = self._call("/Scripting", "org.kde.kwin.Scripting.loadScript", path, name)
        number = loaded.strip("(,)\n")
        self._call(f"/{number}", "org.kde.kwin.Script.run")  # where KWin 5 puts a loaded script

    def _call(self, path, method, *args):
        done = subprocess.run(["gdbus", "call", "--session", "--dest", "org.kde.KWin", "--object-path", path,
                               "--method", method, *args], env=self.env, capture_output=True, text=True, timeout=10)
        check(done.returncode == 0, f"KWin's {method} failed: {done.stderr.strip()}")
        return done.stdout
