"""A headless sway (wlroots) desktop for the Wayland end-to-end tests.

`Sway` starts, once per suite: a private session bus with the accessibility bus switched on, sway on
the headless backend with XWayland, and nothing else; it hands out the environment clients need and
stops everything it started, by PID, on the way out. sway refuses to run as root, so as root it runs
as an unprivileged user of its own (created once) with that user's own runtime directory; the rest
(session bus, applications, Nubra) stays root and reaches the compositor through the absolute socket
path. Exits with 77 (skipped) when sway or XWayland are missing.
"""
import glob
import json
import os
import pwd
import shutil
import subprocess
import tempfile
import time

from desktop_kit import Failure, Lines, check, home_env, poll, skip, stop

COMPOSITOR_USER = "nubra-wl"
WIDTH, HEIGHT = 1280, 800

CONFIG = f"""xwayland enable
output * mode {WIDTH}x{HEIGHT}
default_border normal
focus_follows_mouse no
"""


def _compositor_user():
    """The user sway runs as: ourselves, or (as root) an unprivileged one made for it."""
    if os.geteuid() != 0:
        return None
    try:
        return pwd.getpwnam(COMPOSITOR_USER)
    except KeyError:
        subprocess.run(["useradd", "--system", "--create-home", "--shell", "/usr/sbin/nologin", COMPOSITOR_USER],
                       check=True, stdout=subprocess.DEVNULL)
        return pwd.getpwnam(COMPOSITOR_USER)


class HeadlessCompositor:
    """What every headless compositor of the tests shares: the processes it started, stopped by PID on
    the way out; private folders, removed then; and a session bus with the accessibility bus on.
    Subclasses name the `tools` they need and start the compositor in `_start`, setting `env`."""

    tools = ("dbus-daemon", "gdbus")

    def __init__(self, artifacts):
        self.artifacts = artifacts
        self.children = []
        self.dirs = []
        self.env = None
        self.compositor = None
        self.config = None  # the configuration file sway reads on `swaymsg reload`
        self.shots = 0

    def __enter__(self):
        for tool in self.tools:
            if not shutil.which(tool):
                skip(f"{tool} is not installed")
        try:
            self._start()
        except BaseException:
            self.__exit__(None, None, None)
            raise
        return self

    def __exit__(self, *_):
        for process in reversed(self.children):
            stop(process)
        for path in self.dirs:
            # A document portal the session bus started may still be unmounting its folder in there.
            try:
                poll(f"{path} removed", lambda: shutil.rmtree(path, ignore_errors=True) or not os.path.exists(path), 3)
            except Failure:
                print(f"# left behind: {path}", flush=True)

    def spawn(self, argv, env=None, stdin=False, capture=False, stderr=None):
        """`stderr`: None drops it, True makes it readable from the process, a path keeps it there."""
        if isinstance(stderr, str):
            stderr = open(stderr, "a", encoding="utf-8")
        elif stderr is True:
            stderr = subprocess.PIPE
        process = subprocess.Popen(argv, env=env or self.env, text=True,
                                   stdin=subprocess.PIPE if stdin else subprocess.DEVNULL,
                                   stdout=subprocess.PIPE if capture else subprocess.DEVNULL,
                                   stderr=stderr or subprocess.DEVNULL)
        self.children.append(process)
        return process

    def _private_dir(self, prefix, owner=None):
        path = tempfile.mkdtemp(prefix=prefix)
        self.dirs.append(path)
        if owner:
            os.chown(path, owner.pw_uid, owner.pw_gid)
        os.chmod(path, 0o700)
        return path

    def _start(self):
        raise NotImplementedError

    def _start_session_bus(self):
        bus = self.spawn(["dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address=1"], capture=True)
        address = bus.stdout.readline().strip()
        check(address, "the session bus did not start")
        self.env["DBUS_SESSION_BUS_ADDRESS"] = address
        launcher = "/usr/libexec/at-spi-bus-launcher"
        if not os.path.exists(launcher):
            skip("at-spi2-core's bus launcher is missing")
        self.spawn([launcher, "--launch-immediately"])
        gdbus = ["gdbus", "call", "--session", "--dest", "org.a11y.Bus", "--object-path", "/org/a11y/bus", "--method"]
        poll("the accessibility bus", lambda: subprocess.run([*gdbus, "org.a11y.Bus.GetAddress"], env=self.env,
                                                             capture_output=True).returncode == 0, 10)
        subprocess.run([*gdbus, "org.freedesktop.DBus.Properties.Set", "org.a11y.Status", "IsEnabled", "<true>"],
                       env=self.env, check=True, stdout=subprocess.DEVNULL)


class Sway(HeadlessCompositor):
    """sway with XWayland, as an unprivileged user of its own when we are root."""

    tools = ("sway", "swaymsg", "Xwayland", "xhost", "grim", "wl-copy", "wl-paste", "dbus-daemon", "gdbus")

    def _start(self):
        user = _compositor_user()
        sway_runtime = self._private_dir("nubra-sway-", user)
        config = self.config = os.path.join(sway_runtime, "config")
        with open(config, "w", encoding="utf-8") as f:
            f.write(CONFIG)
        if user:
            os.chown(config, user.pw_uid, user.pw_gid)
        sway_env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "XDG_RUNTIME_DIR": sway_runtime,
                    "HOME": user.pw_dir if user else os.environ.get("HOME", sway_runtime),
                    "WLR_BACKENDS": "headless", "WLR_RENDERER": "pixman", "WLR_LIBINPUT_NO_DEVICES": "1"}
        command = ["sway", "-c", config]
        if user:
            command = ["runuser", "-u", user.pw_name, "--", "env", *(f"{k}={v}" for k, v in sway_env.items()),
                       *command]
        log = os.path.join(self.artifacts, "sway.log")
        sway = self.spawn(command, env=sway_env, stderr=log)
        self.compositor = sway

        def started(pattern):
            if sway.poll() is not None:
                skip(f"sway did not start (see {log})")
            found = [p for p in glob.glob(os.path.join(sway_runtime, pattern)) if not p.endswith(".lock")]
            return found[0] if found else None

        wayland = poll("sway's Wayland socket", lambda: started("wayland-*"), 20)
        swaysock = poll("sway's IPC socket", lambda: started("sway-ipc.*.sock"), 20)

        runtime = self._private_dir("nubra-wl-client-")
        home = os.path.join(runtime, "home")
        os.makedirs(home)
        self.env = dict(os.environ, XDG_RUNTIME_DIR=runtime, WAYLAND_DISPLAY=wayland, SWAYSOCK=swaysock,
                        **home_env(home))
        for name in ("DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "QT_QPA_PLATFORM", "I3SOCK", "HYPRLAND_INSTANCE_SIGNATURE"):
            self.env.pop(name, None)
        # sway starts XWayland on the first X client and tells its own children where it is.
        display_file = os.path.join(sway_runtime, "display")
        self.swaymsg("exec", f"echo $DISPLAY > {display_file}")
        display = poll("XWayland's display", lambda: _read(display_file), 10)
        self.env["DISPLAY"] = display
        if user:
            # XWayland admits only the user it runs as; the applications and Nubra run as root.
            granted = os.path.join(sway_runtime, "xhost")
            self.swaymsg("exec", f"xhost +si:localuser:root > {granted}")
            poll("root's access to XWayland", lambda: _read(granted), 10)
        self._start_session_bus()

    def stop_compositor(self):
        """Ends sway as a crash would, for the clients that must live on without it."""
        stop(self.compositor)

    def swaymsg(self, *args):
        """What swaymsg answers, decoded when it is JSON."""
        done = subprocess.run(["swaymsg", "-s", self.env["SWAYSOCK"], *args], env=self.env, capture_output=True,
                              text=True, timeout=10)
        check(done.returncode == 0, f"swaymsg {' '.join(args)} failed: {done.stderr.strip() or done.stdout.strip()}")
        try:
            return json.loads(done.stdout)
        except json.JSONDecodeError:
            return done.stdout

    def windows(self):
        """Every window in sway's tree as its node."""
        found, stack = [], [self.swaymsg("-t", "get_tree")]
        while stack:
            node = stack.pop()
            if "pid" in node:
                found.append(node)
            stack += node.get("nodes", []) + node.get("floating_nodes", [])
        return found

    def focused_window(self):
        return next((node for node in self.windows() if node.get("focused")), None)

    def screenshot(self, name):
        """A PNG of the whole output in the artifacts folder; its path."""
        self.shots += 1
        path = os.path.join(self.artifacts, f"{self.shots:02d}-{name}.png")
        subprocess.run(["grim", path], env=self.env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=10)
        return path


def _read(path):
    try:
        with open(path, encoding="utf-8") as f:
            return f.read().strip()
    except OSError:
        return None


class Tool:
    """nubra-test-wayland on the compositor: keys typed on a virtual keyboard, and Nubra's own view of
    the selections and windows (see waylandtool.cpp). Start it before the applications: the seat has
    no keyboard until its virtual one arrives (`keyboard=False` on compositors that offer none), and no
    pointer unless asked for one."""

    def __init__(self, sway, path, keyboard=True, pointer=False):
        self.process = sway.spawn([path], stdin=True, capture=True, stderr=subprocess.PIPE)
        self.lines = Lines(self.process)
        self.events = []
        if keyboard:
            check(self.ask("keyboard").get("ok"), "sway did not take a virtual keyboard")
        if pointer:
            check(self.ask("pointer").get("ok"), "sway did not take a virtual pointer")

    def ask(self, command, timeout=10):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            answer = self.lines.next_json(deadline - time.monotonic())
            if answer is None:
                break
            if "event" in answer:
                self.events.append(answer)
            else:
                return answer
        raise Failure(f"no answer to {command!r} (tool {'running' if self.process.poll() is None else 'exited'})")

    def keys(self, chord):
        check(self.ask(f"keys {chord}").get("ok"), f"could not press {chord}")

    def drag(self, start, end):
        """Drags with the left button held from `start` to `end`, (x, y) places on the screen."""
        check(self.ask(f"drag {start[0]} {start[1]} {end[0]} {end[1]} {WIDTH} {HEIGHT}").get("ok"),
              f"could not drag from {start} to {end}")

    def wait_event(self, what, fn, timeout=5):
        """The first event (reported since the last call) that `fn` accepts."""
        def seen():
            while True:
                answer = self.lines.next_json(0.05)
                if answer is None:
                    break
                self.events.append(answer)
            for event in self.events:
                if fn(event):
                    self.events.clear()
                    return event
            return None
        return poll(what, seen, timeout)
