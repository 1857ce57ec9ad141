#!/usr/bin/python3
"""Nubra beside a bare Qt Widgets tray program (BareTray.cpp: QApplication, QSystemTrayIcon, QMenu) on
one virtual X11 desktop (Xvfb, openbox, trayer as the XEmbed tray host, a GTK editor holding a
sentence), measured from outside the applications. Reported as ratios to the bare tray started in the
same runs, never judged.

For each program, over several fresh starts in alternating order: start to tray icon, start to first
window mapped, RSS and PSS 10 s after the start, utime+stime ticks from 10 s to 40 s; idle memory also
broken down by mapping (Qt libraries, other libraries, the program, heap and anonymous memory, the rest)
and by file. For Nubra alone: mouse release to bubble (the 0.3 s debounce taken off), bubble click to
the first explanation text on the card, `nubra --lookup` (what a desktop shortcut runs, its own start
included) to the first text, the release of a drag over a word shown as a picture after `nubra --ocr`
to the first text (local recognition included), beside curl's time to first byte and to first delta on
the same request to the same service in the same run. --only picks parts: idle-memory (start-up and idle memory,
no CPU window), lookups.

What counts (all from the X server, see xwatch.py):
- start: time.monotonic() just before the process is spawned.
- tray icon: the process's window (by _NET_WM_PID) mapped inside the tray host's window; Qt sets that
  property on the icon's window for either program, so both are timed alike.
- first window: the first window of the process mapped anywhere; a tray icon for both when neither
  shows anything else at start.
- bubble visible: the 44x44 Nubra window mapped; release: the double-click's last button release
  processed by the server (XTest, then a round trip).
- first explanation text: the card (356 px wide) first grows taller than its one-line "Explaining…"
  height, which happens when the first streamed text is laid out in it.
"""
import argparse
import json
import os
import re
import sqlite3
import statistics
import subprocess
import sys
import tempfile
import time
import uuid

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "..", "Tests", "DesktopTestKit"))
from desktop_kit import SCREEN_H, SCREEN_W, Failure, check, picture_window, run, start_mousepad, stop, word_rect  # noqa: E402
import smaps  # noqa: E402
from xwatch import Input, XWatch  # noqa: E402

SENTENCE = "She sat on the bank of the river and watched the boats.\n"
DEBOUNCE_MS = 300
IDLE_FROM_S, IDLE_TO_S = 10, 40
BUBBLE_SIZE, CARD_WIDTH = 44, 356
# The card's one-line loading state: padding 13 above and below, a 16 px spinner row with 6 px margins
# and a 13 px label. Anything taller holds text from the service.
CARD_LOADING_MAX_HEIGHT = 2 * 13 + 12 + 20  # 54 px measured
NUBRA_CHOICES = {"style": "plain", "length": "medium", "modelTier": "fast", "outputLang": "auto"}
ARGS = None


# ---------------------------------------------------------------------------------------------- /proc
def rss_pss_kb(pid):
    with open(f"/proc/{pid}/status") as f:
        rss = int(re.search(r"^VmRSS:\s+(\d+)", f.read(), re.M).group(1))
    with open(f"/proc/{pid}/smaps_rollup") as f:
        pss = int(re.search(r"^Pss:\s+(\d+)", f.read(), re.M).group(1))
    return rss, pss


def cpu_ticks(pid):
    with open(f"/proc/{pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return int(fields[11]) + int(fields[12])  # utime, stime


def sleep_until(moment):
    delay = moment - time.monotonic()
    if delay > 0:
        time.sleep(delay)


# ------------------------------------------------------------------------------------------- programs
class Program:
    def __init__(self, name, argv, env):
        self.name, self.argv, self.env = name, argv, env
        self.samples = {key: [] for key in ("tray", "first", "rss", "pss", "ticks")}
        self.first_kind = []
        self.maps = []  # smaps.sample() at the idle moment, one per start

    def forget(self):
        for values in self.samples.values():
            values.clear()
        self.first_kind.clear()
        self.maps.clear()

    def start(self):
        started = time.monotonic()
        process = subprocess.Popen(self.argv, env=self.env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return process, started


def measure_start_and_idle(watch, program, idle):
    process, started = program.start()
    try:
        tray = watch.wait_for(lambda: watch.first_map(process.pid, started, lambda m: m.in_tray), 15)
        check(tray is not None, f"{program.name} put no icon in the tray host within 15 s")
        first = watch.first_map(process.pid, started)
        program.samples["first"].append((first.when - started) * 1000)
        program.first_kind.append("tray icon" if first.in_tray else f"{first.width}x{first.height} window")
        program.samples["tray"].append((tray.when - started) * 1000)
        if not idle:
            return
        sleep_until(started + IDLE_FROM_S)
        rss, pss = rss_pss_kb(process.pid)
        program.maps.append(smaps.sample(process.pid))
        program.samples["rss"].append(rss / 1024)
        program.samples["pss"].append(pss / 1024)
        if not wants("cpu"):
            return
        ticks = cpu_ticks(process.pid)
        sleep_until(started + IDLE_TO_S)
        program.samples["ticks"].append(cpu_ticks(process.pid) - ticks)
    finally:
        stop(process)


def start_tray_host(desktop, watch):
    tray = desktop.spawn(["trayer", "--edge", "top", "--align", "right", "--width", "10", "--height", "24",
                          "--SetDockType", "true", "--SetPartialStrut", "true"])
    watch.tray_pid = tray.pid
    owner = Input()
    deadline = time.monotonic() + 10
    while getattr(owner.selection_owner("_NET_SYSTEM_TRAY_S0"), "id", 0) == 0:
        check(time.monotonic() < deadline, "trayer did not take the tray selection")
        time.sleep(0.02)
    time.sleep(0.3)  # its own windows settle


# ------------------------------------------------------------------------------------------- lookups
def history_row():
    path = os.path.join(os.environ["XDG_DATA_HOME"], "Nubra", "history.sqlite3")
    try:
        with sqlite3.connect(f"file:{path}?mode=ro", uri=True, timeout=1) as db:
            return db.execute("SELECT selected_text, context_before, context_after, source_app FROM history "
                              "ORDER BY id DESC LIMIT 1").fetchone()
    except sqlite3.Error:
        return None


def curl_first_byte_and_delta(service, body):
    """curl's own clock, from its first step (connecting) to the first response byte and to the first
    delta event, read from its time-stamped trace."""
    trace = subprocess.run(["curl", "-sS", "-N", "--trace-ascii", "-", "--trace-time", "-o", "/dev/null",
                            "-H", "content-type: application/json", "-H", "accept: text/event-stream",
                            "-H", "user-agent: Nubra/1.0 (macOS)", "-H", "x-device-id: bench",
                            "--data-binary", body, f"{service}/v1/gloss"],
                           capture_output=True, text=True, timeout=30).stdout
    stamp = re.compile(r"^(\d\d):(\d\d):(\d\d\.\d+) (.*)$")
    start = first_byte = first_delta = current = None
    for line in trace.splitlines():
        m = stamp.match(line)
        if m:
            current = int(m.group(1)) * 3600 + int(m.group(2)) * 60 + float(m.group(3))
            start = current if start is None else start
            if first_byte is None and m.group(4).startswith("<= Recv header"):
                first_byte = current
            continue
        if first_delta is None and current is not None and "event: delta" in line:
            first_delta = current
    if None in (start, first_byte, first_delta):
        print(f"# curl gave no stream: {body} -> {trace[-600:]!r}", flush=True)
        return None
    return (first_byte - start) * 1000, (first_delta - start) * 1000


def write_nubra_settings():
    """Pins the choices that go into each request, so curl can send the same one."""
    folder = os.path.join(os.environ["XDG_CONFIG_HOME"], "Nubra")
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, "Nubra.conf"), "w", encoding="utf-8") as f:
        f.write("[General]\n" + "".join(f"{key}={value}\n" for key, value in NUBRA_CHOICES.items()))


def lookup_body(row):
    """The request Nubra sent: the selection and context it stored, with the pinned choices."""
    selected, before, after, source_app = row
    body = {"selected_text": selected, "context_before": before, "context_after": after,
            "style": NUBRA_CHOICES["style"], "length": NUBRA_CHOICES["length"], "lang": NUBRA_CHOICES["outputLang"],
            "model_tier": NUBRA_CHOICES["modelTier"], "request_id": str(uuid.uuid4()).upper()}
    if source_app:
        body["source_app"] = source_app
    return json.dumps(body, ensure_ascii=False, separators=(",", ":"))


def measure_lookups(desktop, watch, nubra_program, editor, service, count):
    pointer = Input()
    rect = None
    deadline = time.monotonic() + 30
    while rect is None and time.monotonic() < deadline:
        rect = word_rect("mousepad", "bank")
        if rect is None:
            time.sleep(0.2)
    check(rect is not None, "mousepad is not on the accessibility bus")
    word = (rect["x"] + rect["width"] // 2, rect["y"] + rect["height"] // 2)

    is_bubble = lambda m: m.width == BUBBLE_SIZE and m.height == BUBBLE_SIZE  # noqa: E731
    results = {"bubble": [], "text": [], "curl_byte": [], "curl_delta": [], "card": [], "first_card": [],
               "first_text": [], "command_text": [], "screen_text": []}
    warm = None
    for attempt in range(2):  # a start whose capture never comes up is reported and tried once more
        process, _ = nubra_program.start()
        # Capture starts once Nubra has settled; double-clicks until the bubble comes wait for that.
        deadline = time.monotonic() + 20
        while warm is None and time.monotonic() < deadline:
            subprocess.run(["xdotool", "windowactivate", "--sync", editor], check=False)
            released = pointer.click(*word, count=2)
            warm = watch.wait_for(lambda: watch.first_map(process.pid, released, is_bubble), 3)
        if warm is not None:
            break
        print(f"# Nubra start {attempt + 1}: no bubble within 20 s", flush=True)
        desktop.debug_log_tail(10)
        stop(process)
    check(warm is not None, "Nubra never showed its bubble")
    try:
        pointer.move(10, 400)  # off the bubble, so it can go away
        watch.wait_for(lambda: None if watch.is_mapped(warm.window) else True, 10)

        for i in range(count + 1):  # the first lookup warms the connection and the card up
            subprocess.run(["xdotool", "windowactivate", "--sync", editor], check=False)
            time.sleep(0.3)
            released = pointer.click(*word, count=2)
            bubble = watch.wait_for(lambda: watch.first_map(process.pid, released, is_bubble), 5)
            if bubble is None:
                print(f"# lookup {i}: no bubble", flush=True)
                continue
            clicked, card, grown, curl = click_bubble(desktop, watch, pointer, process, bubble, service, f"lookup {i}")
            if i == 0:
                results["first_card"].append((card.when - clicked) * 1000)
                results["first_text"].append((grown[0] - clicked) * 1000)
                continue
            results["bubble"].append((bubble.when - released) * 1000 - DEBOUNCE_MS)
            results["card"].append((card.when - clicked) * 1000)
            results["text"].append((grown[0] - clicked) * 1000)
            if curl:
                results["curl_byte"].append(curl[0])
                results["curl_delta"].append(curl[1])

            # The word is still selected: what a desktop shortcut running `nubra --lookup` does with it,
            # the second process's start and hand-over included.
            results["command_text"].append(command_lookup(desktop, watch, pointer, process, nubra_program.argv,
                                                          nubra_program.env, f"nubra --lookup {i}"))
        results["screen_text"] = screen_text_lookups(desktop, watch, pointer, process, nubra_program, count)
    finally:
        stop(process)
    return results


def click_bubble(desktop, watch, pointer, process, bubble, service, what):
    """Clicks the bubble, waits for the card's first text, sends curl the same request and closes the
    card: the click's moment, the card, its growth and curl's times."""
    x, y = pointer.origin(bubble.window)
    clicked = pointer.click(x + bubble.width // 2, y + bubble.height // 2)
    card, grown = card_with_text(desktop, watch, process, clicked, what)
    curl = curl_first_byte_and_delta(service, lookup_body(poll_history()))
    close_card(watch, pointer, card)
    return clicked, card, grown, curl


def command_lookup(desktop, watch, pointer, process, argv, env, what):
    """What a desktop shortcut running `nubra --lookup` does with the selection, the second process's
    start and hand-over included: ms to the card's first text. Closes the card."""
    asked = time.monotonic()
    subprocess.run(argv + ["--lookup"], env=env, check=True, timeout=10)
    card, grown = card_with_text(desktop, watch, process, asked, what)
    close_card(watch, pointer, card)
    return (grown[0] - asked) * 1000


def screen_text_lookups(desktop, watch, pointer, process, nubra_program, count):
    """`nubra --ocr` and a drag over "river" in a picture of two lines of text: ms from the button's
    release to the card's first explanation text, recognition and the service's answer included."""
    words = picture_window(desktop)
    x, y, width, height = words["river"]
    is_picker = lambda m: m.width == SCREEN_W and m.height == SCREEN_H  # noqa: E731
    samples = []
    for i in range(count + 1):  # the first one loads the recognizer's language data
        asked = time.monotonic()
        subprocess.run(nubra_program.argv + ["--ocr"], env=nubra_program.env, check=True, timeout=10)
        picker = watch.wait_for(lambda: watch.first_map(process.pid, asked, is_picker), 10)
        check(picker is not None, f"screen text {i}: no area picker")
        released = pointer.drag((x - 6, y), (x + width + 6, y + height))
        # The card stays: Escape would end the picture viewer, and the next `--ocr` closes the card.
        _, grown = card_with_text(desktop, watch, process, released, f"screen text {i}")
        if i:
            samples.append((grown[0] - released) * 1000)
    return samples


def close_card(watch, pointer, card):
    pointer.key("Escape")
    watch.wait_for(lambda: None if watch.is_mapped(card.window) else True, 5)


def card_with_text(desktop, watch, process, since, what):
    """The card mapped after `since`, and the moment it first held text from the service."""
    card = watch.wait_for(lambda: watch.first_map(process.pid, since, lambda m: m.width == CARD_WIDTH), 5)
    check(card is not None, f"{what}: no card")
    grown = watch.wait_for(lambda: next((s for s in watch.sizes if s[0] >= card.when and s[1] == card.window
                                         and s[3] > CARD_LOADING_MAX_HEIGHT), None), 10)
    if ARGS.trace or grown is None:
        heights = [(round((s[0] - since) * 1000, 1), s[3]) for s in watch.sizes
                   if s[0] >= since and s[1] == card.window]
        print(f"# {what}: card mapped {card.width}x{card.height} at {(card.when - since) * 1000:.1f} ms; "
              f"heights {heights[:8]}", flush=True)
    if grown is None:
        subprocess.run(["import", "-window", "root", os.path.join(ARGS.artifacts, "app-bench-card.png")])
        desktop.debug_log_tail(30)
    check(grown is not None, f"{what}: the card never showed text")
    return card, grown


def poll_history():
    deadline = time.monotonic() + 10
    while time.monotonic() < deadline:
        row = history_row()
        if row:
            return row
        time.sleep(0.05)
    raise Failure("the lookup did not reach the history")



# -------------------------------------------------------------------------------------------- report
def summary(values, unit_format="{:.1f}"):
    if not values:
        return "n/a"
    return (f"{unit_format.format(statistics.median(values))} "
            f"({unit_format.format(min(values))}–{unit_format.format(max(values))})")


def ratio(ours, theirs):
    if not ours or not theirs or statistics.median(theirs) == 0:
        return "n/a"
    return f"{statistics.median(ours) / statistics.median(theirs):.2f}x"


def report_starts(nubra, bare, runs):
    print(f"\nNubra beside the bare Qt tray, {runs} fresh starts each, median (range); Xvfb + openbox + trayer",
          flush=True)
    print(f"{'':34} {'Nubra':>22} {'bare tray':>22} {'ratio':>8}   goal for Nubra")
    rows = [("start -> tray icon (ms)", "tray", "{:.0f}", "< 60 ms"),
            ("start -> first window mapped (ms)", "first", "{:.0f}", ""),
            (f"RSS at {IDLE_FROM_S} s (MB)", "rss", "{:.1f}", "< 32 MB"),
            (f"PSS at {IDLE_FROM_S} s (MB)", "pss", "{:.1f}", ""),
            (f"CPU ticks {IDLE_FROM_S}-{IDLE_TO_S} s idle", "ticks", "{:.0f}", "0")]
    for label, key, fmt, goal in rows:
        if not wants("cpu") and key == "ticks":
            continue
        print(f"{label:34} {summary(nubra.samples[key], fmt):>22} {summary(bare.samples[key], fmt):>22} "
              f"{ratio(nubra.samples[key], bare.samples[key]):>8}   {goal}")
    for program in (nubra, bare):
        kinds = sorted(set(program.first_kind))
        print(f"  first window of {program.name}: {', '.join(kinds) or 'none'}")


def report_lookups(lookups):
    n = len(lookups["text"])
    print(f"\nNubra lookups of \"bank\" in mousepad, {n} after one warm-up, median (range)")
    print(f"{'release -> bubble, debounce taken off (ms)':52} {summary(lookups['bubble']):>22}   goal < 20 ms")
    print(f"{'bubble click -> card mapped (ms)':52} {summary(lookups['card']):>22}")
    print(f"{'bubble click -> first explanation text (ms)':52} {summary(lookups['text']):>22}")
    print(f"{'nubra --lookup -> first explanation text (ms)':52} {summary(lookups['command_text']):>22}")
    print(f"{'screen text: release of the drag -> first text (ms)':52} {summary(lookups['screen_text']):>22}")
    print(f"{'first lookup after start: click -> card (ms)':52} {summary(lookups['first_card']):>22}")
    print(f"{'first lookup after start: click -> text (ms)':52} {summary(lookups['first_text']):>22}")
    print(f"{'service, curl: time to first byte (ms)':52} {summary(lookups['curl_byte']):>22}")
    print(f"{'service, curl: time to first delta event (ms)':52} {summary(lookups['curl_delta']):>22}")
    if lookups["text"] and lookups["curl_byte"]:
        text = statistics.median(lookups["text"])
        over_byte = text - statistics.median(lookups["curl_byte"])
        over_delta = text - statistics.median(lookups["curl_delta"])
        print(f"{'Nubra added over the service first byte (ms)':52} {over_byte:>22.1f}   goal < 20 ms")
        print(f"{'Nubra added over the service first delta (ms)':52} {over_delta:>22.1f}")


def memory_report(nubra, bare):
    def median_mb(values):
        return statistics.median(values) / 1024 if values else float("nan")

    def kind(program, name, field):
        return median_mb([sample["kinds"][name][field] for sample in program.maps])

    def file_rss(program, path):
        return median_mb([sample["files"].get(path, (0, 0))[0] for sample in program.maps])

    def cell(ours, theirs):
        return f"{ours:>10.1f} {theirs:>10.1f} {ours / theirs if theirs else float('nan'):>7.2f}x"

    print(f"\nIdle memory {IDLE_FROM_S} s after start by mapping, MB, median of {len(nubra.maps)} starts of Nubra "
          f"and {len(bare.maps)} of the bare Qt tray (QApplication, QSystemTrayIcon, QMenu)")
    print(f"{'':22} {'Nubra RSS':>10} {'bare RSS':>10} {'ratio':>8}   {'Nubra PSS':>10} {'bare PSS':>10} {'ratio':>8}")
    for name in smaps.KINDS:
        print(f"{name:22} {cell(kind(nubra, name, 0), kind(bare, name, 0))}   "
              f"{cell(kind(nubra, name, 1), kind(bare, name, 1))}")
    total = [statistics.median(program.samples[key]) for program in (nubra, bare) for key in ("rss", "pss")]
    print(f"{'total':22} {cell(total[0], total[2])}   {cell(total[1], total[3])}   goal for Nubra: RSS < 32 MB")

    paths = set().union(*(sample["files"] for sample in nubra.maps + bare.maps))
    beyond = sorted(((file_rss(nubra, path) - file_rss(bare, path), path) for path in paths), reverse=True)
    print("\nWhere Nubra's RSS goes beyond the bare tray's: the files that differ most (MB, median)")
    print(f"{'more':>7} {'Nubra':>7} {'bare':>7}  mapping")
    for more, path in beyond[:ARGS.top_files]:
        if more >= 0.05:
            print(f"{more:>+7.1f} {file_rss(nubra, path):>7.1f} {file_rss(bare, path):>7.1f}  "
                  f"{path or '(anonymous)'}")


# ---------------------------------------------------------------------------------------------- main
def wants(part):
    """Whether this run measures `part`: everything by default; with --only, the parts named, without
    the idle CPU window."""
    if not ARGS.only:
        return True
    return part in ARGS.only


def body(desktop):
    watch = XWatch()
    watch.start()
    editor = start_mousepad(desktop, SENTENCE, name="river.txt")
    start_tray_host(desktop, watch)
    glossd = desktop.spawn([ARGS.glossd, "--port", "0", "--backend", "wordnet", "--access-log", "/dev/null"],
                           stderr=True)
    match = re.search(r"listening on (http://\S+)", glossd.stderr.readline())
    check(match, "nubra-glossd did not start")
    service = match.group(1)

    write_nubra_settings()
    qt = dict(os.environ, QT_QPA_PLATFORM="xcb")
    nubra = Program("Nubra", [ARGS.nubra], dict(qt, NUBRA_BASE_URL=service))
    bare = Program("bare Qt tray", [ARGS.tray], qt)
    programs = [nubra, bare] if wants("idle-memory") else [nubra]
    for program in programs:
        measure_start_and_idle(watch, program, idle=False)  # warm-up
        program.forget()

    for i in range(ARGS.runs if wants("idle-memory") else 0):
        # Alternating order, so neither always runs on a machine the other has just warmed.
        for program in (programs if i % 2 == 0 else reversed(programs)):
            measure_start_and_idle(watch, program, idle=True)
            last = {key: values[-1] if values else float("nan") for key, values in program.samples.items()}
            print(f"# run {i + 1} {program.name}: tray {last['tray']:.0f} ms, first window {last['first']:.0f} ms"
                  f" ({program.first_kind[-1]}), RSS {last['rss']:.1f} MB, PSS {last['pss']:.1f} MB, "
                  f"ticks {last['ticks']:.0f}", flush=True)

    if wants("lookups"):
        lookups = measure_lookups(desktop, watch, nubra, editor, service, ARGS.lookups)
    if wants("idle-memory"):
        report_starts(nubra, bare, ARGS.runs)
    if wants("lookups"):
        report_lookups(lookups)
    if wants("idle-memory"):
        memory_report(nubra, bare)


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--nubra", required=True)
    parser.add_argument("--glossd", required=True)
    parser.add_argument("--tray", required=True, help="the bare Qt tray program (bench_bare_tray)")
    parser.add_argument("--only", action="append", choices=("idle-memory", "lookups"),
                        help="this part alone, without the idle CPU window (repeatable)")
    parser.add_argument("--top-files", type=int, default=15, help="files listed where Nubra's RSS goes")
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--lookups", type=int, default=10)
    parser.add_argument("--trace", action="store_true", help="print each lookup's card heights")
    parser.add_argument("--artifacts", default=tempfile.gettempdir())
    ARGS = parser.parse_args()
    run(body, os.path.join(ARGS.artifacts, "app-bench.png"))


if __name__ == "__main__":
    main()
