#!/usr/bin/env python3
"""Nubra end to end on GNOME's compositor, where the place of a Wayland window is kept from other clients.

Headless mutter (see DesktopTestKit/mutter_kit.py): mousepad runs as a native Wayland application with
accessibility; nubra runs against nubra-glossd with its own windows on XWayland. A word selected with the
keyboard brings the bubble at the documented anchor (a line centred a fifth of the way down the screen,
the bubble above its right end) once the selection has stopped changing; a click on it opens the card
with the explanation, and the history holds the lookup with its context. `nubra --lookup` opens the card
for another word. A picture of the screen is left in the artifacts.

Exits 77 (skipped) when mutter, XWayland or mousepad are missing.
"""
import argparse
import os
import shutil
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "DesktopTestKit"))
from desktop_kit import SCREEN_H, SCREEN_W, Failure, check, history_rows, poll, skip, start_service, visible_windows, xdotool  # noqa: E402
from mutter_kit import run  # noqa: E402

ARGS = None
SENTENCE = "She sat on the bank of the river and watched the boats.\n"
# The anchor: a 240 px line centred on the screen, a fifth of the way down.
ANCHOR_RIGHT, ANCHOR_TOP = (SCREEN_W + 240) // 2, SCREEN_H // 5


def sized(width, height=None):
    return next((w for w in visible_windows("nubra") if w[3] == width and height in (None, w[4])), None)


def select(keys, word):
    keys.tap("ctrl", "home")
    keys.tap("right", times=SENTENCE.index(word))
    keys.tap("shift", "right", times=len(word))


def last_row(word):
    rows = history_rows()
    return rows and rows[-1][0] == word and rows[-1][3] and rows[-1]


def body(desktop, keys):
    service = start_service(desktop, [ARGS.glossd, "--backend", "wordnet"])
    env = dict(os.environ, NUBRA_BASE_URL=service, LANG="C.UTF-8", LANGUAGE="en")
    env.pop("QT_QPA_PLATFORM", None)  # Nubra picks XWayland for its windows itself
    desktop.spawn([ARGS.nubra], env=env, stderr=os.path.join(os.environ["XDG_RUNTIME_DIR"], "nubra-stderr.txt"))
    poll("the welcome notice", lambda: sized(300), 15)
    poll("the welcome notice gone", lambda: sized(300) is None, 10)
    path = os.path.join(os.environ["XDG_RUNTIME_DIR"], "river.txt")
    with open(path, "w", encoding="utf-8") as f:
        f.write(SENTENCE)
    desktop.spawn(["mousepad", "--disable-server", path], env=dict(os.environ, GDK_BACKEND="wayland"))

    # The editor takes the focus, and joins the accessibility bus, when it is ready: select until the
    # bubble comes.
    bubble = None
    for _ in range(10):
        select(keys, "river")
        try:
            bubble = poll("the bubble", lambda: sized(44, 44), 3)
            break
        except Failure:
            pass
    check(bubble, "no bubble for a selection in mousepad")
    _, x, y, _, _ = bubble
    check(abs(x + 22 - ANCHOR_RIGHT) <= 30 and y + 44 <= ANCHOR_TOP + 4 and ANCHOR_TOP - (y + 44) <= 16,
          f"the bubble at {x},{y} is not above the anchor's right end at {ANCHOR_RIGHT},{ANCHOR_TOP}")
    print("ok - a keyboard selection in a Wayland application brings the bubble at the anchor", flush=True)

    xdotool("mousemove", x + 22, y + 22)
    xdotool("click", "1")
    poll("the card", lambda: sized(356), 10)
    row = poll("the lookup in the history", lambda: last_row("river"), 20)
    check(row[1].endswith("bank of the ") and row[2].startswith(" and watched") and row[4] == "Mousepad",
          f"history row {row}")
    print("ok - a click on the bubble opens the card; the lookup lands in the history with its context",
          flush=True)

    select(keys, "boats")
    subprocess.run([ARGS.nubra, "--lookup"], env=env, timeout=10, check=True)
    row = poll("the second lookup in the history", lambda: last_row("boats"), 20)
    check(row[1].endswith("watched the ") and row[2].startswith("."), f"history row {row}")
    poll("the card without the bubble", lambda: sized(356) and sized(44, 44) is None, 5)
    print("ok - nubra --lookup opens the card for the word selected in the editor", flush=True)
    subprocess.run([ARGS.nubra, "--quit"], env=env, timeout=10)


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--nubra", required=True)
    parser.add_argument("--glossd", required=True)
    parser.add_argument("--artifacts", required=True)
    ARGS = parser.parse_args()
    for tool in ("mousepad", "xdotool"):
        if not shutil.which(tool):
            skip(f"{tool} is not installed")
    run(body, os.path.join(ARGS.artifacts, "app-mutter.png"))


if __name__ == "__main__":
    main()
