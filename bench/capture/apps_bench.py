#!/usr/bin/env python3
"""Selection capture in browsers on a long page, on a virtual X11 desktop: how fast it answers.

Latency: the probe's "ms" field (mouse release to snapshot, the fixed debounce left out) for
double-clicks on words of a generated page of several thousand nodes (paragraphs with links, bold and
code, lists, tables), in Firefox ESR and in Chromium with --force-renderer-accessibility, beside the same
in mousepad on a text of the same length. Reference, measured in the same run: one X server round trip
from a fresh client (`xdotool getmouselocation`). Reported as medians, p99s and ratios to the reference,
never pass/fail. An application that is not installed is left out.
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "..", "Tests", "DesktopTestKit"))
sys.path.insert(0, os.path.join(HERE, "..", "..", "Tests", "CaptureDesktopTests"))
import apps_desktop as apps  # noqa: E402
from desktop_kit import run, xdotool  # noqa: E402

ARGS = None
WORDS = ["charlie", "foxtrot", "juliet", "quebec"]  # in the first, always visible, paragraphs
FILLER = "lorem ipsum dolor sit amet consectetur adipiscing elit sed do eiusmod tempor incididunt"


def long_page(path, sections):
    """About 12 nodes a section: a heading, two paragraphs with a link, bold and code, a list, a table."""
    parts = ["<!DOCTYPE html><html><head><meta charset='utf-8'><title>Long page</title><style>"
             "body{font:20px/1.5 sans-serif;margin:20px;width:900px}</style></head><body>",
             "<p>Alpha bravo charlie delta echo foxtrot golf hotel india juliet.</p>",
             "<p>Kilo lima <a href='#k'>mike november</a> oscar papa <b>quebec</b> romeo <code>sierra</code>.</p>"]
    for i in range(sections):
        parts.append(f"<h2>Section {i}</h2><p>{FILLER} <a href='#s{i}'>link {i}</a> <b>bold</b> "
                     f"<code>code</code> {FILLER}.</p><ul><li>{FILLER}</li><li>item {i}</li></ul>"
                     f"<table><tr><td>cell {i}</td><td>{FILLER}</td></tr></table><p>{FILLER}.</p>")
    parts.append("</body></html>")
    with open(path, "w", encoding="utf-8") as f:
        f.write("".join(parts))


def percentile(values, p):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(round(p / 100 * (len(ordered) - 1))))]


def report(name, values, reference):
    if not values:
        print(f"{name:<40} no capture came through", flush=True)
        return
    median = statistics.median(values)
    ratio = f"{median / reference:.1f}x" if reference > 0 else "-"
    print(f"{name:<40} n={len(values):<4} median={median:8.1f} ms  p99={percentile(values, 99):8.1f} ms  "
          f"ratio to reference: {ratio}", flush=True)


def latencies(probe, words, empty, count):
    """The probe's latency of each double-click captured whole through the accessibility interface."""
    samples = []
    for i in range(count):
        word = WORDS[i % len(WORDS)]
        xdotool("mousemove", *empty, "click", 1)
        probe.capture(0.4)  # a click captures nothing; this only lets it pass
        apps.double_click(words[word])
        got = probe.capture(5)
        if got and got.get("path") == "accessibility" and got.get("text") == word:
            samples.append(got["ms"])
    return samples


def measure(name, application, argv, window_class, reference):
    app = apps.App(argv, window_class)
    probe = None
    try:
        app.window()
        words = apps.words_on_screen(application, WORDS, timeout=90)
        app.activate()
        probe = apps.Probe()
        juliet = words["juliet"]  # the end of the first line: a click there selects nothing
        empty = (juliet["x"] + juliet["width"] + 40, juliet["y"] + juliet["height"] // 2)
        report(name, latencies(probe, words, empty, ARGS.count), reference)
    except apps.Failure as failure:
        print(f"{name:<40} not measured: {failure}", flush=True)
    finally:
        if probe:
            probe.stop()
        app.stop()


def body(desktop):
    samples = []
    for _ in range(ARGS.count):
        start = time.perf_counter()
        subprocess.run(["xdotool", "getmouselocation"], stdout=subprocess.DEVNULL, check=True)
        samples.append((time.perf_counter() - start) * 1000)
    reference = statistics.median(samples)
    report("reference (X round trip)", samples, reference)

    page = apps.runtime_path("long.html")
    long_page(page, ARGS.sections)
    print(f"# page: {ARGS.sections} sections, about {ARGS.sections * 12} nodes", flush=True)
    if shutil.which("firefox-esr"):
        profile = apps.runtime_path("firefox-profile")
        os.makedirs(profile)
        with open(os.path.join(profile, "user.js"), "w", encoding="utf-8") as f:
            f.write(apps.FIREFOX_PREFERENCES)
        measure("Firefox, long page", "firefox", ["firefox-esr", "-profile", profile, "-no-remote", "--width",
                                                  "1200", "--height", "760", f"file://{page}"], "firefox", reference)
    if shutil.which("chromium"):
        measure("Chromium (accessibility on), long page", "chromium",
                [*apps.CHROMIUM, f"--user-data-dir={apps.runtime_path('chromium')}",
                 "--force-renderer-accessibility", f"file://{page}"], "chromium", reference)
    if shutil.which("mousepad"):
        text = apps.runtime_path("long.txt")
        with open(text, "w", encoding="utf-8") as f:
            f.write("Alpha bravo charlie delta echo foxtrot golf hotel india juliet.\n"
                    "Kilo lima mike november oscar papa quebec romeo sierra.\n")
            f.write(f"{FILLER}\n" * (ARGS.sections * 4))
        measure("mousepad, text of the same length", "mousepad", ["mousepad", "--disable-server", text], "mousepad",
                reference)


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--probe", required=True)
    parser.add_argument("--count", type=int, default=30)
    parser.add_argument("--sections", type=int, default=400)
    ARGS = parser.parse_args()
    apps.ARGS = argparse.Namespace(probe=ARGS.probe, artifacts=tempfile.gettempdir(), only=None)
    run(body, os.path.join(tempfile.gettempdir(), "nubra-capture-apps-bench.png"))


if __name__ == "__main__":
    main()
