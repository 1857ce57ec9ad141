#!/usr/bin/env python3
"""Selection capture on a virtual X11 desktop: how fast it answers, and how long it can hold up the
thread that runs Nubra's interface.

Latency: the probe's "ms" field, from the mouse release to the snapshot on the main thread with the
fixed 0.3 s debounce left out, through the accessibility bus (the Qt text window) and through PRIMARY (the
same window cut off from the bus). Reference, measured in the same run: one X server round trip from a
fresh client (`xdotool getmouselocation`), which bounds how fast anything driven by a new process can
answer on this machine.

Main-thread stalls: the probe's heartbeat reports every gap of more than 20 ms on its main thread. A
hot-key capture runs against the text window while it answers, then while it is stopped (SIGSTOP), as
an application that hangs and never answers the accessibility bus again. Reference: the same capture
against the answering window. Reported, never pass/fail.
"""
import argparse
import os
import signal
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "..", "Tests", "DesktopTestKit"))
sys.path.insert(0, os.path.join(HERE, "..", "..", "Tests", "CaptureDesktopTests"))
import capture_desktop as desk  # noqa: E402
from desktop_kit import Lines, run, stop, xdotool  # noqa: E402

ARGS = None


def percentile(values, p):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(round(p / 100 * (len(ordered) - 1))))]


def report(name, values):
    print(f"{name:<32} n={len(values):<4} median={statistics.median(values):8.1f} ms  "
          f"p99={percentile(values, 99):8.1f} ms", flush=True)
    return statistics.median(values)


def start_window(desktop, title, accessible):
    env = dict(os.environ, QT_QPA_PLATFORM="xcb")
    if accessible:
        env["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1"
    else:
        env["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nonexistent"
    window = desktop.spawn([ARGS.textwindow, title], capture=True, env=env)
    words = desk.word_positions(Lines(window))
    desk.activate(title)
    return window, words


def latencies(lines, words, path, count):
    samples = []
    for i in range(count):
        word = ("charlie", "mike")[i % 2]
        desk.double_click(words[word])
        got = lines.next_json(5)
        if got and got.get("path") == path and got.get("text") == word:
            samples.append(got["ms"])
    return samples


def stalls_during(lines, seconds):
    """The longest main-thread stall reported within `seconds`, and whether a capture came through."""
    longest, captured = 0, False
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        got = lines.next_json(max(0.05, deadline - time.monotonic()))
        if got is None:
            continue
        if got.get("event") == "stall":
            longest = max(longest, got["ms"])
        elif "text" in got:
            captured = True
    return longest, captured


def body(desktop):
    reference = []
    for _ in range(ARGS.count):
        start = time.perf_counter()
        subprocess.run(["xdotool", "getmouselocation"], stdout=subprocess.DEVNULL, check=True)
        reference.append((time.perf_counter() - start) * 1000)
    ref = report("reference (X round trip)", reference)

    window, words = start_window(desktop, "Nubra Bench Text", accessible=True)
    probe, lines = desk.start_probe(desktop, "onSelection")
    desk.settle(lines, words["charlie"])
    median = report("accessibility path", latencies(lines, words, "accessibility", ARGS.count) or [0])
    print(f"{'':<32} ratio to reference: {median / ref:.1f}x", flush=True)
    stop(probe)

    plain, plain_words = start_window(desktop, "Nubra Bench Without Accessibility", accessible=False)
    probe, lines = desk.start_probe(desktop, "onSelection")
    median = report("PRIMARY path", latencies(lines, plain_words, "primary", ARGS.count) or [0])
    print(f"{'':<32} ratio to reference: {median / ref:.1f}x", flush=True)
    stop(probe)
    stop(plain)

    desk.activate("Nubra Bench Text")
    probe, lines = desk.start_probe(desktop, "hotkey", "--report-stalls")
    answering, hung = [], []
    for _ in range(ARGS.stall_runs):
        desk.double_click(words["charlie"])
        time.sleep(0.4)
        lines.drain()
        xdotool("key", "alt+g")
        answering.append(stalls_during(lines, 2.0)[0])
        window.send_signal(signal.SIGSTOP)
        try:
            xdotool("key", "alt+g")
            longest, captured = stalls_during(lines, 3.0)
            hung.append(longest)
            if captured:
                print("# a capture came through from the stopped window", flush=True)
        finally:
            window.send_signal(signal.SIGCONT)
        time.sleep(1.0)
    stop(probe)
    print(f"{'longest main-thread stall':<32} answering window: {max(answering)} ms, "
          f"hung window: {max(hung)} ms (gaps under 20 ms are not reported)", flush=True)
    print(f"{'':<32} ratio hung to answering: {max(hung) / max(max(answering), 20):.1f}x "
          f"(an answering window counts as 20 ms at least)", flush=True)


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--probe", required=True)
    parser.add_argument("--textwindow", required=True)
    parser.add_argument("--count", type=int, default=40)
    parser.add_argument("--stall-runs", type=int, default=5)
    ARGS = parser.parse_args()
    desk.ARGS = ARGS
    run(body, os.path.join(tempfile.gettempdir(), "nubra-capture-bench.png"))


if __name__ == "__main__":
    main()
