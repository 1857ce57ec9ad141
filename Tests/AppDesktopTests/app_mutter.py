#!/usr/bin/env python3
"""Nubra end to end on GNOME's compositor, where the place of a Wayland window is kept from other clients.

Headless mutter (see DesktopTestKit/mutter_kit.py): a GTK 3 editor (mousepad), a GTK 4 one (GNOME Text
Editor) and a Qt 6 window run in turn as native Wayland applications with accessibility; nubra runs
against nubra-glossd with its own windows on XWayland. In each, a word selected with the keyboard and
another dragged over with the pointer bring the bubble at the documented anchor (a line centred a fifth
of the way down the screen, the bubble above its right end) once the selection has stopped changing; a
click on it opens the card with the explanation, and the history holds the lookup with its context.
`nubra --lookup` opens the card for another word. A picture of the screen is left in the artifacts.

Exits 77 (skipped) when mutter, XWayland or mousepad are missing; an editor that is not installed is
skipped.
"""
import argparse
import os
import shutil
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "DesktopTestKit"))
from desktop_kit import SCREEN_H, SCREEN_W, Failure, check, history_rows, poll, skip, start_service, visible_windows, xdotool  # noqa: E402
from mutter_kit import run  # noqa: E402
from wayland_editors import editors  # noqa: E402

ARGS = None
# The anchor: a 240 px line centred on the screen, a fifth of the way down.
ANCHOR_RIGHT, ANCHOR_TOP = (SCREEN_W + 240) // 2, SCREEN_H // 5


def maximize(editor, keys):
    """GNOME tells no client where a window is, but a maximized one starts at the screen's corner."""
    keys.tap("super", "up")
    poll(f"{editor.label} maximized", lambda: editor.words((0, 0), os.environ).get("window", {}).get("width")
         == SCREEN_W, 10)


def sized(width, height=None):
    return next((w for w in visible_windows("nubra") if w[3] == width and height in (None, w[4])), None)


def select(keys, text, word):
    keys.tap("ctrl", "home")
    keys.tap("right", times=text.index(word))
    keys.tap("shift", "right", times=len(word))


def primary():
    """The primary selection, as XWayland hands it on from the Wayland applications."""
    try:
        return subprocess.run(["xclip", "-o", "-selection", "primary"], capture_output=True, text=True,
                              timeout=5).stdout
    except subprocess.TimeoutExpired:
        return None


def select_exactly(keys, editor, word):
    """Selects `word` with the keyboard until the editor has it whole: a window just started takes the
    focus, and joins the accessibility bus, when it is ready. A selection that came out wrong is ended
    with a caret move, which takes its bubble away."""
    for _ in range(10):
        select(keys, editor.text, word)
        try:
            poll("the selection", lambda: primary() == word, 3)
            return
        except Failure:
            keys.tap("right")
            poll("no bubble after the caret moved", lambda: sized(44, 44) is None, 5)
    raise Failure(f"{editor.label} did not take the keys that select {word!r}")


def drag_exactly(keys, editor):
    """Drags over `dragged` until the editor has it selected: mutter may still be growing the window it
    just maximized. False without a screen cast to place the pointer on."""
    span = editor.drag_span((0, 0), os.environ)
    for _ in range(5):
        if not keys.drag(*span):
            return False
        try:
            poll("the selection", lambda: primary() == editor.dragged, 2)
            return True
        except Failure:
            pass
    raise Failure(f"{editor.label}: a drag from {span[0]} to {span[1]} did not select {editor.dragged!r}")


def last_row(word):
    rows = history_rows()
    return rows and rows[-1][0] == word and rows[-1][3] and rows[-1]


def at_anchor(bubble):
    _, x, y, _, _ = bubble
    return abs(x + 22 - ANCHOR_RIGHT) <= 30 and y + 44 <= ANCHOR_TOP + 4 and ANCHOR_TOP - (y + 44) <= 16


def look_up(editor, word, bubble):
    """Clicks the bubble: the card, and the lookup in the history with the word's context."""
    check(at_anchor(bubble), f"the bubble at {bubble[1]},{bubble[2]} is not above the anchor's right end "
          f"at {ANCHOR_RIGHT},{ANCHOR_TOP}")
    xdotool("mousemove", bubble[1] + 22, bubble[2] + 22)
    xdotool("click", "1")
    poll("the card", lambda: sized(356), 10)
    try:
        row = poll(f"the lookup of {word!r} in the history", lambda: last_row(word), 20)
    except Failure:
        raise Failure(f"{editor.label}: no lookup of {word!r}; the history ends with {history_rows()[-1:]}")
    line = editor.text.split("\n")[0]
    before, after = line[:line.index(word)], line[line.index(word) + len(word):]
    check(row[1].endswith(before[-12:]) and row[2].startswith(after[:12]), f"{editor.label}: history row {row}")


def editor_case(desktop, keys, editor):
    editor.start(desktop.spawn, os.environ, os.environ["XDG_RUNTIME_DIR"])
    try:
        select_exactly(keys, editor, editor.typed)
        look_up(editor, editor.typed, poll("the bubble", lambda: sized(44, 44), 5))
        print(f"ok - {editor.label}: a keyboard selection brings the bubble at the anchor; a click on it "
              "opens the card, and the lookup lands in the history with its context", flush=True)

        maximize(editor, keys)
        if not drag_exactly(keys, editor):
            print(f"ok - {editor.label}: pointer selection # SKIP no screen cast to place the pointer on", flush=True)
            return
        bubble = poll("the bubble after the drag", lambda: (b := sized(44, 44)) and at_anchor(b) and b, 10)
        look_up(editor, editor.dragged, bubble)
        keys.screenshot(os.path.join(ARGS.artifacts, f"app-mutter-{editor.label.replace(' ', '')}.png"))
        print(f"ok - {editor.label}: a pointer selection does the same", flush=True)
    finally:
        editor.stop()


def body(desktop, keys):
    service = start_service(desktop, [ARGS.glossd, "--backend", "wordnet"])
    env = dict(os.environ, NUBRA_BASE_URL=service, LANG="C.UTF-8", LANGUAGE="en")
    env.pop("QT_QPA_PLATFORM", None)  # Nubra picks XWayland for its windows itself
    desktop.spawn([ARGS.nubra], env=env, stderr=os.path.join(os.environ["XDG_RUNTIME_DIR"], "nubra-stderr.txt"))
    poll("the welcome notice", lambda: sized(300), 15)
    poll("the welcome notice gone", lambda: sized(300) is None, 10)

    # Without the frame Qt draws itself where the compositor draws none, its text starts where its
    # window does.
    mousepad, *_ = every_editor = editors(ARGS.textwindow, {"QT_WAYLAND_DISABLE_WINDOWDECORATION": "1"})
    for editor in every_editor:
        if editor.installed():
            editor_case(desktop, keys, editor)
        else:
            print(f"ok - {editor.label} # SKIP {editor.argv[0]} is not installed", flush=True)

    mousepad.start(desktop.spawn, os.environ, os.environ["XDG_RUNTIME_DIR"])
    select_exactly(keys, mousepad, "boats")
    subprocess.run([ARGS.nubra, "--lookup"], env=env, timeout=10, check=True)
    row = poll("the lookup from nubra --lookup in the history", lambda: last_row("boats"), 20)
    check(row[1].endswith("watched the ") and row[2].startswith("."), f"history row {row}")
    poll("the card without the bubble", lambda: sized(356) and sized(44, 44) is None, 5)
    print("ok - nubra --lookup opens the card for the word selected in the editor", flush=True)
    subprocess.run([ARGS.nubra, "--quit"], env=env, timeout=10)


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--nubra", required=True)
    parser.add_argument("--glossd", required=True)
    parser.add_argument("--textwindow", required=True)
    parser.add_argument("--artifacts", required=True)
    ARGS = parser.parse_args()
    for tool in ("mousepad", "xdotool", "xclip"):
        if not shutil.which(tool):
            skip(f"{tool} is not installed")
    run(body, os.path.join(ARGS.artifacts, "app-mutter.png"))


if __name__ == "__main__":
    main()
