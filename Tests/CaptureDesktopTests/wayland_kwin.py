#!/usr/bin/env python3
"""Capture on a headless KDE Plasma compositor (KWin 5.27): the primary selection of a native Wayland Qt
application through data-control, although KWin announces no selection when we bind; Nubra's capture
(nubra-capture-probe, on XWayland) of it; and the active window's rectangle from KWin's scripting.

KWin lets no client type (no virtual keyboard): the Qt text window selects its words itself, with key
events to its own editor, as a user's keys would. One KWin for the whole suite (see
DesktopTestKit/kwin_kit.py). Exits 77 (skipped) when KWin or XWayland are missing or KWin does not start.
"""
import argparse
import os
import shutil
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "DesktopTestKit"))
from desktop_kit import Lines, check, exit_with, poll, run_cases  # noqa: E402
from kwin_kit import KWin  # noqa: E402
from wayland_kit import Tool  # noqa: E402

ARGS = None


class TextWindow:
    """The Qt 6 test text window as a native Wayland client; without accessibility only the primary
    selection tells what it selects."""

    def __init__(self, kwin, path, title, accessible):
        env = dict(kwin.env, QT_QPA_PLATFORM="wayland")
        if not accessible:
            env.pop("DBUS_SESSION_BUS_ADDRESS")  # and with it the accessibility bus
        self.process = kwin.spawn([path, title, "--select-from-stdin"], env=env, stdin=True, capture=True)
        # It prints where its words are once it has shown.
        check(Lines(self.process).next_json(15), f"{title} did not start")

    def select(self, word):
        self.process.stdin.write(word + "\n")
        self.process.stdin.flush()


def nothing_before_a_selection(kwin, tool, probe, window):
    """KWin tells data-control clients of no selection until one changes: asking then answers nothing,
    at once."""
    started = time.monotonic()
    check(tool.ask("primary").get("text") is None, "a primary selection before anyone selected")
    check(time.monotonic() - started < 1, f"reading took {time.monotonic() - started:.1f} s")


def primary_from_qt(kwin, tool, probe, window):
    """Each selection of the Qt window reaches data-control as a change, and reads back whole; Nubra
    captures the settled one from there. A caret move that ends the selection gives nothing."""
    for word in ("charlie", "delta"):
        probe.drain()
        window.select(word)
        tool.wait_event(f"the change to {word}", lambda e: e["event"] == "primary" and not e["cleared"])
        check(tool.ask("primary").get("text") == word, f"the primary selection read {tool.ask('primary')}")
        got = probe.next_json(5)
        check(got and got.get("text") == word and got.get("path") == "primary", f"the probe captured {got}")
    window.select("")
    got = probe.next_json(1.5)
    check(got is None, f"a caret move captured {got}")


def accessibility_from_qt(kwin, tool, probe, window):
    """A Qt window on the accessibility bus is read there, with the words around the selection. The
    active window KWin tells follows the windows that close and open."""
    closed = window.process.pid
    window.process.terminate()
    poll("the closed window gone", lambda: tool.ask("window").get("pid") != closed, 5)
    window = TextWindow(kwin, ARGS.textwindow, "Nubra KWin Accessible", accessible=True)
    poll("the new window active", lambda: tool.ask("window").get("pid") == window.process.pid, 5)
    # A window just shown joins the accessibility bus when it is ready: select until a capture comes.
    got = None
    for _ in range(10):
        probe.drain()
        window.select("charlie")
        got = probe.next_json(3)
        if got and got.get("path") == "accessibility":
            break
    check(got and got.get("text") == "charlie" and got.get("path") == "accessibility", f"the probe captured {got}")
    check(got.get("before", "").endswith("Alpha bravo ") and got.get("after", "").startswith(" delta"),
          f"the context read {got}")


def active_window(kwin, tool, probe, window):
    """The active window's rectangle as KWin has it, followed when KWin moves the window."""
    started = time.monotonic()
    first = tool.ask("window")
    print(f"# the first ask, which loads the script into KWin: {(time.monotonic() - started) * 1000:.0f} ms",
          flush=True)
    check(first.get("pid") == window.process.pid and first.get("width", 0) > 0, f"the active window read {first}")
    kwin.run_script("nubra-test-move", "const w = workspace.activeWindow || workspace.activeClient;\n"
                    "w.frameGeometry = {x: 100, y: 150, width: 600, height: 400};\n")
    expected = {"x": 100, "y": 150, "width": 600, "height": 400, "pid": window.process.pid}
    poll("the moved window", lambda: tool.ask("window") == expected, 5)
    started = time.monotonic()
    asks = 20
    for _ in range(asks):
        tool.ask("window")
    print(f"# the active window, asked {asks} times: {(time.monotonic() - started) * 1000 / asks:.1f} ms each",
          flush=True)


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--probe", required=True)
    parser.add_argument("--textwindow", required=True)
    parser.add_argument("--artifacts", required=True)
    ARGS = args = parser.parse_args()
    artifacts = os.path.join(args.artifacts, "wayland_kwin")
    shutil.rmtree(artifacts, ignore_errors=True)
    os.makedirs(artifacts)

    with KWin(artifacts) as kwin:
        tool = Tool(kwin, args.tool, keyboard=False)
        globals_ = tool.ask("globals")
        print(f"# KWin offers: {globals_}", flush=True)
        check(globals_.get("wlr") or globals_.get("ext"), f"KWin offers no data-control: {globals_}")
        # Nubra's own windows go on XWayland.
        probe = Lines(kwin.spawn([args.probe, "--trigger", "onSelection", "--radius", "12"], capture=True,
                                 env=dict(kwin.env, QT_QPA_PLATFORM="xcb"),
                                 stderr=os.path.join(artifacts, "probe.log")))
        ready = probe.next_json(15)
        check(ready and ready.get("event") == "ready", f"the probe did not start: {ready}")
        print("# the probe on KWin: " + "; ".join(ready["capabilities"]), flush=True)
        windows = []

        def with_window(case):
            if not windows:
                windows.append(TextWindow(kwin, args.textwindow, "Nubra KWin Text", accessible=False))
            case(kwin, tool, probe, windows[0])

        failures = run_cases([("nothing_before_a_selection", lambda: nothing_before_a_selection(kwin, tool, probe, None))]
                             + [(case.__name__, lambda case=case: with_window(case))
                                for case in (primary_from_qt, active_window, accessibility_from_qt)])
    return 1 if failures else 0


if __name__ == "__main__":
    exit_with(main)
