#!/usr/bin/env python3
"""Nubra end to end on a virtual X11 desktop, the way a person meets it.

mousepad holds a sentence; nubra-glossd answers on a free port; nubra runs against it with a private
HOME. A double-click on a word brings the bubble while the editor keeps its focus, a click on the bubble
opens the card with the streamed explanation, Escape closes it, and the history database holds the
lookup with its context. In hotkey mode the hot key opens the card at once. A second `nubra --quit` ends
the first; SIGTERM ends Nubra after saving its settings. Screenshots of bubble and card are left in the artifacts folder.
"""
import argparse
import os
import re
import sqlite3
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "DesktopTestKit"))
from desktop_kit import Failure, check, poll, run, start_mousepad, word_rect, xdotool  # noqa: E402

ARGS = None
SENTENCE = "She sat on the bank of the river and watched the boats.\n"


def nubra_windows():
    """Visible windows of Nubra, as (id, x, y, width, height)."""
    ids = subprocess.run(["xdotool", "search", "--onlyvisible", "--class", "nubra"], capture_output=True,
                         text=True).stdout.split()
    windows = []
    for window in ids:
        shape = subprocess.run(["xdotool", "getwindowgeometry", "--shell", window], capture_output=True,
                               text=True).stdout
        values = dict(line.split("=", 1) for line in shape.split() if "=" in line)
        if "WIDTH" in values:
            windows.append((window, int(values["X"]), int(values["Y"]), int(values["WIDTH"]), int(values["HEIGHT"])))
    return windows


def bubble():
    return next((w for w in nubra_windows() if w[3] == 44 and w[4] == 44), None)


def card():
    return next((w for w in nubra_windows() if w[3] == 356), None)


def focused():
    return subprocess.run(["xdotool", "getwindowfocus"], capture_output=True, text=True).stdout.strip()


def history_rows():
    path = os.path.join(os.environ["XDG_DATA_HOME"], "Nubra", "history.sqlite3")
    if not os.path.exists(path):
        return []
    try:
        with sqlite3.connect(f"file:{path}?mode=ro", uri=True, timeout=1) as db:
            return db.execute("SELECT selected_text, context_before, context_after, gloss, source_app FROM history "
                              "ORDER BY id").fetchall()
    except sqlite3.Error:
        return []


def start_glossd(desktop):
    process = desktop.spawn([ARGS.glossd, "--port", "0", "--backend", "wordnet"], stderr=True)
    line = process.stderr.readline()
    match = re.search(r"listening on (http://\S+)", line)
    check(match, f"nubra-glossd did not start: {line!r}")
    return match.group(1)


def start_nubra(desktop, service, trigger=None):
    if trigger:
        config = os.path.join(os.environ["XDG_CONFIG_HOME"], "Nubra")
        os.makedirs(config, exist_ok=True)
        with open(os.path.join(config, "Nubra.conf"), "w", encoding="utf-8") as f:
            f.write(f"[General]\ntrigger={trigger}\n")
    env = dict(os.environ, NUBRA_BASE_URL=service, QT_QPA_PLATFORM="xcb")
    return desktop.spawn([ARGS.nubra], env=env, stderr=os.path.join(ARGS.artifacts, "nubra-stderr.txt"))


def select_with_keyboard(window, start, length):
    xdotool("windowactivate", "--sync", window)
    xdotool("key", "ctrl+Home")
    xdotool("key", "--repeat", start, "Right")
    xdotool("key", "--repeat", length, "shift+Right")


def double_click(rect):
    xdotool("mousemove", rect["x"] + rect["width"] // 2, rect["y"] + rect["height"] // 2)
    xdotool("click", "--repeat", 2, "--delay", 80, 1)


def screenshot(name, window):
    _, x, y, width, height = window
    # The window with some of what lies around it, so its placement can be judged too.
    left, top = max(0, x - 150), max(0, y - 150)
    subprocess.run(["import", "-window", "root", "-crop", f"{width + 300}x{height + 300}+{left}+{top}",
                    os.path.join(ARGS.artifacts, name)], check=False)


def mouse_lookup(desktop, editor, rect):
    # Double-clicking until the bubble comes also waits for Nubra to start capture.
    deadline = time.monotonic() + 30
    shown = None
    while shown is None and time.monotonic() < deadline:
        xdotool("windowactivate", "--sync", editor)
        double_click(rect)
        try:
            shown = poll("the bubble", bubble, 3)
        except Failure:
            shown = None
    check(shown is not None, "no bubble after double-clicking a word")
    _, x, y, _, height = shown
    word_right = rect["x"] + rect["width"]
    check(y + height <= rect["y"] and rect["y"] - (y + height) <= 12 and abs(x - (word_right - 22)) <= 2,
          f"bubble at {shown[1:]} is not just above the end of the word at {rect}")
    check(focused() == editor or focused() in subprocess.run(
        ["xdotool", "search", "--class", "mousepad"], capture_output=True, text=True).stdout.split(),
        "the bubble took the focus from the editor")
    screenshot("bubble.png", shown)
    print("ok - a double-click brings the bubble just above the word; the editor keeps its focus", flush=True)

    xdotool("mousemove", shown[1] + 22, shown[2] + 22)
    # Press and release at once: the release arrives after the bubble has gone, and must not count as
    # the end of a new selection in the editor (which would bring the bubble back and close the card).
    xdotool("mousedown", 1, "mouseup", 1)
    opened = poll("the card", card, 5)
    deadline = time.monotonic() + 1.0  # beyond the 0.3 s debounce and a capture
    while time.monotonic() < deadline:
        check(bubble() is None and card() is not None, "the click on the bubble brought the bubble back")
        time.sleep(0.05)
    rows = poll("the lookup in the history", history_rows, 20)
    check(rows[-1][0] == "bank", f"history holds {rows[-1]}")
    check(rows[-1][1].endswith("sat on the ") and rows[-1][2].startswith(" of the river"),
          f"context not stored: {rows[-1]}")
    check(rows[-1][3], "an empty explanation was stored")
    check(rows[-1][4] == "Mousepad", f"source application stored as {rows[-1][4]!r}")
    opened = poll("the card to hold the explanation", lambda: (card() or (None,) * 5)[4] > 60 and card(), 5)
    screenshot("card.png", opened)
    print("ok - a click on the bubble opens the card; the explanation lands in the history", flush=True)

    xdotool("key", "Escape")
    poll("the card to close on Escape", lambda: card() is None, 5)
    print("ok - Escape closes the card", flush=True)


def body(desktop):
    editor = start_mousepad(desktop, SENTENCE, name="river.txt")
    service = start_glossd(desktop)
    nubra = start_nubra(desktop, service)
    rect = poll("mousepad on the accessibility bus", lambda: word_rect("mousepad", "bank"), 30)
    mouse_lookup(desktop, editor, rect)

    quitter = subprocess.run([ARGS.nubra, "--quit"], timeout=10)
    check(quitter.returncode == 0, f"nubra --quit ended with {quitter.returncode}")
    try:
        nubra.wait(timeout=10)
    except subprocess.TimeoutExpired:
        raise Failure("nubra --quit did not end the running Nubra")
    print("ok - a second nubra --quit ends the first", flush=True)

    second = start_nubra(desktop, service, trigger="hotkey")
    deadline = time.monotonic() + 30
    opened = None
    while opened is None and time.monotonic() < deadline:
        select_with_keyboard(editor, SENTENCE.index("river"), len("river"))
        xdotool("key", "alt+g")
        try:
            opened = poll("the card after the hot key", card, 3)
        except Failure:
            opened = None
    if opened is None:
        print(f"# second nubra: {second.poll()}", flush=True)
    check(opened is not None, "the hot key did not open the card")
    check(bubble() is None, "hotkey mode showed a bubble")
    rows = poll("the hot-key lookup in the history", lambda: [r for r in history_rows() if r[0] == "river"], 20)
    check(rows[-1][1].endswith("bank of the "), f"hot-key context: {rows[-1]}")
    print("ok - in hotkey mode the hot key opens the card at once", flush=True)

    second.terminate()
    try:
        check(second.wait(timeout=10) == 0, f"SIGTERM ended nubra with {second.returncode}")
    except subprocess.TimeoutExpired:
        raise Failure("nubra did not end on SIGTERM")
    with open(os.path.join(os.environ["XDG_CONFIG_HOME"], "Nubra", "Nubra.conf"), encoding="utf-8") as f:
        saved = f.read()
    check("trigger=hotkey" in saved and "contextRadius=200" in saved, f"settings not saved on SIGTERM: {saved}")
    print("ok - SIGTERM ends Nubra in order and saves its settings", flush=True)


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--nubra", required=True)
    parser.add_argument("--glossd", required=True)
    parser.add_argument("--artifacts", required=True)
    ARGS = parser.parse_args()
    run(body, os.path.join(ARGS.artifacts, "app-desktop.png"))


if __name__ == "__main__":
    main()
