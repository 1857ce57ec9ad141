#!/usr/bin/env python3
"""Selection capture on a headless sway (Wayland): how fast a settled selection is read.

Latency: the probe's "ms" field, from the moment the selection has stopped changing long enough to
count (the 0.3 s debounce, and for a selection only the primary selection told of the 0.3 s it waits
longer, left out) to the snapshot on the main thread: in mousepad with accessibility (read through the
accessibility bus) and without it (read from the primary selection through data-control). Reference,
measured in the same run: one round trip to the compositor from a fresh client (`swaymsg -t
get_version`). The X11 figures of `bench_capture` come in the same `./nubra.sh bench` run. Reported,
never pass/fail.
"""
import argparse
import os
import statistics
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "..", "Tests", "DesktopTestKit"))
from desktop_kit import Lines, poll  # noqa: E402
from wayland_kit import Sway, Tool  # noqa: E402

TEXT = "Alpha bravo charlie delta echo foxtrot golf hotel india juliet.\n"
WORDS = {"bravo": 6, "delta": 20}


def report(name, values):
    median = statistics.median(values)
    print(f"{name:<40} n={len(values):<4} median={median:8.1f} ms  max={max(values):8.1f} ms", flush=True)
    return median


def start_editor(sway, name, accessible):
    path = os.path.join(sway.env["XDG_RUNTIME_DIR"], name)
    with open(path, "w", encoding="utf-8") as f:
        f.write(TEXT)
    env = dict(sway.env, GDK_BACKEND="wayland")
    if not accessible:
        env["NO_AT_BRIDGE"] = "1"
    sway.spawn(["mousepad", "--disable-server", path], env=env)
    poll(f"{name} in front", lambda: any(name in (w.get("name") or "") and w.get("focused") for w in sway.windows()),
         30)


def latencies(tool, lines, path, count):
    samples = []
    for i in range(count):
        word = list(WORDS)[i % 2]
        tool.keys("Control_L+Home")
        for _ in range(WORDS[word]):
            tool.keys("Right")
        for _ in range(len(word)):
            tool.keys("Shift_L+Right")
        got = lines.next_json(5)
        if got and got.get("path") == path and got.get("text") == word:
            samples.append(got["ms"])
    return samples


def round_trips(sway, count):
    samples = []
    for _ in range(count):
        began = time.monotonic()
        subprocess.run(["swaymsg", "-s", sway.env["SWAYSOCK"], "-t", "get_version"], env=sway.env,
                       stdout=subprocess.DEVNULL, check=True)
        samples.append((time.monotonic() - began) * 1000)
    return samples


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--probe", required=True)
    parser.add_argument("--tool", required=True)
    parser.add_argument("--count", type=int, default=20)
    args = parser.parse_args()
    artifacts = os.path.join(os.environ.get("TMPDIR", "/tmp"), "nubra-wayland-bench")
    os.makedirs(artifacts, exist_ok=True)
    with Sway(artifacts) as sway:
        tool = Tool(sway, args.tool)
        lines = Lines(sway.spawn([args.probe, "--trigger", "onSelection"], capture=True))
        ready = lines.next_json(10)
        if not ready or ready.get("event") != "ready":
            sys.exit(f"the probe did not start: {ready}")
        print(f"sway, {args.count} keyboard selections each; the debounce left out", flush=True)
        reference = report("compositor round trip (swaymsg)", round_trips(sway, args.count))
        for name, accessible, path in (("accessible.txt", True, "accessibility"), ("plain.txt", False, "primary")):
            start_editor(sway, name, accessible)
            latencies(tool, lines, path, 2)  # the first selections wake the editor up
            samples = latencies(tool, lines, path, args.count)
            if not samples:
                print(f"{'settled → snapshot, ' + path:<40} no capture came through", flush=True)
                continue
            median = report(f"settled → snapshot, {path}", samples)
            print(f"{'':40} {median / reference:.1f}x the round trip", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
