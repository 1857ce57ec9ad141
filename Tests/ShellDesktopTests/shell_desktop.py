#!/usr/bin/python3
"""The tray icon and its menu on a virtual X11 desktop.

D-Bus tray (StatusNotifierItem): a fake StatusNotifierWatcher claims a host, the menu is read through
com.canonical.dbusmenu and driven with the shared sni_click.sh, in English and in Chinese, once with the
watcher appearing after the application (a panel that starts late at login). XEmbed tray: trayer hosts
the icon, and right and left clicks must open the menu. Exits 77 (skipped) when the desktop cannot be
made.
"""
import argparse
import os
import queue
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time

SKIP = 77

try:
    import dbus
except ImportError:
    print("SKIP: python3-dbus is missing")
    sys.exit(SKIP)


def skip(reason):
    print(f"SKIP: {reason}")
    sys.exit(SKIP)


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


def wait_until(predicate, timeout, what):
    deadline = time.monotonic() + timeout
    while True:
        value = predicate()
        if value:
            return value
        if time.monotonic() > deadline:
            raise Failure(f"timed out waiting for {what}")
        time.sleep(0.05)


class Lines:
    """A child's stdout lines, collected on a thread so the test can wait for one with a deadline."""

    def __init__(self, stream):
        self.queue = queue.Queue()
        self.seen = []
        threading.Thread(target=self._pump, args=(stream,), daemon=True).start()

    def _pump(self, stream):
        for raw in stream:
            self.queue.put(raw.rstrip("\n"))

    def expect(self, pattern, timeout):
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


class Session:
    """Xvfb and a private session bus; every child is stopped at the end."""

    def __init__(self, root):
        self.root = root
        self.children = []
        self.env = dict(os.environ)
        runtime = os.path.join(root, "runtime")
        os.makedirs(runtime, mode=0o700)
        self.env.update(XDG_RUNTIME_DIR=runtime, QT_QPA_PLATFORM="xcb", LC_ALL="C.UTF-8")
        for name in ("DBUS_SESSION_BUS_ADDRESS", "NUBRA_TEST_LANGUAGE", "QT_QPA_PLATFORMTHEME"):
            self.env.pop(name, None)

    def spawn(self, argv, env=None, capture=False):
        process = subprocess.Popen(argv, env=env or self.env, text=True, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE if capture else subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        self.children.append(process)
        return process

    def start(self):
        for n in range(120, 250):
            if not os.path.exists(f"/tmp/.X11-unix/X{n}") and not os.path.exists(f"/tmp/.X{n}-lock"):
                break
        else:
            skip("no free X display number")
        self.spawn(["Xvfb", f":{n}", "-screen", "0", "1280x800x24", "-nolisten", "tcp"])
        self.env["DISPLAY"] = f":{n}"
        try:
            wait_until(lambda: subprocess.run(["xdotool", "getdisplaygeometry"], env=self.env,
                                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0,
                       15, "Xvfb")
        except Failure:
            skip("Xvfb did not start")
        bus = self.spawn(["dbus-daemon", "--session", "--nofork", "--print-address=1"], capture=True)
        address = bus.stdout.readline().strip()
        if not address:
            skip("dbus-daemon did not start")
        self.env["DBUS_SESSION_BUS_ADDRESS"] = address
        self.bus = dbus.bus.BusConnection(address)

    def stop(self, process):
        if process.poll() is None:
            process.terminate()
            try:
                process.wait(timeout=5)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()

    def stop_all(self):
        for process in reversed(self.children):
            self.stop(process)


class App:
    """One run of the tray program with its own settings and data directories."""

    def __init__(self, session, program, name, language=None):
        self.session = session
        home = os.path.join(session.root, name)
        self.config = os.path.join(home, "config")
        env = dict(session.env, HOME=home, XDG_CONFIG_HOME=self.config,
                   XDG_DATA_HOME=os.path.join(home, "data"), XDG_CACHE_HOME=os.path.join(home, "cache"))
        if language:
            env["NUBRA_TEST_LANGUAGE"] = language
        os.makedirs(home)
        self.process = session.spawn([program], env=env, capture=True)
        self.lines = Lines(self.process.stdout)
        self.lines.expect("STARTED", 15)

    def exited(self, timeout):
        try:
            return self.process.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            raise Failure("the program did not quit")

    def settings(self):
        with open(os.path.join(self.config, "Nubra", "Nubra.conf"), encoding="utf-8") as stored:
            return stored.read()


class Watcher:
    def __init__(self, session, fixtures):
        self.process = session.spawn([sys.executable, os.path.join(fixtures, "fake_sni_watcher.py")],
                                     capture=True)
        self.lines = Lines(self.process.stdout)
        self.lines.expect("READY", 15)


class DBusMenu:
    """The registered item's menu, read the way a panel reads it."""

    def __init__(self, session, item_line):
        self.session = session
        service = item_line.split("/")[0]
        item = session.bus.get_object(service, "/StatusNotifierItem")
        self.item = dbus.Interface(item, dbus.PROPERTIES_IFACE)
        path = self.item.Get("org.kde.StatusNotifierItem", "Menu")
        self.menu = dbus.Interface(session.bus.get_object(service, path), "com.canonical.dbusmenu")

    def icon(self):
        return bytes(b for _, _, data in self.item.Get("org.kde.StatusNotifierItem", "IconPixmap") for b in data)

    def tooltip_title(self):
        return str(self.item.Get("org.kde.StatusNotifierItem", "ToolTip")[2])

    def layout(self):
        _, root = self.menu.GetLayout(0, -1, dbus.Array([], signature="s"))

        def node(entry):
            _, props, children = entry
            return {"label": str(props.get("label", "")), "type": str(props.get("type", "standard")),
                    "visible": bool(props.get("visible", True)), "enabled": bool(props.get("enabled", True)),
                    "toggle": str(props.get("toggle-type", "")), "state": int(props.get("toggle-state", -1)),
                    "children": [node(child) for child in children]}
        return node(root)

    def shown(self, parent=None):
        """The visible entries of the top menu (or of the submenu labelled `parent`); separators as ---."""
        entries = self.layout()["children"]
        if parent:
            entries = next(entry for entry in entries if entry["label"] == parent)["children"]
        return [entry for entry in entries if entry["visible"]]

    def labels(self, parent=None):
        return ["---" if entry["type"] == "separator" else entry["label"] for entry in self.shown(parent)]

    def checked(self, parent):
        return [entry["label"] for entry in self.shown(parent) if entry["state"] == 1]

    def click(self, label, fixtures):
        result = subprocess.run(["bash", os.path.join(fixtures, "sni_click.sh"), label], env=self.session.env,
                                capture_output=True, text=True, timeout=20)
        check(result.returncode == 0, f"sni_click.sh {label!r}: {result.stdout}{result.stderr}")


ENGLISH_TOP = ["⚠️ Not activated — click to enable Accessibility", "---", "○ selection monitor not running", "---",
               "Explanation Length", "Explanation Style", "Model Tier", "Output Language", "---",
               "Pause selection", "Close current card", "---", "History", "Check for Updates…", "Settings…", "Quit"]
SUBMENUS = {"Explanation Length": ["Short", "Medium", "Detailed"],
            "Explanation Style": ["Plain", "Academic", "Coding", "Language learning"],
            "Model Tier": ["Fast", "High quality"],
            "Output Language": ["Match input", "Chinese", "English"]}


def sni_english(session, args):
    watcher = Watcher(session, args.fixtures)
    try:
        sni_english_checks(session, args, watcher)
    finally:
        session.stop(watcher.process)


def sni_english_checks(session, args, watcher):
    app = App(session, args.app, "sni-en")
    app.lines.expect("SHOWN", 10)
    menu = DBusMenu(session, watcher.lines.expect(r"ITEM (\S+)", 10).group(1))

    check(menu.labels() == ENGLISH_TOP, f"top menu {menu.labels()}")
    status = menu.shown()[2]
    check(not status["enabled"], "the status line can be clicked")
    for title, items in SUBMENUS.items():
        labels = menu.labels(title)
        check(labels == items, f"{title}: {labels}")
        check(all(entry["toggle"] in ("radio", "checkmark") for entry in menu.shown(title)), f"{title} toggles")
    check(menu.checked("Explanation Length") == ["Medium"], f"checked {menu.checked('Explanation Length')}")
    check(menu.checked("Output Language") == ["Match input"], "output language check")

    menu.click("Detailed", args.fixtures)
    app.lines.expect("TRIGGERED detailed", 5)
    wait_until(lambda: menu.checked("Explanation Length") == ["Detailed"], 5, "Detailed checked")

    running_icon = menu.icon()
    menu.click("Pause selection", args.fixtures)
    wait_until(lambda: menu.icon() != running_icon, 5, "the paused icon")
    wait_until(lambda: menu.labels()[2:4] == ["Paused", "○ selection monitor not running"], 5, "the Paused line")
    check("Resume selection" in menu.labels(), f"no resume item: {menu.labels()}")
    check("Paused" in menu.tooltip_title(), f"tooltip {menu.tooltip_title()!r}")
    menu.click("Resume selection", args.fixtures)
    wait_until(lambda: menu.icon() == running_icon, 5, "the running icon again")

    menu.click("Quit", args.fixtures)
    check(app.exited(10) == 0, "Quit did not end the program cleanly")
    check("length=detailed" in app.settings(), f"the chosen length was not saved:\n{app.settings()}")


def sni_chinese_late_watcher(session, args):
    # The panel comes up after the application: the tray must still use the D-Bus host.
    app = App(session, args.app, "sni-zh", language="zh")
    watcher = Watcher(session, args.fixtures)
    try:
        sni_chinese_checks(session, args, app, watcher)
    finally:
        session.stop(watcher.process)


def sni_chinese_checks(session, args, app, watcher):
    app.lines.expect("SHOWN", 10)
    menu = DBusMenu(session, watcher.lines.expect(r"ITEM (\S+)", 10).group(1))

    han = re.compile(r"[\u4e00-\u9fff]")
    labels = []
    for entry in menu.shown():
        if entry["type"] != "separator":
            labels.append(entry["label"])
            labels += [child["label"] for child in entry["children"] if child["visible"]]
    untranslated = [label for label in labels if not han.search(label)]
    check(not untranslated, f"labels not in Chinese: {untranslated}")
    for expected in ("○ 选区监听未运行", "解释长度", "解释风格", "模型档位", "输出语言", "暂停划词", "退出"):
        check(expected in labels, f"no {expected!r} in {labels}")
    check(menu.labels("输出语言") == ["跟随输入语言", "中文", "英文"], f"output languages {menu.labels('输出语言')}")

    menu.click("暂停划词", args.fixtures)
    wait_until(lambda: "已暂停，选中不再弹出" in menu.labels() and "恢复划词" in menu.labels(), 5, "the Chinese Paused line")
    menu.click("退出", args.fixtures)
    check(app.exited(10) == 0, "退出 did not end the program cleanly")


def xembed(session, args):
    if not shutil.which("trayer"):
        print("skip - XEmbed tray: trayer is not installed", flush=True)
        return False
    session.spawn(["trayer", "--edge", "top", "--align", "right", "--width", "10", "--height", "24",
                   "--SetDockType", "true", "--SetPartialStrut", "true"])
    app = App(session, args.app, "xembed")
    app.lines.expect("SHOWN", 10)
    x, y, w, h = map(int, app.lines.expect(r"GEOMETRY (-?\d+) (-?\d+) (\d+) (\d+)", 10).groups())
    xdotool = ["xdotool"]

    def run(*command):
        subprocess.run(xdotool + [str(part) for part in command], env=session.env, check=True)

    run("mousemove", x + w // 2, y + h // 2)
    run("click", 3)
    app.lines.expect("MENU", 5)
    screenshot(session, args, "tray-xembed-menu.png")
    run("key", "Escape")
    app.lines.expect("MENU_CLOSED", 5)
    run("click", 1)
    app.lines.expect("MENU", 5)
    # The keyboard reaches the open menu: Up selects its last item, Quit.
    run("key", "Up", "Return")
    app.lines.expect("TRIGGERED quitItem", 5)
    check(app.exited(10) == 0, "Quit from the XEmbed menu did not end the program cleanly")
    return True


def screenshot(session, args, name):
    if args.artifacts and shutil.which("import"):
        subprocess.run(["import", "-window", "root", os.path.join(args.artifacts, name)], env=session.env,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--app", required=True)
    parser.add_argument("--fixtures", required=True)
    parser.add_argument("--artifacts")
    args = parser.parse_args()
    for tool in ("Xvfb", "dbus-daemon", "gdbus", "xdotool"):
        if not shutil.which(tool):
            skip(f"{tool} is not installed")
    if not os.path.exists(os.path.join(args.fixtures, "fake_sni_watcher.py")):
        skip(f"no test fixtures in {args.fixtures}")

    root = tempfile.mkdtemp(prefix="nubra-shell-")
    session = Session(root)
    failures = 0
    try:
        session.start()
        cases = [("D-Bus tray: labels, check marks, choosing, pause and quit", sni_english),
                 ("D-Bus tray: a late panel, every label in Chinese", sni_chinese_late_watcher),
                 ("XEmbed tray: right and left click open the menu", xembed)]
        for name, case in cases:
            try:
                if case(session, args) is not False:
                    print(f"ok - {name}", flush=True)
            except Failure as failure:
                failures += 1
                print(f"not ok - {name}: {failure}", flush=True)
    finally:
        session.stop_all()
        shutil.rmtree(root, ignore_errors=True)
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
