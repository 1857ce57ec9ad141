#!/usr/bin/env python3
"""Nubra end to end on a Wayland desktop, the way a person meets it there.

Headless sway (wlroots): a GTK 3 editor (mousepad), a GTK 4 one (GNOME Text Editor) and a Qt 6 window run
in turn as native Wayland applications with accessibility; nubra runs against nubra-glossd with its own
windows on XWayland. In each, a word selected with the keyboard and another dragged over with the
pointer bring the bubble at the word, once the selection has stopped changing; a click on it opens the
card with the streamed explanation, and the history holds the lookup with its context and the
application. Moving the caret without selecting brings nothing; `nubra --lookup` opens the card for
another word. Screenshots of the desktop are left in the artifacts.

Exits 77 (skipped) when sway or XWayland are missing; an editor that is not installed is skipped.
"""
import argparse
import os
import shutil
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "DesktopTestKit"))
from desktop_kit import (Failure, check, exit_with, history_rows, poll, run_cases, skip, start_service,  # noqa: E402
                         visible_windows, xdotool)
from wayland_editors import editors  # noqa: E402
from wayland_kit import Sway, Tool  # noqa: E402


def sized(width, height=None):
    return next((w for w in visible_windows("nubra") if w[3] == width and height in (None, w[4])), None)


def press_selection_keys(tool, text, word):
    tool.keys("Control_L+Home")
    for _ in range(text.index(word)):
        tool.keys("Right")
    for _ in range(len(word)):
        tool.keys("Shift_L+Right")


class Suite:
    def __init__(self, args, sway, tool, env):
        self.args, self.sway, self.tool, self.env = args, sway, tool, env
        self.window = None  # the editor's, in sway's tree

    def start(self, editor):
        editor.start(self.sway.spawn, self.sway.env, self.sway.env["XDG_RUNTIME_DIR"])
        # sway lays a new window out in a transaction of its own: until then it has no title bar above it.
        self.window = poll(f"{editor.label}'s window", lambda: next(
            (w for w in self.sway.windows() if w["pid"] == editor.process.pid and w.get("focused")
             and w["rect"]["y"] > 0), None), 30)

    def origin(self):
        """Where the editor's window content starts on the screen, from sway's tree."""
        window = next(w for w in self.sway.windows() if w["id"] == self.window["id"])
        return window["rect"]["x"], window["rect"]["y"]

    def last_row(self, word):
        rows = history_rows(self.env["XDG_DATA_HOME"])
        return rows and rows[-1][0] == word and rows[-1][3] and rows[-1]

    def bubble_at(self, editor, word, how):
        """The bubble, checked to stand at the word and to have left the editor its focus."""
        rect = poll(f"where {word!r} is in {editor.label}",
                    lambda: editor.words(self.origin(), self.sway.env, word).get(word), 10)

        def near(bubble):
            # Just above the word's end (below it when there is no room above).
            _, x, y, _, _ = bubble
            return (rect["x"] - 44 <= x <= rect["x"] + rect["width"] + 44
                    and rect["y"] - 60 <= y <= rect["y"] + rect["height"] + 16)
        try:
            bubble = poll(f"the bubble for {word!r} {how}", lambda: (b := sized(44, 44)) and near(b) and b, 10)
        except Failure:
            shot = self.sway.screenshot(f"{editor.label}-{how}")
            raise Failure(f"no bubble at {word!r} at {rect}: {sized(44, 44)} (see {shot})")
        self.sway.screenshot(f"{editor.label}-{how}")
        _, x, y, _, _ = bubble
        check(self.sway.focused_window()["id"] == self.window["id"], "showing the bubble took the focus")
        return x, y

    def look_up(self, editor, word, where):
        """Clicks the bubble at `where`; the card and the history row with the word's context follow."""
        x, y = where
        xdotool("mousemove", x + 22, y + 22)
        xdotool("click", "1")
        poll("the card", lambda: sized(356), 10)
        try:
            row = poll(f"the lookup of {word!r} in the history", lambda: self.last_row(word), 20)
        except Failure:
            raise Failure(f"no lookup of {word!r} in the history, which ends with "
                          f"{history_rows(self.env['XDG_DATA_HOME'])[-1:]}")
        line = editor.text.split("\n")[0]
        before, after = line[:line.index(word)], line[line.index(word) + len(word):]
        selected, got_before, got_after, gloss, source = row
        check(got_before.endswith(before[-12:]) and got_after.startswith(after[:12]),
              f"context {got_before!r} {got_after!r}")
        check(source == editor.source, f"the lookup came from {source!r}")
        check(word in gloss.lower(), f"the explanation {gloss[:80]!r}")

    def select_with_keys(self, editor, word):
        """Selects `word` with the keyboard until the editor has it whole: a window just started takes
        the focus when it is ready, and GTK 4 may let one of many quick keys go. A selection that came
        out wrong is ended with a caret move, which takes its bubble away."""
        for _ in range(5):
            press_selection_keys(self.tool, editor.text, word)
            try:
                poll("the selection", lambda: self.tool.ask("primary").get("text") == word, 2)
                return
            except Failure:
                self.tool.keys("Right")
                poll("no bubble after the caret moved", lambda: sized(44, 44) is None, 5)
        raise Failure(f"{editor.label} did not take the keys that select {word!r}")

    def editor_case(self, editor):
        if not editor.installed():
            print(f"ok: {editor.label} # SKIP {editor.argv[0]} is not installed", flush=True)
            return False
        self.start(editor)
        try:
            self.select_with_keys(editor, editor.typed)
            self.look_up(editor, editor.typed, self.bubble_at(editor, editor.typed, "typed"))
            self.tool.drag(*editor.drag_span(self.origin(), self.sway.env))
            self.look_up(editor, editor.dragged, self.bubble_at(editor, editor.dragged, "dragged"))
            self.sway.screenshot(f"{editor.label}-card")
        finally:
            editor.stop()

    def caret_and_lookup(self, editor):
        """A caret move selects nothing: no bubble. `nubra --lookup` (what a shortcut in sway's settings
        runs) opens the card for the selection, without the bubble and without taking the focus."""
        self.start(editor)
        try:
            self.tool.keys("Control_L+End")
            self.tool.keys("Control_L+Home")
            try:
                poll("a bubble", lambda: sized(44, 44), 1)
            except Failure:
                pass
            else:
                raise Failure("a caret move without a selection brought the bubble")

            self.select_with_keys(editor, "boats")
            subprocess.run([self.args.nubra, "--lookup"], env=self.env, timeout=10, check=True)
            row = poll("the lookup in the history", lambda: self.last_row("boats"), 20)
            check(row[1].endswith("watched the ") and row[2].startswith("."), f"context {row}")
            poll("the card without the bubble", lambda: sized(356) and sized(44, 44) is None, 5)
            check(self.sway.focused_window()["id"] == self.window["id"], "nubra --lookup took the focus")
            self.sway.screenshot("lookup")
        finally:
            editor.stop()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--nubra", required=True)
    parser.add_argument("--glossd", required=True)
    parser.add_argument("--tool", required=True)
    parser.add_argument("--textwindow", required=True)
    parser.add_argument("--artifacts", required=True)
    args = parser.parse_args()
    artifacts = os.path.join(args.artifacts, "app_wayland")
    shutil.rmtree(artifacts, ignore_errors=True)
    os.makedirs(artifacts)
    if not shutil.which("mousepad"):
        skip("mousepad is not installed")

    mousepad, *_ = every_editor = editors(args.textwindow)
    with Sway(artifacts) as sway:
        tool = Tool(sway, args.tool, pointer=True)
        os.environ["DISPLAY"] = sway.env["DISPLAY"]  # xdotool reaches Nubra's windows on XWayland
        service = start_service(sway, [args.glossd, "--backend", "wordnet"])
        env = dict(sway.env, NUBRA_BASE_URL=service, LANG="C.UTF-8", LANGUAGE="en",
                   NUBRA_DEBUG_LOG=os.path.join(artifacts, "debug.log"))
        nubra = sway.spawn([args.nubra], env=env, stderr=os.path.join(artifacts, "nubra-stderr.txt"))
        # Nubra starts with the session; its welcome notice goes after four seconds, and then the bubble
        # is its only 44 x 44 window. The editors are opened after.
        poll("the welcome notice", lambda: sized(300), 10)
        poll("the welcome notice gone", lambda: sized(300) is None, 10)
        suite = Suite(args, sway, tool, env)
        cases = [(f"{editor.label}: keyboard and pointer selections", lambda e=editor: suite.editor_case(e))
                 for editor in every_editor]
        cases.append(("a caret move, and nubra --lookup", lambda: suite.caret_and_lookup(mousepad)))
        failures = run_cases(cases, after_failure=lambda name: sway.screenshot("failed"))
        subprocess.run([args.nubra, "--quit"], env=env, timeout=10)
        nubra.wait(timeout=10)
    return 1 if failures else 0


if __name__ == "__main__":
    exit_with(main)
