#!/usr/bin/env python3
"""Nubra's windows on a virtual X11 desktop, driven the way a person drives them.

History: three lookups made with nubra-cli against nubra-glossd fill it; `nubra --history` opens the
window, a search narrows it, "Export Markdown" saves the listed rows through the real save dialog,
"Clear All" empties it. Settings: the trigger becomes "Hotkey", a new hot key is recorded and explains a
word in mousepad at once. Onboarding: started with the accessibility switch off, Nubra shows its
welcome notice without taking the focus; a second `nubra` opens the waiting screen, its button turns
the switch on and the guide follows; the first explanation finishes it and the window goes. The same
windows in Chinese. Widgets are found by their labels through the accessibility bus and clicked with
the pointer. Screenshots of every window are left in the artifacts folder.
"""
import argparse
import json
import os
import re
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "DesktopTestKit"))
from desktop_kit import (Failure, check, click, poll, run, set_bus_enabled, start_mousepad,  # noqa: E402
                         start_service, widget, widgets, window_named, word_rect, xdotool)

ARGS = None
def records(count):
    """The history window's list section, when its title counts `count` records."""
    return widget("panel", name=f"^Records（{count}）$")


def screenshot(name, window):
    subprocess.run(["import", "-window", window, os.path.join(ARGS.artifacts, name)], check=False)


def start_glossd(desktop):
    return start_service(desktop, [ARGS.glossd, "--backend", "wordnet"])


def look_up(service, word, before, after):
    done = subprocess.run([ARGS.cli, "gloss", "--base-url", service, "--before", before, "--after", after, word],
                          capture_output=True, text=True, timeout=30)
    check(done.returncode == 0, f"nubra-cli gloss {word} ended with {done.returncode}: {done.stderr}")


def start_nubra(desktop, service, language="en"):
    # Readable on the accessibility bus even while its switch is off, so the onboarding can be read.
    env = dict(os.environ, NUBRA_BASE_URL=service, QT_QPA_PLATFORM="xcb", QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1",
               LANGUAGE=language, LANG="C.UTF-8")
    return desktop.spawn([ARGS.nubra], env=env, stderr=os.path.join(ARGS.artifacts, "nubra-stderr.txt"))


def nubra(*arguments):
    done = subprocess.run([ARGS.nubra, *arguments], timeout=10)
    check(done.returncode == 0, f"nubra {' '.join(arguments)} ended with {done.returncode}")


def quit_nubra(process):
    nubra("--quit")
    try:
        process.wait(timeout=10)
    except subprocess.TimeoutExpired:
        raise Failure("nubra --quit did not end Nubra")


def visible_nubra_windows():
    """Nubra's windows on screen, as (id, x, y, width, height)."""
    found = []
    for window in subprocess.run(["xdotool", "search", "--onlyvisible", "--class", "nubra"], capture_output=True,
                                 text=True).stdout.split():
        shape = subprocess.run(["xdotool", "getwindowgeometry", "--shell", window], capture_output=True,
                               text=True).stdout
        values = dict(line.split("=", 1) for line in shape.split() if "=" in line)
        if "WIDTH" in values:
            found.append((window, int(values["X"]), int(values["Y"]), int(values["WIDTH"]), int(values["HEIGHT"])))
    return found


def welcome_panel():
    return next((w for w in visible_nubra_windows() if w[3] == 300), None)


def card():
    return next((w for w in visible_nubra_windows() if w[3] == 356), None)


def focused():
    return subprocess.run(["xdotool", "getwindowfocus"], capture_output=True, text=True).stdout.strip()


def select_with_keyboard(editor, sentence, word):
    xdotool("windowactivate", "--sync", editor)
    xdotool("key", "ctrl+Home")
    xdotool("key", "--repeat", sentence.index(word), "Right")
    xdotool("key", "--repeat", len(word), "shift+Right")


def hotkey_lookup(editor, keys, word):
    """Selects `word` in the editor and presses `keys` until the card opens."""
    deadline = time.monotonic() + 20
    while time.monotonic() < deadline:
        select_with_keyboard(editor, SENTENCE, word)
        xdotool("key", keys)
        try:
            return poll("the card after the hot key", card, 3)
        except Failure:
            pass
    raise Failure(f"{keys} did not open the card")


def history_window(desktop, service):
    for word, before, after in (("river", "the bank of the ", " and"), ("bank", "sat on the ", " of the"),
                                ("boats", "watched the ", ".")):
        look_up(service, word, before, after)
    nubra("--history")
    window = poll("the history window", lambda: window_named("History"), 15)
    poll("three records listed", lambda: records(3), 10)
    screenshot("history.png", window)

    field = poll("the search field", lambda: widget("text", name=r"^Search \("), 5)
    click(field)
    xdotool("type", "--delay", 20, "bank")
    # Typing alone does not search.
    time.sleep(0.3)
    check(records(3), "the list changed while typing")
    xdotool("key", "Return")
    poll("one record after the search", lambda: records(1), 10)
    print("ok - `nubra --history` opens the window; Return searches", flush=True)

    click(poll("Export Markdown", lambda: widget("push button", name="^Export Markdown$"), 5))
    dialog = poll("the save dialog", lambda: window_named("Export History"), 10)
    target = os.path.join(os.environ["XDG_RUNTIME_DIR"], "bank.md")
    name_field = poll("the dialog's file name field", lambda: widget("text", name="^File name:$", text=r"\.md$"), 10)
    click(name_field)
    xdotool("key", "ctrl+a")
    xdotool("type", "--delay", 10, target)
    xdotool("key", "Return")
    poll("the exported file", lambda: os.path.exists(target) and os.path.getsize(target) > 0, 10)
    with open(target, encoding="utf-8") as f:
        exported = f.read()
    headings = re.findall(r"^## \d+\. (.*)$", exported, re.MULTILINE)
    check(headings == ["bank"], f"the export holds {headings}, not the one listed record:\n{exported}")
    poll("the export message", lambda: widget("label", name=r"Exported 1 record\(s\) to "), 5)
    check(window_named("Export History") is None, "the save dialog stayed open")
    print("ok - Export Markdown saves the listed record through the save dialog", flush=True)

    field = widget("text", name=r"^Search \(")
    click(field)
    xdotool("key", "ctrl+a", "BackSpace", "Return")
    poll("all three back", lambda: records(3), 10)
    click(poll("Clear All", lambda: widget("push button", name="^Clear All$"), 5))
    poll("the clear message", lambda: widget("label", name=r"Cleared 3 record\(s\)\."), 5)
    poll("the empty line", lambda: widget("label", name="Select some text and Nubra will show up here."), 5)
    screenshot("history-cleared.png", window)
    print("ok - Clear All empties the history and says how many were cleared", flush=True)


SENTENCE = "She sat on the bank of the river and watched the boats.\n"


def settings_window(editor):
    nubra("--settings")
    window = poll("the settings window", lambda: window_named("Nubra Settings"), 15)
    click(poll("the trigger picker", lambda: widget("combo box", name="^On selection$"), 5))
    click(poll("the Hotkey choice", lambda: widget("list item", name="^Hotkey$"), 5))
    poll("the hot-key row", lambda: widget("label", name="^⌥G$"), 5)
    click(widget("push button", name="^Re-record$"))
    poll("the recording prompt", lambda: widget("label", name=r"^Press keys… \(Esc to cancel\)$"), 5)
    xdotool("key", "ctrl+alt+k")
    poll("the recorded hot key", lambda: widget("label", name="^⌃⌥K$"), 5)
    screenshot("settings.png", window)
    print("ok - the settings window switches to hotkey mode and records a new hot key", flush=True)

    opened = hotkey_lookup(editor, "ctrl+alt+k", "river")
    check(opened is not None, "the new hot key did not open the card")
    xdotool("key", "Escape")
    poll("the card to close", lambda: card() is None, 5)
    print("ok - the new hot key explains a word in the editor at once", flush=True)


def onboarding(desktop, service, editor):
    set_bus_enabled(False)
    nubra_process = start_nubra(desktop, service)
    panel = poll("the welcome notice", welcome_panel, 15)
    check(panel[1] == 1280 - 300 - 16 and panel[2] == 6, f"the welcome notice is at {panel[1:3]}, not the top right")
    check(focused() == editor, "the welcome notice took the focus from the editor")
    screenshot("welcome.png", panel[0])
    poll("the welcome notice to go after 4 s", lambda: welcome_panel() is None, 8)
    print("ok - started with the accessibility switch off, the welcome notice shows at the top right for a "
          "while without taking the focus", flush=True)

    nubra()
    window = poll("the onboarding window", lambda: window_named("Get Started with Nubra"), 10)
    poll("the waiting screen", lambda: widget("label", name="^Enable Accessibility$"), 5)
    screenshot("onboarding-waiting.png", window)
    click(poll("the switch button", lambda: widget("push button", name="^Turn On Accessibility$"), 5))
    poll("the guide", lambda: widget("label", name="^Authorized$"), 15)
    screenshot("onboarding-guide.png", window)
    print("ok - a second nubra shows the waiting screen; its button turns the switch on and the guide follows",
          flush=True)

    hotkey_lookup(editor, "ctrl+alt+k", "boats")
    poll("the closing confirmation", lambda: widget("label", name="^All set!$"), 20)
    poll("the onboarding window to close", lambda: window_named("Get Started with Nubra") is None, 5)
    xdotool("key", "Escape")
    print("ok - the first explanation finishes the onboarding and its window closes", flush=True)
    return nubra_process


def chinese_windows(desktop, service, editor):
    set_bus_enabled(False)
    start_nubra(desktop, service, language="zh_CN:zh")
    panel = poll("the welcome notice", welcome_panel, 15)
    screenshot("welcome-zh.png", panel[0])
    nubra()
    screenshot("onboarding-waiting-zh.png", poll("开启 Nubra", lambda: window_named("开启 Nubra"), 10))
    poll("the waiting screen in Chinese", lambda: widget("label", name="^开启辅助功能权限$"), 5)
    nubra("--settings", "about")
    screenshot("settings-about-zh.png", poll("Nubra 设置", lambda: window_named("Nubra 设置"), 10))
    poll("the about tab in Chinese", lambda: widget("label", name="^选中，瞥一眼，继续读。$"), 5)
    nubra("--history")
    screenshot("history-zh.png", poll("历史记录", lambda: window_named("历史记录"), 10))
    set_bus_enabled(True)
    print("ok - in Chinese the welcome notice, onboarding, settings and history windows show their Chinese texts",
          flush=True)


def body(desktop):
    editor = start_mousepad(desktop, SENTENCE, name="river.txt")
    service = start_glossd(desktop)
    first = start_nubra(desktop, service)
    poll("mousepad on the accessibility bus", lambda: word_rect("mousepad", "bank"), 30)
    try:
        history_window(desktop, service)
        settings_window(editor)
        quit_nubra(first)
        quit_nubra(onboarding(desktop, service, editor))
        chinese_windows(desktop, service, editor)
    except Failure:
        # What the accessibility bus saw, to tell a missing widget from a renamed one.
        with open(os.path.join(ARGS.artifacts, "widgets.json"), "w", encoding="utf-8") as f:
            json.dump(widgets(), f, ensure_ascii=False, indent=1)
        raise


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--nubra", required=True)
    parser.add_argument("--glossd", required=True)
    parser.add_argument("--cli", required=True)
    parser.add_argument("--artifacts", required=True)
    ARGS = parser.parse_args()
    run(body, os.path.join(ARGS.artifacts, "windows-desktop.png"))


if __name__ == "__main__":
    main()
