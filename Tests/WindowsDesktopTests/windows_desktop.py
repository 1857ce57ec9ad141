#!/usr/bin/env python3
"""Nubra's windows on a virtual X11 desktop, driven the way a person drives them.

Three lookups made with nubra-cli against nubra-glossd fill the history. `nubra --history` opens the
history window; a search narrows it, "Export Markdown" saves the listed rows through the real save
dialog, "Clear All" empties it. Widgets are found by their labels through the accessibility bus and
clicked with the pointer. Screenshots of every window are left in the artifacts folder.
"""
import argparse
import json
import os
import re
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "DesktopTestKit"))
from desktop_kit import Failure, check, poll, run, xdotool  # noqa: E402

ARGS = None
WIDGETS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "DesktopTestKit", "widgets.py")


def widgets():
    found = subprocess.run(["/usr/bin/python3", WIDGETS, "Nubra"], capture_output=True, text=True)
    return json.loads(found.stdout) if found.returncode == 0 and found.stdout else []


def widget(role, name=None, text=None):
    """The first showing widget of `role` whose name (or text) matches; None when there is none."""
    for item in widgets():
        if item["role"] != role or "showing" not in item["states"] or item["width"] <= 0:
            continue
        if name is not None and not re.search(name, item["name"] or ""):
            continue
        if text is not None and not re.search(text, item["text"] or ""):
            continue
        return item
    return None


def records(count):
    """The history window's list section, when its title counts `count` records."""
    return widget("panel", name=f"^Records（{count}）$")


def click(item):
    xdotool("mousemove", item["x"] + item["width"] // 2, item["y"] + item["height"] // 2)
    xdotool("click", 1)


def window_named(title):
    found = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", f"^{title}$"], capture_output=True,
                           text=True).stdout.split()
    return found[0] if found else None


def screenshot(name, window):
    subprocess.run(["import", "-window", window, os.path.join(ARGS.artifacts, name)], check=False)


def start_glossd(desktop):
    process = desktop.spawn([ARGS.glossd, "--port", "0", "--backend", "wordnet"], stderr=True)
    line = process.stderr.readline()
    match = re.search(r"listening on (http://\S+)", line)
    check(match, f"nubra-glossd did not start: {line!r}")
    return match.group(1)


def look_up(service, word, before, after):
    done = subprocess.run([ARGS.cli, "gloss", "--base-url", service, "--before", before, "--after", after, word],
                          capture_output=True, text=True, timeout=30)
    check(done.returncode == 0, f"nubra-cli gloss {word} ended with {done.returncode}: {done.stderr}")


def start_nubra(desktop, service):
    env = dict(os.environ, NUBRA_BASE_URL=service, QT_QPA_PLATFORM="xcb",
               QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1")
    return desktop.spawn([ARGS.nubra], env=env, stderr=os.path.join(ARGS.artifacts, "nubra-stderr.txt"))


def nubra(*arguments):
    done = subprocess.run([ARGS.nubra, *arguments], timeout=10)
    check(done.returncode == 0, f"nubra {' '.join(arguments)} ended with {done.returncode}")


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


def body(desktop):
    service = start_glossd(desktop)
    start_nubra(desktop, service)
    try:
        history_window(desktop, service)
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
