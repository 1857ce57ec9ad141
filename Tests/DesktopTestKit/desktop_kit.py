"""Shared scaffolding of the end-to-end desktop tests: a virtual X11 desktop (Xvfb, a private D-Bus
session, the accessibility bus, openbox) in which the tests start and drive real applications.

A test script calls `run(main_body, argv)`: the outer process starts Xvfb and re-runs the script inside
`dbus-run-session`; the inner one gets a Desktop with the accessibility bus and openbox running and a
private HOME, so nothing on the machine (a mousepad session, dconf settings) leaks into the test.
Exits with 77 (skipped) when the desktop cannot be made.
"""
import json
import os
import queue
import re
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import threading
import time

SKIP = 77
SCREEN_W, SCREEN_H = 1280, 800

def skip(reason):
    print(f"SKIP: {reason}")
    sys.exit(SKIP)


class Failure(Exception):
    pass


def exit_with(main):
    """Runs a suite's `main` and exits with its status; a Failure outside its cases fails the suite."""
    try:
        sys.exit(main())
    except Failure as failure:
        print(f"FAIL: {failure}", flush=True)
        sys.exit(1)


def run_cases(cases, after_failure=None):
    """Runs each (name, case) of a suite in turn, one failure not stopping the rest, and says ok or FAIL
    for each; a case that returns False has said itself why it did not run. The number that failed."""
    failures = 0
    for name, case in cases:
        try:
            if case() is not False:
                print(f"ok: {name}", flush=True)
        except Failure as failure:
            failures += 1
            print(f"FAIL: {name}: {failure}", flush=True)
            if after_failure:
                after_failure(name)
    return failures


def check(condition, message):
    if not condition:
        raise Failure(message)


def poll(what, fn, timeout):
    """Waits until `fn()` gives something true and returns it."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        value = fn()
        if value:
            return value
        time.sleep(0.05)
    raise Failure(f"timed out waiting for {what}")


class Lines:
    """Collects a child's stdout lines on a thread so the test can wait for them with a timeout."""

    def __init__(self, process):
        self.queue = queue.Queue()
        self.seen = []
        threading.Thread(target=self._pump, args=(process.stdout,), daemon=True).start()

    def _pump(self, stream):
        for raw in stream:
            line = raw.strip()
            if line:
                self.queue.put(line)

    def next_json(self, timeout):
        deadline = time.monotonic() + timeout
        while True:
            remaining = deadline - time.monotonic()
            if remaining <= 0:
                return None
            try:
                line = self.queue.get(timeout=remaining)
            except queue.Empty:
                return None
            try:
                return json.loads(line)
            except json.JSONDecodeError:
                continue

    def expect(self, pattern, timeout):
        """The match of the first line that matches `pattern` whole; the lines before it are passed over."""
        deadline = time.monotonic() + timeout
        while True:
            remaining = deadline - time.monotonic()
            if remaining <= 0:
                raise Failure(f"no line matching {pattern!r}; seen {self.seen}")
            try:
                line = self.queue.get(timeout=remaining)
            except queue.Empty:
                continue
            self.seen.append(line)
            match = re.fullmatch(pattern, line)
            if match:
                return match

    def drain(self):
        while not self.queue.empty():
            self.queue.get_nowait()


def free_display():
    for n in range(90, 200):
        if not os.path.exists(f"/tmp/.X11-unix/X{n}") and not os.path.exists(f"/tmp/.X{n}-lock"):
            return n
    skip("no free X display number")


def xdotool(*args):
    subprocess.run(["xdotool", *map(str, args)], check=True)


def set_bus_enabled(enabled):
    subprocess.run(["gdbus", "call", "--session", "--dest", "org.a11y.Bus", "--object-path", "/org/a11y/bus",
                    "--method", "org.freedesktop.DBus.Properties.Set", "org.a11y.Status", "IsEnabled",
                    f"<{'true' if enabled else 'false'}>"], check=True, stdout=subprocess.DEVNULL)


def screenshot(path):
    subprocess.run(["import", "-window", "root", path], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def history_rows(data_home=None):
    """Nubra's history as (selected, before, after, gloss, source) rows, oldest first; none before it exists."""
    path = os.path.join(data_home or os.environ["XDG_DATA_HOME"], "Nubra", "history.sqlite3")
    if not os.path.exists(path):
        return []
    try:
        with sqlite3.connect(f"file:{path}?mode=ro", uri=True, timeout=1) as db:
            return db.execute("SELECT selected_text, context_before, context_after, gloss, source_app FROM history "
                              "ORDER BY id").fetchall()
    except sqlite3.Error:
        return []


def home_env(home):
    """The variables that keep an application's settings, data and cache under `home`."""
    return {"HOME": home, "XDG_CONFIG_HOME": os.path.join(home, ".config"),
            "XDG_DATA_HOME": os.path.join(home, ".local", "share"), "XDG_CACHE_HOME": os.path.join(home, ".cache")}


def fresh_home(name):
    """Another private HOME, for a test that starts applications from scratch more than once."""
    home = os.path.join(os.environ["XDG_RUNTIME_DIR"], name)
    os.makedirs(home)
    return home_env(home)


def stop(process, timeout=3):
    if process.poll() is None:
        process.terminate()
        try:
            process.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


WORD_EXTENTS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "word_extents.py")


def word_rect(application, word):
    """Where `word` of the application's text is on the screen ({x, y, width, height}, top-left origin),
    read through the accessibility bus; None until the application shows it there."""
    found = subprocess.run(["/usr/bin/python3", WORD_EXTENTS, application, word], capture_output=True, text=True)
    if found.returncode != 0:
        return None
    rect = json.loads(found.stdout)
    return rect if rect["width"] > 0 else None


WIDGETS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "widgets.py")


def widgets(application="Nubra"):
    """The application's widgets as its accessibility bus shows them (see widgets.py)."""
    found = subprocess.run(["/usr/bin/python3", WIDGETS, application], capture_output=True, text=True)
    return json.loads(found.stdout) if found.returncode == 0 and found.stdout else []


def widget(role, name=None):
    """The first showing widget of Nubra of `role` whose name matches; None when there is none."""
    for item in widgets():
        if item["role"] != role or "showing" not in item["states"] or item["width"] <= 0:
            continue
        if name is not None and not re.search(name, item["name"] or ""):
            continue
        return item
    return None


def click(item):
    """A left click in the middle of a widget found with widget()."""
    xdotool("mousemove", item["x"] + item["width"] // 2, item["y"] + item["height"] // 2)
    xdotool("click", 1)


def xdotool_output(*args):
    """What xdotool prints, split into words (window ids, for a search)."""
    return subprocess.run(["xdotool", *map(str, args)], capture_output=True, text=True).stdout.split()


def window_named(title):
    found = xdotool_output("search", "--onlyvisible", "--name", f"^{title}$")
    return found[0] if found else None


def text_width(text, font):
    """How far `text` advances in `font`, as ImageMagick lays it out."""
    debug = subprocess.run(["convert", "-debug", "annotate", "xc:", *font, "-annotate", "0", text, "null:"],
                           capture_output=True, text=True, check=True).stderr
    return float(re.search(r"Metrics: text: .*?; width: ([0-9.]+);", debug).group(1))


def picture_window(desktop):
    """Shows two lines of text as a picture (nothing to select, nothing on the accessibility bus); the box
    of each word of the first line on the screen, once it is drawn there. Needs ImageMagick and
    xwininfo."""
    lines = ("She sat on the bank of the river", "and watched the boats go by.")
    font = ["-font", "DejaVu-Sans", "-pointsize", "32"]
    drawn, words, x = [], {}, 20.0
    for word in lines[0].split():
        drawn += ["-annotate", f"+{x:.0f}+50", word]
        words[word] = (int(x), 18, int(text_width(word, font)) + 1, 42)
        x += text_width(word + " ", font)
    path = os.path.join(os.environ["XDG_RUNTIME_DIR"], "words.png")
    subprocess.run(["convert", "-size", "760x140", "xc:white", "-fill", "black", *font, *drawn,
                    "-annotate", "+20+110", lines[1], path], check=True)
    # Below the editor, whose own copy of the sentence must not be read as context.
    desktop.spawn(["display", "-title", "words", "-geometry", "+260+600", path])
    window = poll("the picture window", lambda: window_named("words"), 15)
    # Where the picture starts: the window's inside, below the frame the window manager put round it.
    info = subprocess.run(["xwininfo", "-id", window], capture_output=True, text=True, check=True).stdout
    left, top = (int(re.search(rf"Absolute upper-left {axis}:\s+(-?\d+)", info).group(1)) for axis in "XY")
    words = {word: (left + x, top + y, width, height) for word, (x, y, width, height) in words.items()}

    def drawn():
        x, y, width, height = words["She"]
        mean = subprocess.run(["import", "-window", "root", "-crop", f"{width}x{height}+{x}+{y}", "-format",
                               "%[fx:mean]", "info:"], capture_output=True, text=True).stdout
        return mean and float(mean) < 0.9

    poll("the picture on the screen", drawn, 15)
    return words


def visible_windows(window_class):
    """The visible windows of `window_class`, as (id, x, y, width, height)."""
    found = []
    for window in xdotool_output("search", "--onlyvisible", "--class", window_class):
        values = dict(word.split("=", 1) for word in xdotool_output("getwindowgeometry", "--shell", window)
                      if "=" in word)
        if "WIDTH" in values:
            found.append((window, *(int(values[key]) for key in ("X", "Y", "WIDTH", "HEIGHT"))))
    return found


def start_service(desktop, argv):
    """Starts nubra-glossd (`argv` without a port) on a free port; its base address."""
    process = desktop.spawn([*argv, "--port", "0"], stderr=True)
    line = process.stderr.readline()
    match = re.search(r"listening on (http://\S+)", line)
    check(match, f"nubra-glossd did not start: {line!r}")
    return match.group(1)


class Desktop:
    def __init__(self):
        self.children = []

    def spawn(self, argv, capture=False, env=None, stderr=None):
        """`stderr`: None drops it, True makes it readable from the process, a path keeps it there."""
        if isinstance(stderr, str):
            stderr = open(stderr, "a", encoding="utf-8")
        elif stderr is True:
            stderr = subprocess.PIPE
        process = subprocess.Popen(argv, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE if capture else subprocess.DEVNULL,
                                   stderr=stderr or subprocess.DEVNULL, text=True, env=env)
        self.children.append(process)
        return process

    def stop_all(self):
        for process in reversed(self.children):
            stop(process)

    def debug_log_tail(self, count=15):
        """What Nubra logged last, for the run that cannot be repeated by hand."""
        try:
            with open(os.environ["NUBRA_DEBUG_LOG"], encoding="utf-8", errors="replace") as log:
                for line in log.readlines()[-count:]:
                    print(f"# {line.rstrip()}", flush=True)
        except OSError:
            pass


def start_mousepad(desktop, text, name="gtk.txt"):
    """Started early so the editor has settled long before its case runs: a GTK application's first
    start on a fresh machine is slow, and input sent to it too early can go missing."""
    path = os.path.join(os.environ["XDG_RUNTIME_DIR"], name)
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)
    desktop.spawn(["mousepad", "--disable-server", path])
    for _ in range(150):
        found = xdotool_output("search", "--name", f"{name} - Mousepad")
        if found:
            return found[0]
        time.sleep(0.2)
    raise Failure("mousepad did not open")


def start_accessibility_bus(desktop):
    """Starts the accessibility bus in this D-Bus session and switches it on, before any application
    starts: toolkits decide at start-up whether to join it."""
    launcher = "/usr/libexec/at-spi-bus-launcher"
    if not os.path.exists(launcher):
        skip("at-spi2-core's bus launcher is missing")
    desktop.spawn([launcher, "--launch-immediately"])
    for _ in range(50):
        if subprocess.run(["gdbus", "call", "--session", "--dest", "org.a11y.Bus", "--object-path",
                           "/org/a11y/bus", "--method", "org.a11y.Bus.GetAddress"],
                          capture_output=True).returncode == 0:
            break
        time.sleep(0.1)
    else:
        skip("the accessibility bus did not start")
    set_bus_enabled(True)


def _start_session(desktop):
    start_accessibility_bus(desktop)
    # Openbox binds Alt+drag to moving windows; tests that Alt+drag need it to reach the application,
    # so it runs without any bindings.
    config = os.path.join(os.environ["XDG_RUNTIME_DIR"], "rc.xml")  # removed with the runtime dir
    with open(config, "w", encoding="utf-8") as f:
        f.write('<?xml version="1.0"?><openbox_config xmlns="http://openbox.org/3.4/rc">'
                '<keyboard></keyboard><mouse></mouse></openbox_config>')
    desktop.spawn(["openbox", "--config-file", config])
    time.sleep(0.5)


def run(body, picture):
    """Runs `body(desktop)` on a fresh virtual desktop and exits with its status; `picture` is the path
    of the picture of the screen taken at the end, pass or fail."""
    if os.environ.get("NUBRA_DESKTOP_INNER") == "1":
        desktop = Desktop()
        try:
            _start_session(desktop)
            body(desktop)
            status = 0
        except Failure as failure:
            print(f"FAIL: {failure}", flush=True)
            desktop.debug_log_tail()
            status = 1
        finally:
            screenshot(picture)
            desktop.stop_all()
        sys.exit(status)

    for tool in ("Xvfb", "dbus-run-session", "xdotool", "openbox", "gdbus", "import"):
        if not shutil.which(tool):
            skip(f"{tool} is not installed")
    display = free_display()
    runtime = tempfile.mkdtemp(prefix="nubra-xdg-")
    home = os.path.join(runtime, "home")
    os.makedirs(home)
    xvfb = subprocess.Popen(["Xvfb", f":{display}", "-screen", "0", f"{SCREEN_W}x{SCREEN_H}x24", "-nolisten", "tcp"],
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        for _ in range(50):
            if os.path.exists(f"/tmp/.X11-unix/X{display}"):
                break
            time.sleep(0.1)
        else:
            skip("Xvfb did not start")
        env = dict(os.environ, DISPLAY=f":{display}", XDG_RUNTIME_DIR=runtime, NO_AT_BRIDGE="0",
                   GTK_A11Y="atspi", **home_env(home), NUBRA_DESKTOP_INNER="1",
                   NUBRA_DEBUG_LOG=os.path.join(runtime, "nb-debug.log"))
        env.pop("DBUS_SESSION_BUS_ADDRESS", None)
        env.pop("QT_QPA_PLATFORM", None)
        result = subprocess.run(["dbus-run-session", "--", sys.executable, *sys.argv], env=env)
        sys.exit(result.returncode)
    finally:
        xvfb.terminate()
        xvfb.wait()
        shutil.rmtree(runtime, ignore_errors=True)
