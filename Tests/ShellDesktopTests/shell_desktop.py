#!/usr/bin/python3
"""The tray icon and its menu on a virtual X11 desktop (see DesktopTestKit).

D-Bus tray (StatusNotifierItem): the kit's stand-in StatusNotifierWatcher (tray.py) claims a host, the
menu is read and driven through com.canonical.dbusmenu, in English and in Chinese, once with the watcher
appearing after the application (a panel that starts late at login). XEmbed tray: trayer hosts
the icon, and right and left clicks must open the menu. Exits 77 (skipped) when the desktop cannot be
made.
"""
import argparse
import os
import shutil
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "DesktopTestKit"))
from desktop_kit import (Failure, Lines, check, fresh_home, poll, run, run_cases, screenshot, skip, stop,  # noqa: E402
                         visible_windows, xdotool)

try:
    import dbus
    from tray import click_menu_item, start_watcher
except ImportError:
    skip("python3-dbus or python3-gi is missing")

ARGS = None


class App:
    """One run of the tray program with its own settings and data directories."""

    def __init__(self, desktop, name, language=None):
        env = dict(os.environ, **fresh_home(name), QT_QPA_PLATFORM="xcb", LC_ALL="C.UTF-8")
        for variable in ("NUBRA_TEST_LANGUAGE", "QT_QPA_PLATFORMTHEME"):
            env.pop(variable, None)
        if language:
            env["NUBRA_TEST_LANGUAGE"] = language
        self.config = env["XDG_CONFIG_HOME"]
        self.process = desktop.spawn([ARGS.app], env=env, capture=True)
        self.lines = Lines(self.process)
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
    def __init__(self, desktop):
        self.process, self.lines = start_watcher(desktop)


class DBusMenu:
    """The registered item's menu, read the way a panel reads it."""

    def __init__(self, item_line):
        bus = dbus.SessionBus()
        service, path = item_line.split("/", 1)
        item = bus.get_object(service, "/" + path)
        self.item = dbus.Interface(item, dbus.PROPERTIES_IFACE)
        path = self.item.Get("org.kde.StatusNotifierItem", "Menu")
        self.menu = dbus.Interface(bus.get_object(service, path), "com.canonical.dbusmenu")

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

    def click(self, label):
        click_menu_item(label)


ENGLISH_TOP = ["⚠️ Not activated — click to enable Accessibility", "---", "○ selection monitor not running", "---",
               "Explanation Length", "Explanation Style", "Model Tier", "Output Language", "---",
               "Pause selection", "Explain Text on Screen…", "Close current card", "---", "History",
               "Check for Updates…", "Settings…", "Quit"]
SUBMENUS = {"Explanation Length": ["Short", "Medium", "Detailed"],
            "Explanation Style": ["Plain", "Academic", "Coding", "Language learning"],
            "Model Tier": ["Fast", "High quality"],
            "Output Language": ["Match input", "Chinese", "English"]}


def sni_english(desktop):
    watcher = Watcher(desktop)
    try:
        sni_english_checks(desktop, watcher)
    finally:
        stop(watcher.process)


def sni_english_checks(desktop, watcher):
    app = App(desktop, "sni-en")
    app.lines.expect("SHOWN", 10)
    menu = DBusMenu(watcher.lines.expect(r"ITEM (\S+)", 10).group(1))

    check(menu.labels() == ENGLISH_TOP, f"top menu {menu.labels()}")
    status = menu.shown()[2]
    check(not status["enabled"], "the status line can be clicked")
    for title, items in SUBMENUS.items():
        labels = menu.labels(title)
        check(labels == items, f"{title}: {labels}")
        check(all(entry["toggle"] in ("radio", "checkmark") for entry in menu.shown(title)), f"{title} toggles")
    check(menu.checked("Explanation Length") == ["Medium"], f"checked {menu.checked('Explanation Length')}")
    check(menu.checked("Output Language") == ["Match input"], "output language check")

    menu.click("Detailed")
    app.lines.expect("TRIGGERED detailed", 5)
    poll("Detailed checked", lambda: menu.checked("Explanation Length") == ["Detailed"], 5)

    running_icon = menu.icon()
    menu.click("Pause selection")
    poll("the paused icon", lambda: menu.icon() != running_icon, 5)
    poll("the Paused line", lambda: menu.labels()[2:4] == ["Paused", "○ selection monitor not running"], 5)
    check("Resume selection" in menu.labels(), f"no resume item: {menu.labels()}")
    check(menu.tooltip_title() == "Nubra paused", f"tooltip {menu.tooltip_title()!r}")
    menu.click("Resume selection")
    poll("the running icon again", lambda: menu.icon() == running_icon, 5)

    menu.click("Quit")
    check(app.exited(10) == 0, "Quit did not end the program cleanly")
    check("length=detailed" in app.settings(), f"the chosen length was not saved:\n{app.settings()}")


def sni_chinese_late_watcher(desktop):
    # The panel comes up after the application: the tray must still use the D-Bus host.
    app = App(desktop, "sni-zh", language="zh")
    watcher = Watcher(desktop)
    try:
        sni_chinese_checks(app, watcher)
    finally:
        stop(watcher.process)


def sni_chinese_checks(app, watcher):
    app.lines.expect("SHOWN", 10)
    menu = DBusMenu(watcher.lines.expect(r"ITEM (\S+)", 10).group(1))

    # That every label has its Chinese text is tst_traymenu's; here, that the late host reads them.
    check(menu.labels("输出语言") == ["跟随输入语言", "中文", "英文"], f"output languages {menu.labels('输出语言')}")
    menu.click("暂停划词")
    poll("the Chinese Paused line", lambda: "已暂停，选中不再弹出" in menu.labels() and "恢复划词" in menu.labels(), 5)
    menu.click("退出")
    check(app.exited(10) == 0, "退出 did not end the program cleanly")


def trayer_area():
    """Where trayer's panel is, as (x, y, width, height), once it is on the screen."""
    found = visible_windows("trayer")
    return found[0][1:] if found else None


def xembed(desktop):
    if not shutil.which("trayer"):
        print("skip - XEmbed tray: trayer is not installed", flush=True)
        return False
    desktop.spawn(["trayer", "--edge", "top", "--align", "right", "--width", "10", "--height", "24",
                   "--SetDockType", "true", "--SetPartialStrut", "true"])
    left, top, width, height = poll("trayer on the screen", trayer_area, 10)
    app = App(desktop, "xembed")
    app.lines.expect("SHOWN", 10)
    # The icon has a place of its own until trayer has taken it in.
    deadline = time.monotonic() + 10
    while True:
        x, y, w, h = map(int, app.lines.expect(r"GEOMETRY (-?\d+) (-?\d+) (\d+) (\d+)",
                                               deadline - time.monotonic()).groups())
        if left <= x and x + w <= left + width and top <= y and y + h <= top + height:
            break

    xdotool("mousemove", x + w // 2, y + h // 2)
    xdotool("click", 3)
    app.lines.expect("MENU", 5)
    screenshot(os.path.join(ARGS.artifacts, "tray-xembed-menu.png"))
    xdotool("key", "Escape")
    app.lines.expect("MENU_CLOSED", 5)
    xdotool("click", 1)
    app.lines.expect("MENU", 5)
    # The keyboard reaches the open menu: Up selects its last item, Quit.
    xdotool("key", "Up", "Return")
    app.lines.expect("TRIGGERED quitItem", 5)
    check(app.exited(10) == 0, "Quit from the XEmbed menu did not end the program cleanly")
    return True


def body(desktop):
    cases = [("D-Bus tray: labels, check marks, choosing, pause and quit", sni_english),
             ("D-Bus tray: a late panel, every label in Chinese", sni_chinese_late_watcher),
             ("XEmbed tray: right and left click open the menu", xembed)]
    failed = run_cases((name, lambda case=case: case(desktop)) for name, case in cases)
    check(not failed, f"{failed} of {len(cases)} cases failed")


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--app", required=True)
    parser.add_argument("--artifacts", required=True)
    ARGS = parser.parse_args()
    run(body, os.path.join(ARGS.artifacts, "tray-desktop.png"))


if __name__ == "__main__":
    main()
