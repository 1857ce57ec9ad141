#!/usr/bin/python3
"""Nubra's lookups on a Wayland desktop, measured from outside the application as on X11: a keyboard
selection in mousepad (a native Wayland client with accessibility) settled → bubble mapped, bubble
click → first explanation text on the card, and `nubra --lookup` (what the desktop's shortcut runs,
its own start included) → first text, beside curl's time to first byte from the same service in the
same run. One desktop per run: `--desktop sway` (wlroots, the bubble at the selection) or `--desktop
mutter` (GNOME, the bubble at the fixed anchor). The X11 figures come from app_bench.py in the same
`./nubra.sh bench` run. Reported, never judged.

Nubra's own windows are X11 windows on XWayland, so the watcher of app_bench.py sees them map and grow
there. The moment the selection has settled comes from nubra-capture-probe, which listens beside
Nubra to the same selection events and prints when its own 0.3 s wait ended (on the clock Python's
time.monotonic() reads): "settled -> bubble" is the time from there to Nubra's bubble mapped, the wait
itself left out, as the X11 figure leaves it out.
"""
import argparse
import os
import statistics
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "..", "Tests", "DesktopTestKit"))
import app_bench  # noqa: E402
from app_bench import BUBBLE_SIZE, click_bubble, command_lookup, summary, write_nubra_settings  # noqa: E402
from desktop_kit import Failure, Lines, check, poll, start_service  # noqa: E402
from xwatch import Input, XWatch  # noqa: E402

SENTENCE = "She sat on the bank of the river and watched the boats.\n"
WORD = "bank"


class SwayKeys:
    def __init__(self, tool):
        self.tool = tool

    def select(self, word):
        self.tool.keys("Control_L+Home")
        for _ in range(SENTENCE.index(word)):
            self.tool.keys("Right")
        for _ in range(len(word)):
            self.tool.keys("Shift_L+Right")


class MutterKeys:
    def __init__(self, remote):
        self.remote = remote

    def select(self, word):
        self.remote.tap("ctrl", "home")
        self.remote.tap("right", times=SENTENCE.index(word))
        self.remote.tap("shift", "right", times=len(word))


def measure(desktop, keys, env, count):
    """Starts nubra-glossd, Nubra and mousepad on the running compositor; the lookups' figures."""
    watch = XWatch()
    watch.start()
    pointer = Input()
    service = start_service(desktop, [ARGS.glossd, "--backend", "wordnet", "--access-log", "/dev/null"])
    write_nubra_settings()
    nubra_env = dict(env, NUBRA_BASE_URL=service)
    nubra_env.pop("QT_QPA_PLATFORM", None)  # Nubra picks XWayland for its windows itself
    log = os.path.join(ARGS.artifacts, "nubra-debug.log")
    nubra = desktop.spawn([ARGS.nubra], env=dict(nubra_env, NUBRA_DEBUG_LOG=log))
    welcome = poll("the welcome notice", lambda: watch.first_map(nubra.pid, 0, lambda m: m.width == 300), 15)
    poll("the welcome notice gone", lambda: not watch.is_mapped(welcome.window), 10)
    path = os.path.join(env["XDG_RUNTIME_DIR"], "river.txt")
    with open(path, "w", encoding="utf-8") as f:
        f.write(SENTENCE)
    desktop.spawn(["mousepad", "--disable-server", path], env=dict(env, GDK_BACKEND="wayland"))
    probe = Lines(desktop.spawn([ARGS.probe, "--trigger", "onSelection"], env=env, capture=True))
    ready = probe.next_json(10)
    check(ready and ready.get("event") == "ready", f"the probe did not start: {ready}")

    def settled(since):
        """When the wait for a selection made after `since` to settle ended, as the probe saw it."""
        deadline = time.monotonic() + 5
        while (line := probe.next_json(deadline - time.monotonic())) is not None:
            ended = (line.get("at", 0) - line.get("ms", 0)) / 1000
            if line.get("text") == WORD and ended > since:
                return ended
        return None

    is_bubble = lambda m: m.width == BUBBLE_SIZE and m.height == BUBBLE_SIZE  # noqa: E731
    results = {"bubble": [], "text": [], "command_text": [], "curl_byte": []}
    bubble = None
    for _ in range(10):  # the editor takes the focus and joins the accessibility bus when it is ready
        since = time.monotonic()
        keys.select(WORD)
        bubble = watch.wait_for(lambda: watch.first_map(nubra.pid, since, is_bubble), 3)
        if bubble:
            break
    check(bubble is not None, "no bubble for a selection in mousepad")
    pointer.key("Escape")

    for i in range(count + 1):  # the first lookup warms the connection and the card up
        since = time.monotonic()
        keys.select(WORD)
        bubble = watch.wait_for(lambda: watch.first_map(nubra.pid, since, is_bubble), 5)
        waited = settled(since)
        if bubble is None:
            print(f"# lookup {i}: no bubble", flush=True)
            continue
        clicked, _, grown, curl = click_bubble(desktop, watch, pointer, nubra, bubble, service, f"lookup {i}")
        command_text = command_lookup(desktop, watch, pointer, nubra, [ARGS.nubra], nubra_env, f"nubra --lookup {i}")
        if i == 0:
            continue
        if waited:
            results["bubble"].append((bubble.when - waited) * 1000)
        results["text"].append((grown[0] - clicked) * 1000)
        results["command_text"].append(command_text)
        if curl:
            results["curl_byte"].append(curl[0])
    subprocess.run([ARGS.nubra, "--quit"], env=nubra_env, timeout=10)
    return results


def report(results):
    print(f"\nNubra on {ARGS.desktop}: lookups of \"{WORD}\" in mousepad (native Wayland), "
          f"{len(results['text'])} after one warm-up, median (range)", flush=True)
    print(f"{'settled -> bubble mapped, the wait taken off (ms)':52} {summary(results['bubble']):>22}   goal < 20 ms")
    print(f"{'bubble click -> first explanation text (ms)':52} {summary(results['text']):>22}")
    print(f"{'nubra --lookup -> first explanation text (ms)':52} {summary(results['command_text']):>22}")
    print(f"{'service, curl: time to first byte (ms)':52} {summary(results['curl_byte']):>22}")
    if results["text"] and results["curl_byte"]:
        over = statistics.median(results["text"]) - statistics.median(results["curl_byte"])
        print(f"{'Nubra added over the service first byte (ms)':52} {over:>22.1f}   goal < 20 ms", flush=True)


def on_sway():
    from wayland_kit import Sway, Tool

    with Sway(ARGS.artifacts) as sway:
        # The watcher, the pointer and the history reader all look where Nubra runs.
        for name in ("DISPLAY", "XDG_CONFIG_HOME", "XDG_DATA_HOME"):
            os.environ[name] = sway.env[name]
        report(measure(sway, SwayKeys(Tool(sway, ARGS.tool)), sway.env, ARGS.lookups))


def on_mutter():
    from mutter_kit import run

    def body(desktop, remote):
        report(measure(desktop, MutterKeys(remote), dict(os.environ), ARGS.lookups))

    run(body, os.path.join(ARGS.artifacts, "wayland-app-bench-mutter.png"))


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--desktop", choices=("sway", "mutter"), required=True)
    parser.add_argument("--nubra", required=True)
    parser.add_argument("--glossd", required=True)
    parser.add_argument("--probe", required=True, help="nubra-capture-probe, which tells when a selection settled")
    parser.add_argument("--tool", help="nubra-test-wayland, which types on sway")
    parser.add_argument("--lookups", type=int, default=10)
    parser.add_argument("--trace", action="store_true", help="print each lookup's card heights")
    parser.add_argument("--artifacts", default="/tmp")
    ARGS = app_bench.ARGS = parser.parse_args()
    os.makedirs(ARGS.artifacts, exist_ok=True)
    try:
        on_sway() if ARGS.desktop == "sway" else on_mutter()
    except Failure as failure:
        sys.exit(f"FAIL: {failure}")


if __name__ == "__main__":
    main()
