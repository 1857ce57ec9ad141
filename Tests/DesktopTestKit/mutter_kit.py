"""A headless GNOME desktop for the Wayland tests: mutter as Wayland compositor with XWayland, in a
private runtime folder and D-Bus session, with the accessibility bus switched on before any application.

A test script calls `run(body)`: the outer process starts `dbus-run-session -- mutter --headless
--wayland --virtual-monitor WxH -- python3 <script>`; mutter runs the script again inside, with
WAYLAND_DISPLAY, DISPLAY and XAUTHORITY set, and the inner one calls `body(desktop, remote)`. Keys go
in through mutter's own RemoteDesktop interface (what the RemoteDesktop portal drives underneath). With
PipeWire and WirePlumber installed, a screen cast of the virtual monitor tied to that session gives
pictures of the screen and clicks at a place on it; without them the tests run blind.
Exits with 77 (skipped) when the desktop cannot be made.
"""
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from desktop_kit import SCREEN_H, SCREEN_W, SKIP, Desktop, Failure, home_env, poll, skip, start_accessibility_bus

# The interpreter with the GObject and D-Bus bindings of the distribution.
SYSTEM_PYTHON = "/usr/bin/python3"
RUN_TIMEOUT = 200

# Linux input event codes, as RemoteDesktop takes them.
KEY = {"shift": 42, "ctrl": 29, "super": 125, "left": 105, "right": 106, "up": 103, "down": 108, "home": 102,
       "end": 107, "c": 46}
BUTTON_LEFT = 0x110


class RemoteInput:
    """A RemoteDesktop session of mutter: a virtual keyboard and pointer of the seat, and, where PipeWire
    runs, a screen cast of the monitor for pictures and clicks."""

    def __init__(self, desktop):
        import dbus  # only the inner interpreter has it
        from dbus.mainloop.glib import DBusGMainLoop
        DBusGMainLoop(set_as_default=True)  # for the screen cast's signal
        self._dbus = dbus
        self._bus = dbus.SessionBus()
        service = "org.gnome.Mutter.RemoteDesktop"
        try:
            remote = dbus.Interface(self._bus.get_object(service, "/org/gnome/Mutter/RemoteDesktop"), service)
            path = remote.CreateSession()
        except dbus.DBusException as error:
            skip(f"mutter offers no RemoteDesktop session: {error.get_dbus_message()}")
        session = self._bus.get_object(service, path)
        self._session = dbus.Interface(session, f"{service}.Session")
        self._stream_path = None
        self._node = None
        if _start_pipewire(desktop):
            self._record(session.Get(f"{service}.Session", "SessionId", dbus_interface=dbus.PROPERTIES_IFACE))
        self._session.Start()
        if self._stream_path:
            poll("the screen cast's PipeWire stream", self._stream_ready, 10)

    def _record(self, session_id):
        dbus = self._dbus
        service = "org.gnome.Mutter.ScreenCast"
        cast = dbus.Interface(self._bus.get_object(service, "/org/gnome/Mutter/ScreenCast"), service)
        path = cast.CreateSession(dbus.Dictionary({"remote-desktop-session-id": session_id}, signature="sv"))
        session = dbus.Interface(self._bus.get_object(service, path), f"{service}.Session")
        self._stream_path = session.RecordMonitor("", dbus.Dictionary({}, signature="sv"))
        stream = dbus.Interface(self._bus.get_object(service, self._stream_path), f"{service}.Stream")
        stream.connect_to_signal("PipeWireStreamAdded", self._stream_added)

    def _stream_added(self, node):
        self._node = int(node)

    def _stream_ready(self):
        from gi.repository import GLib
        GLib.MainContext.default().iteration(False)
        return self._node is not None

    def screenshot(self, path):
        """A PNG of the whole screen; nothing without a screen cast."""
        if self._node is None:
            return
        try:
            subprocess.run(["gst-launch-1.0", "-q", "pipewiresrc", f"path={self._node}", "num-buffers=1", "!",
                            "videoconvert", "!", "pngenc", "!", "filesink", f"location={path}"],
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=20)
        except subprocess.TimeoutExpired:
            print("# no picture of the screen: the screen cast sent no frame", flush=True)

    def click(self, x, y, button=BUTTON_LEFT):
        """A click at x, y of the screen (top-left origin); False without a screen cast to place it on."""
        if self._stream_path is None:
            return False
        self._session.NotifyPointerMotionAbsolute(self._stream_path, float(x), float(y))
        self._session.NotifyPointerButton(button, True)
        self._session.NotifyPointerButton(button, False)
        return True

    def drag(self, start, end, steps=8):
        """Drags with the left button held from `start` to `end`, (x, y) places on the screen; False
        without a screen cast to place it on."""
        if self._stream_path is None:
            return False
        (x0, y0), (x1, y1) = start, end
        self._session.NotifyPointerMotionAbsolute(self._stream_path, float(x0), float(y0))
        self._session.NotifyPointerButton(BUTTON_LEFT, True)
        for step in range(1, steps + 1):
            time.sleep(0.015)  # a hand's pace: a toolkit may merge motions that come together
            self._session.NotifyPointerMotionAbsolute(self._stream_path, float(x0 + (x1 - x0) * step / steps),
                                                      float(y0 + (y1 - y0) * step / steps))
        self._session.NotifyPointerButton(BUTTON_LEFT, False)
        return True

    def key(self, name, pressed):
        self._session.NotifyKeyboardKeycode(self._dbus.UInt32(KEY[name]), pressed)

    def tap(self, *names, times=1):
        """Presses `names` together (modifiers first), `times` over."""
        for _ in range(times):
            for name in names:
                self.key(name, True)
            for name in reversed(names):
                self.key(name, False)


def _start_pipewire(desktop):
    """PipeWire with its session manager, which links a screen cast to whoever reads it."""
    if not all(shutil.which(tool) for tool in ("pipewire", "wireplumber", "gst-launch-1.0")):
        return False
    desktop.spawn(["pipewire"])
    socket = os.path.join(os.environ["XDG_RUNTIME_DIR"], "pipewire-0")
    poll("PipeWire", lambda: os.path.exists(socket), 10)
    desktop.spawn(["wireplumber"])
    return True


def _inner(body, picture):
    desktop = Desktop()
    remote = None
    status = 1
    try:
        start_accessibility_bus(desktop)
        remote = RemoteInput(desktop)
        body(desktop, remote)
        status = 0
    except Failure as failure:
        print(f"FAIL: {failure}", flush=True)
        desktop.debug_log_tail()
    except SystemExit as exit:  # a skip
        status = exit.code
    finally:
        if remote and picture:
            remote.screenshot(picture)
        desktop.stop_all()
        path = os.environ["NUBRA_MUTTER_STATUS"]
        with open(f"{path}.part", "w", encoding="utf-8") as f:
            f.write(str(status))
        os.rename(f"{path}.part", path)  # whole when the outer process sees it
    sys.exit(status)


def _end_group(leader):
    """Ends every process of the session started as `leader` (mutter, XWayland, the buses, the
    applications), politely first."""
    for sig, grace in ((signal.SIGTERM, 5), (signal.SIGKILL, 5)):
        try:
            os.killpg(leader, sig)
        except ProcessLookupError:
            return
        deadline = time.monotonic() + grace
        while time.monotonic() < deadline:
            try:
                os.killpg(leader, 0)
            except ProcessLookupError:
                return
            time.sleep(0.05)


def run(body, picture=None):
    """Runs `body(desktop, remote_input)` inside a fresh headless mutter and exits with its status;
    `picture`: where the picture of the screen taken at the end goes, pass or fail."""
    if os.environ.get("NUBRA_MUTTER_INNER") == "1":
        _inner(body, picture)
    for tool in ("mutter", "Xwayland", "dbus-run-session", "gdbus"):
        if not shutil.which(tool):
            skip(f"{tool} is not installed")
    if subprocess.run([SYSTEM_PYTHON, "-c", "import dbus, gi"], capture_output=True).returncode != 0:
        skip("python3-dbus or python3-gi is not installed")
    runtime = tempfile.mkdtemp(prefix="nubra-mutter-")  # mode 0700, as a runtime folder must be
    home = os.path.join(runtime, "home")
    os.makedirs(home)
    status_path = os.path.join(runtime, "status")
    # The session variables gnome-session would set, by which Nubra knows the desktop.
    env = dict(os.environ, XDG_RUNTIME_DIR=runtime, NO_AT_BRIDGE="0", GTK_A11Y="atspi", **home_env(home),
               NUBRA_MUTTER_INNER="1", NUBRA_MUTTER_STATUS=status_path, XDG_SESSION_TYPE="wayland",
               XDG_CURRENT_DESKTOP="GNOME",
               NUBRA_DEBUG_LOG=os.path.join(runtime, "nb-debug.log"))
    for name in ("DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "DBUS_SESSION_BUS_ADDRESS", "QT_QPA_PLATFORM",
                 "GDK_BACKEND"):
        env.pop(name, None)
    log_path = os.path.join(runtime, "mutter.log")
    with open(log_path, "w", encoding="utf-8") as log:
        session = subprocess.Popen(
            ["dbus-run-session", "--", "mutter", "--headless", "--wayland", "--virtual-monitor",
             f"{SCREEN_W}x{SCREEN_H}", "--", SYSTEM_PYTHON, os.path.abspath(sys.argv[0]), *sys.argv[1:]],
            env=env, stdin=subprocess.DEVNULL, stderr=log, start_new_session=True)
    try:
        # Mutter may outlive the script it ran; the status file says the script is done.
        deadline = time.monotonic() + RUN_TIMEOUT
        while session.poll() is None and not os.path.exists(status_path) and time.monotonic() < deadline:
            time.sleep(0.1)
        try:
            with open(status_path, encoding="utf-8") as f:
                status = int(f.read() or 1)
        except (OSError, ValueError):
            status = None
        if status not in (0, SKIP):
            # The script's own errors went there too, with mutter's.
            with open(log_path, encoding="utf-8", errors="replace") as f:
                tail = f.readlines()[-30:]
            print("".join(f"# {line}" for line in tail), end="", flush=True)
        if status is None:
            if session.poll() is None:
                print(f"FAIL: no result within {RUN_TIMEOUT} s", flush=True)
                status = 1
            else:
                skip("mutter did not start a headless session")
    finally:
        _end_group(session.pid)
        session.wait()
        shutil.rmtree(runtime, ignore_errors=True)
    sys.exit(status)
