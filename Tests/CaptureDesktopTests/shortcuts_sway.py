#!/usr/bin/env python3
"""Nubra's binding on a headless sway: the line Nubra offers is one sway loads, and sway's IPC then
reports it active for its keys only; without it nothing is; another command on the same keys is reported.

One sway for the suite (see DesktopTestKit/wayland_kit.py), its configuration rewritten and reloaded per
case. Exits 77 (skipped) when sway or XWayland are missing.
"""
import argparse
import json
import os
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "DesktopTestKit"))
from desktop_kit import check, exit_with, run_cases  # noqa: E402
from wayland_kit import CONFIG, Sway  # noqa: E402

PROGRAM = "/opt/Nubra Apps/nubra"
ALT_G = (5, 0x80000)
CTRL_SHIFT_SPACE = (49, 0x40000 | 0x20000)


def tool_output(args, sway, command, combo):
    done = subprocess.run([args.tool, command, str(combo[0]), str(combo[1]), PROGRAM], env=sway.env,
                          capture_output=True, text=True, timeout=10)
    check(done.returncode == 0, f"{command} failed: {done.stderr.strip()}")
    return done.stdout.strip()


def load(sway, extra):
    """sway's configuration with `extra` lines, reloaded; the reload answers once it is in effect."""
    with open(sway.config, "w", encoding="utf-8") as f:
        f.write(CONFIG + "".join(line + "\n" for line in extra))
    reply = sway.swaymsg("reload")
    check(all(r.get("success") for r in reply), f"sway refused the configuration: {reply}")
    loaded = sway.swaymsg("-t", "get_config")["config"]
    check(all(line in loaded for line in extra), "sway reloaded another configuration")


def query(args, sway, combo):
    return json.loads(tool_output(args, sway, "query", combo))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--artifacts", required=True)
    args = parser.parse_args()
    artifacts = os.path.join(args.artifacts, "shortcuts-sway")
    os.makedirs(artifacts, exist_ok=True)
    with Sway(artifacts) as sway:
        line = tool_output(args, sway, "line", ALT_G)
        check(line == f"bindsym Mod1+g exec '{PROGRAM}' --lookup", f"the line for Alt+G: {line}")
        cases = [
            ("offered line active", ["set $alt Mod1", line.replace("Mod1", "$alt")],
             {ALT_G: (True, ""), CTRL_SHIFT_SPACE: (False, "")}),
            ("nothing bound", [], {ALT_G: (False, "")}),
            ("keys taken", ["bindsym Mod1+g exec foot", "bindsym Ctrl+Shift+space kill"],
             {ALT_G: (False, "exec foot"), CTRL_SHIFT_SPACE: (False, "kill")}),
        ]
        def case(extra, expected):
            load(sway, extra)
            for combo, (active, taken) in expected.items():
                answer = query(args, sway, combo)
                check(answer == {"active": active, "takenBy": taken, "failed": False}, f"{combo} with {extra}: {answer}")

        failures = run_cases((name, lambda extra=extra, expected=expected: case(extra, expected))
                             for name, extra, expected in cases)
    return 1 if failures else 0


if __name__ == "__main__":
    exit_with(main)
