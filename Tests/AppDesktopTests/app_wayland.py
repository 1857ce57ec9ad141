#!/usr/bin/env python3
"""Nubra end to end on a Wayland desktop, the way a person meets it there.

Headless sway (wlroots): mousepad runs as a native Wayland application with accessibility; nubra runs
against nubra-glossd with its own windows on XWayland. A word selected with the keyboard brings the
bubble just above the word, once the selection has stopped changing; a click on it opens the card
with the streamed explanation; the history holds the lookup with its context. Moving the caret
without selecting brings nothing; `nubra --lookup` opens the card for another word. Screenshots of the
desktop are left in the artifacts.

Exits 77 (skipped) when sway or XWayland are missing.
"""
import argparse
import os
import shutil
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "DesktopTestKit"))
from desktop_kit import Failure, check, exit_with, history_rows, poll, skip, start_service, visible_windows, xdotool  # noqa: E402
from wayland_kit import Sway, Tool  # noqa: E402

SENTENCE = "She sat on the bank of the river and watched the boats.\n"
WORD = "river"


def sized(width, height=None):
    return next((w for w in visible_windows("nubra") if w[3] == width and height in (None, w[4])), None)


def select_word(tool, word):
    tool.keys("Control_L+Home")
    for _ in range(SENTENCE.index(word)):
        tool.keys("Right")
    for _ in range(len(word)):
        tool.keys("Shift_L+Right")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--nubra", required=True)
    parser.add_argument("--glossd", required=True)
    parser.add_argument("--tool", required=True)
    parser.add_argument("--artifacts", required=True)
    args = parser.parse_args()
    artifacts = os.path.join(args.artifacts, "app_wayland")
    shutil.rmtree(artifacts, ignore_errors=True)
    os.makedirs(artifacts)
    if not shutil.which("mousepad"):
        skip("mousepad is not installed")

    with Sway(artifacts) as sway:
        tool = Tool(sway, args.tool)
        os.environ["DISPLAY"] = sway.env["DISPLAY"]  # xdotool reaches Nubra's windows on XWayland
        service = start_service(sway, [args.glossd, "--backend", "wordnet"])
        env = dict(sway.env, NUBRA_BASE_URL=service, LANG="C.UTF-8", LANGUAGE="en",
                   NUBRA_DEBUG_LOG=os.path.join(artifacts, "debug.log"))
        nubra = sway.spawn([args.nubra], env=env, stderr=os.path.join(artifacts, "nubra-stderr.txt"))
        # Nubra starts with the session; its welcome notice goes after four seconds, and then the bubble
        # is its only 44 x 44 window. The editor is opened after.
        poll("the welcome notice", lambda: sized(300), 10)
        poll("the welcome notice gone", lambda: sized(300) is None, 10)
        path = os.path.join(sway.env["XDG_RUNTIME_DIR"], "river.txt")
        with open(path, "w", encoding="utf-8") as f:
            f.write(SENTENCE)
        sway.spawn(["mousepad", "--disable-server", path], env=dict(sway.env, GDK_BACKEND="wayland"))
        editor = poll("mousepad's window", lambda: next((w for w in sway.windows() if "river.txt" in (w.get("name") or "")
                                                         and w.get("focused")), None), 30)

        # Moving the caret selects nothing: no bubble.
        tool.keys("Control_L+End")
        tool.keys("Control_L+Home")
        try:
            poll("a bubble", lambda: sized(44, 44), 1)
        except Failure:
            pass
        else:
            raise Failure("a caret move without a selection brought the bubble")

        select_word(tool, WORD)
        bubble = poll("the bubble", lambda: sized(44, 44), 10)
        shot = sway.screenshot("bubble")
        content = editor["rect"]
        _, x, y, _, _ = bubble
        # Just above the word's end, on the editor's first line of text.
        check(content["x"] <= x <= content["x"] + 600 and content["y"] - 44 <= y <= content["y"] + 60,
              f"the bubble at {x},{y} is not at the selection in the editor at {content} (see {shot})")
        check(sway.focused_window()["id"] == editor["id"], "showing the bubble took the focus from the editor")

        xdotool("mousemove", x + 22, y + 22)
        xdotool("click", "1")
        poll("the card", lambda: sized(356), 10)
        rows = poll("the lookup in the history", lambda: [r for r in history_rows(env["XDG_DATA_HOME"]) if r[3]], 20)
        sway.screenshot("card")
        selected, before, after, gloss, source = rows[-1]
        check((selected, source) == (WORD, "Mousepad"), f"history row {rows[-1]}")
        check(before.endswith("bank of the ") and after.startswith(" and watched"), f"context {before!r} {after!r}")
        check(WORD in gloss.lower(), f"the explanation {gloss[:80]!r}")

        # What a shortcut in sway's own settings runs: the card opens for the selection, the bubble goes.
        select_word(tool, "boats")
        subprocess.run([args.nubra, "--lookup"], env=env, timeout=10, check=True)
        rows = poll("the second lookup in the history",
                    lambda: (rows := history_rows(env["XDG_DATA_HOME"])) and rows[-1][0] == "boats" and rows, 20)
        check(rows[-1][1].endswith("watched the ") and rows[-1][2].startswith("."), f"context {rows[-1]}")
        poll("the card without the bubble", lambda: sized(356) and sized(44, 44) is None, 5)
        check(sway.focused_window()["id"] == editor["id"], "nubra --lookup took the focus from the editor")
        sway.screenshot("lookup")
        subprocess.run([args.nubra, "--quit"], env=env, timeout=10)
        nubra.wait(timeout=10)
    print("ok: app_wayland on sway", flush=True)
    return 0


if __name__ == "__main__":
    exit_with(main)
