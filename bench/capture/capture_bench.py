#!/usr/bin/env python3
"""Release-to-snapshot time of capture on a virtual X11 desktop, AT-SPI path and PRIMARY path.

Drives the same desktop as the end-to-end test (Xvfb, D-Bus, accessibility bus, openbox, the Qt text
window) and reads the probe's "ms" field: from the mouse release to the snapshot on the main thread,
the fixed 0.3 s debounce left out. The reference, measured in the same run, is one X server round
trip from a fresh client (`xdotool getmouselocation`), which bounds how fast anything driven by a new
process can answer on this machine. Reported, never pass/fail.
"""
import argparse
import os
import statistics
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "Tests",
                                "CaptureDesktopTests"))
import capture_desktop as desk  # noqa: E402


def percentile(values, p):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(round(p / 100 * (len(ordered) - 1))))]


def report(name, values):
    print(f"{name:<28} n={len(values):<4} median={statistics.median(values):8.1f} ms  "
          f"p99={percentile(values, 99):8.1f} ms", flush=True)
    return statistics.median(values)


def measure(desktop, textwindow_lines, count):
    words = desk.word_positions(textwindow_lines)
    reference = []
    for _ in range(count):
        start = time.perf_counter()
        subprocess.run(["xdotool", "getmouselocation"], stdout=subprocess.DEVNULL, check=True)
        reference.append((time.perf_counter() - start) * 1000)

    probe, lines = desktop.probe("onSelection")
    samples = {"accessibility": [], "primary": []}
    targets = [("charlie", "charlie"), ("mike", "mike")]
    for path in ("accessibility", "primary"):
        desk.set_bus_enabled(path == "accessibility")
        time.sleep(0.3)
        for i in range(count):
            word = words[targets[i % 2][0]]
            desk.double_click(word)
            got = lines.next_json(5)
            if got and got["path"] == path and got["text"] == targets[i % 2][1]:
                samples[path].append(got["ms"])
    desk.set_bus_enabled(True)
    probe.terminate()
    probe.wait()

    ref = report("reference (X round trip)", reference)
    for path, values in samples.items():
        if not values:
            print(f"{path}: no samples", flush=True)
            continue
        median = report(f"{path} path", values)
        print(f"{'':<28} ratio to reference: {median / ref:.1f}x", flush=True)


def inner(args):
    desktop = desk.Desktop(args)
    try:
        desktop.spawn(["/usr/libexec/at-spi-bus-launcher", "--launch-immediately"])
        time.sleep(1.0)
        desk.set_bus_enabled(True)
        desktop.spawn(["openbox"])
        time.sleep(0.5)
        env = dict(os.environ, QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1", QT_QPA_PLATFORM="xcb")
        textwindow = desktop.spawn([args.textwindow], capture=True, env=env)
        measure(desktop, desk.Lines(textwindow), args.count)
        return 0
    finally:
        desktop.stop_all()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--probe", required=True)
    parser.add_argument("--textwindow", required=True)
    parser.add_argument("--count", type=int, default=60)
    parser.add_argument("--inner", action="store_true")
    args = parser.parse_args()
    if args.inner:
        sys.exit(inner(args))
    display = desk.free_display()
    xvfb = subprocess.Popen(["Xvfb", f":{display}", "-screen", "0", "1280x800x24", "-nolisten", "tcp"],
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        time.sleep(1.0)
        env = dict(os.environ, DISPLAY=f":{display}")
        env.pop("DBUS_SESSION_BUS_ADDRESS", None)
        env.pop("QT_QPA_PLATFORM", None)
        sys.exit(subprocess.run(["dbus-run-session", "--", sys.executable, __file__, "--inner", *sys.argv[1:]],
                                env=env, stderr=subprocess.DEVNULL).returncode)
    finally:
        xvfb.terminate()
        xvfb.wait()


if __name__ == "__main__":
    main()
