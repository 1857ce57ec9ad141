#!/usr/bin/env python3
"""Capture on a headless sway: the primary selection and its changes through data-control, a selection
captured by Nubra (nubra-capture-probe) in a Wayland application without accessibility, the copy
fallback there (the user's clipboard intact afterwards), the focused window's rectangle from sway's
IPC, and life after the compositor.

One sway for the whole suite (see DesktopTestKit/wayland_kit.py). Exits 77 (skipped) when sway or
XWayland are missing.
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "DesktopTestKit"))
from desktop_kit import Failure, Lines, check, exit_with, poll, run_cases, skip  # noqa: E402
from wayland_kit import Sway, Tool  # noqa: E402

TEXT = "Wayland selections travel\nsecond line of the file\n"
CLIPBOARD = "before — 剪贴板 ✓"


def primary_selection(sway, tool, probe):
    """wl-copy --primary sets it; Nubra reads it and hears of each change, a clear included."""
    for n, text in enumerate(["first primary", "zweite Auswahl ✓"]):
        sway.spawn(["wl-copy", "--foreground", "--primary", text])
        poll(f"primary selection {n}", lambda: tool.ask("primary").get("text") == text, 5)
        tool.wait_event("a change of the primary selection", lambda e: e["event"] == "primary" and not e["cleared"])
    subprocess.run(["wl-copy", "--primary", "--clear"], env=sway.env, check=True)
    tool.wait_event("the primary selection cleared", lambda e: e["event"] == "primary" and e["cleared"])
    check(tool.ask("primary").get("text") is None, "a cleared primary selection still read as text")


def clipboard_formats(sway):
    types = subprocess.run(["wl-paste", "--list-types"], env=sway.env, capture_output=True, text=True,
                           timeout=5).stdout.split("\n")
    return {t: subprocess.run(["wl-paste", "--no-newline", "--type", t], env=sway.env, capture_output=True,
                              timeout=5).stdout for t in types if t}


def start_mousepad(sway):
    """mousepad as a Wayland application with accessibility off: only the primary selection and the
    copy can read it."""
    path = os.path.join(sway.env["XDG_RUNTIME_DIR"], "wayland.txt")
    with open(path, "w", encoding="utf-8") as f:
        f.write(TEXT)
    sway.spawn(["mousepad", "--disable-server", path], env=dict(sway.env, GDK_BACKEND="wayland", NO_AT_BRIDGE="1"))
    poll("mousepad's window", lambda: any("wayland.txt" in (w.get("name") or "") and w.get("focused")
                                          for w in sway.windows()), 30)


def capture_in_mousepad(sway, tool, probe):
    """Words selected with the keyboard in mousepad are captured by Nubra (the probe) once the
    selection has settled, read from the primary selection."""
    probe.drain()
    # Control+Home, then Shift+Control+Right twice: the first two words.
    tool.keys("Control_L+Home")
    tool.keys("Shift_L+Control_L+Right")
    tool.keys("Shift_L+Control_L+Right")
    got = probe.next_json(5)
    sway.screenshot("mousepad-selected")
    check(got and got.get("text") == "Wayland selections" and got.get("path") == "primary",
          f"the probe captured {got}")
    # Only sway knows which Wayland application is in front (no accessibility, no X11 window).
    check(got.get("identifier") == "mousepad", f"the capture came from {got.get('identifier')!r}")


def copy_from_mousepad(sway, tool, probe):
    """The copy fallback on mousepad's selection: the selected text comes back and the user's
    clipboard is the same bytes afterwards, every format wl-copy offered for a text, and an image far
    bigger than a pipe holds at once."""
    poll("mousepad's selection on PRIMARY", lambda: tool.ask("primary").get("text") == "Wayland selections", 5)
    image = os.urandom(300 * 1024)
    for user_clipboard in ([CLIPBOARD.encode()], ["--type", "image/png", image]):
        *options, content = user_clipboard
        wl_copy = sway.spawn(["wl-copy", "--foreground", *options], stdin=True)
        wl_copy.stdin.buffer.write(content)
        wl_copy.stdin.close()
        saved = poll("every format of the clipboard set by wl-copy",
                     lambda: (f := clipboard_formats(sway)) and all(v == content for v in f.values()) and f, 5)
        copied = tool.ask("copy")
        check(copied.get("copied") == "Wayland selections", f"the copy gave {copied}")
        after = clipboard_formats(sway)
        check(after == saved, f"the clipboard had {list(saved)}, after the copy {list(after)}, "
              f"same bytes: {[after.get(t) == v for t, v in saved.items()]}")


def focused_window(sway, tool, probe):
    """The focused window's content rectangle: floating without a border it is where we put it; with
    a title bar and borders, sway's decoration is drawn just outside it and not inside."""
    window = sway.focused_window()
    check(window, "sway has no focused window")
    sway.swaymsg(f"[con_id={window['id']}]", "floating enable, border none, resize set 600 400, "
                 "move position 100 150")
    # sway applies the commands in a transaction of its own: what is read may lag behind them a little.
    expected = {"x": 100, "y": 150, "width": 600, "height": 400, "pid": window["pid"]}
    try:
        poll("the window's new place", lambda: tool.ask("window") == expected, 5)
    except Failure:
        raise Failure(f"floating window at 100,150 600x400 read as {tool.ask('window')}; sway: {sway.focused_window()}")

    sway.swaymsg(f"[con_id={window['id']}]", "border normal 2")
    poll("the title bar", lambda: (w := sway.focused_window()) and w["border"] == "normal"
         and w["current_border_width"] == 2, 5)
    got = tool.ask("window")
    x, y, width, height = got["x"], got["y"], got["width"], got["height"]
    shot = sway.screenshot("floating-window")
    # sway's colours for the focused window's title bar and border.
    decoration = {"#285577", "#4C7899"}
    right, middle = x + width - 5, y + height // 2
    check(pixel(shot, right, y - 1) in decoration and pixel(shot, x - 1, middle) in decoration,
          f"no title bar above or border left of {got} (see {shot})")
    check(pixel(shot, right, y) not in decoration and pixel(shot, x, middle) not in decoration,
          f"sway's decoration inside {got} (see {shot})")


def compositor_gone(sway, tool, probe):
    """Without its compositor Nubra answers nothing, at once, and lives on."""
    sway.stop_compositor()
    started = time.monotonic()
    check(tool.ask("primary", timeout=3).get("text") is None, "a primary selection without a compositor")
    check(tool.ask("copy", timeout=3).get("error"), "a copy without a compositor")
    check(tool.ask("window", timeout=3).get("window", 0) is None, "a focused window without a compositor")
    check(time.monotonic() - started < 2, f"answers took {time.monotonic() - started:.1f} s without a compositor")


def pixel(path, x, y):
    """The colour of one pixel of a PNG as #RRGGBB."""
    found = subprocess.run(["convert", path, "-crop", f"1x1+{x}+{y}", "txt:-"], capture_output=True, text=True)
    match = re.search(r"#[0-9A-F]{6}", found.stdout)
    return match.group(0) if match else None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--probe", required=True)
    parser.add_argument("--artifacts", required=True)
    args = parser.parse_args()
    artifacts = os.path.join(args.artifacts, "wayland_sway")
    shutil.rmtree(artifacts, ignore_errors=True)
    os.makedirs(artifacts)
    if not shutil.which("mousepad"):
        skip("mousepad is not installed")

    with Sway(artifacts) as sway:
        tool = Tool(sway, args.tool)
        globals_ = tool.ask("globals")
        check(globals_.get("wlr") or globals_.get("ext"), f"sway offers no data-control: {globals_}")
        check(globals_.get("virtualKeyboard"), f"sway offers no virtual keyboard: {globals_}")
        probe = Lines(sway.spawn([args.probe, "--trigger", "onSelection", "--radius", "12"], capture=True,
                                 stderr=os.path.join(artifacts, "probe.log")))
        ready = probe.next_json(10)
        check(ready and ready.get("event") == "ready", f"the probe did not start: {ready}")
        report = "\n".join(ready["capabilities"])
        check("wlr-data-control" in report and "virtual keyboard" in report and "window positions from sway" in report,
              f"the probe's capabilities on sway: {report}")
        start_mousepad(sway)
        cases = (primary_selection, capture_in_mousepad, copy_from_mousepad, focused_window, compositor_gone)
        failures = run_cases(((case.__name__, lambda case=case: case(sway, tool, probe)) for case in cases),
                             after_failure=lambda name: sway.screenshot(f"failed-{name}"))
    return 1 if failures else 0


if __name__ == "__main__":
    exit_with(main)
