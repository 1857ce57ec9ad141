#!/usr/bin/env python3
"""Nubra updating itself on a virtual X11 desktop, the way a person meets it.

Two releases made by `./nubra.sh release` are given. The older one is unpacked as a user-local
installation (~/.local/opt/Nubra) in a private HOME, nubra-glossd serves the newer one with
--releases, and the older Nubra runs against it. "Check for Updates…" is chosen in the tray menu,
"Download & Install" clicked in the offer, and the newer version must come up in the same folder: its
About tab shows the new version, and the install script leaves nothing behind. What the install script
refuses, and what it leaves then, is tst_linuxupdaterscript's. Screenshots of the offer and the About
tab are left in the artifacts folder.

update_desktop.py --old DIR --new DIR --glossd PATH --artifacts DIR
(DIR as written by ./nubra.sh release --out DIR: manifest.json and the archive)
"""
import argparse
import glob
import json
import os
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "DesktopTestKit"))
from desktop_kit import (check, click, fresh_home, poll, run, start_service, stop, widget,  # noqa: E402
                         window_named)
from tray import click_menu_item, start_watcher  # noqa: E402

ARGS = None


def manifest(folder):
    with open(os.path.join(folder, "manifest.json"), encoding="utf-8") as f:
        return json.load(f)


def install_release(folder, home):
    """Unpacks the release in `folder` as the user-local installation under `home`; its folder."""
    opt = os.path.join(home, ".local", "opt")
    os.makedirs(opt)
    archive = os.path.join(folder, os.path.basename(manifest(folder)["url"]))
    subprocess.run(["tar", "-xzf", archive, "-C", opt], check=True)
    return os.path.join(opt, "Nubra")


def installed_version(bundle):
    """What `nubra --version` of the installation says; None while it cannot run (mid-swap)."""
    try:
        done = subprocess.run([os.path.join(bundle, "bin", "nubra"), "--version"], capture_output=True, text=True,
                              timeout=10)
    except OSError:
        return None
    return done.stdout.split()[-1] if done.returncode == 0 and done.stdout.strip() else None


def nubra_processes(bundle):
    found = subprocess.run(["pgrep", "-f", f"^{os.path.join(bundle, 'bin', 'nubra')}( |$)"], capture_output=True,
                           text=True).stdout.split()
    return [int(pid) for pid in found]


def start_old_nubra(desktop, name):
    """The older release, installed in a fresh HOME and started against a service offering the newer."""
    env = dict(os.environ, **fresh_home(name), QT_QPA_PLATFORM="xcb", QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1",
               LANGUAGE="en", LANG="C.UTF-8")
    env["TMPDIR"] = os.path.join(env["HOME"], "tmp")
    os.makedirs(env["TMPDIR"])
    env["NUBRA_BASE_URL"] = start_service(desktop, [ARGS.glossd, "--backend", "wordnet", "--releases", ARGS.new])
    bundle = install_release(ARGS.old, env["HOME"])
    old = manifest(ARGS.old)["version"]
    check(installed_version(bundle) == old, f"the older release is not {old}")
    process = desktop.spawn([os.path.join(bundle, "bin", "nubra")], env=env,
                            stderr=os.path.join(ARGS.artifacts, f"{name}-stderr.txt"))
    return bundle, env, process


def update_checks():
    """How many update checks Nubra has finished, by its debug log."""
    try:
        with open(os.environ["NUBRA_DEBUG_LOG"], encoding="utf-8", errors="replace") as log:
            return log.read().count("updater: result=")
    except OSError:
        return 0


def accept_offer():
    """Waits for the check Nubra makes by itself after starting, chooses "Check for Updates…" in the tray,
    then "Download & Install" in the offer. Waiting for the first check keeps its offer from replacing
    the one about to be clicked."""
    before = update_checks()
    poll("the check after start-up", lambda: update_checks() > before, 20)
    click_menu_item("Check for Updates…", timeout=20)
    poll("the check from the menu", lambda: update_checks() > before + 1, 20)
    version = manifest(ARGS.new)["version"]
    poll("the offer of the new version", lambda: widget("label", name=f"^{version}"), 20)
    offer = poll("the offer's window", lambda: window_named("New version available"), 5)
    subprocess.run(["import", "-window", offer, os.path.join(ARGS.artifacts, "update-offer.png")], check=False)
    button = poll("its Download & Install button", lambda: widget("push button", name="^Download & Install$"), 5)
    click(button)


def leftovers(bundle, env):
    """What an update leaves behind: the downloaded archive, script and note, staging and backup."""
    return glob.glob(os.path.join(env["TMPDIR"], "Nubra-*.tar.gz")) + \
        glob.glob(os.path.join(env["TMPDIR"], "nubra-update-*.sh")) + \
        glob.glob(os.path.join(os.path.dirname(bundle), ".nubra-*"))


def quits(process):
    """Waits for `process` to end, reaping it as the program that started Nubra would: until then the
    install script, which waits for the process id to go, would see it still there."""
    poll("the old Nubra to quit", lambda: process.poll() is not None, 30)


def update_installs_and_relaunches(desktop):
    watcher, _ = start_watcher(desktop)
    bundle, env, old = start_old_nubra(desktop, "update")
    accept_offer()

    new = manifest(ARGS.new)["version"]
    quits(old)
    poll("the new version installed", lambda: installed_version(bundle) == new, 30)
    running = poll("the new Nubra running", lambda: nubra_processes(bundle), 30)
    check(os.path.realpath(f"/proc/{running[0]}/exe") == os.path.realpath(os.path.join(bundle, "bin", "nubra")),
          "the running Nubra is not the installed one")

    # Seen as a person sees it: the About tab of the running Nubra names the new version.
    subprocess.run([os.path.join(bundle, "bin", "nubra"), "--settings", "about"], env=env, timeout=10, check=True)
    poll("the About tab with the new version", lambda: widget("label", name=f"^v{new}$"), 20)
    about = poll("the settings window", lambda: window_named("Nubra Settings"), 5)
    subprocess.run(["import", "-window", about, os.path.join(ARGS.artifacts, "update-about.png")], check=False)
    # The script cleans up after starting the new version: its archive, itself, staging and backup.
    poll("the install script to clean up", lambda: not leftovers(bundle, env), 10)
    subprocess.run([os.path.join(bundle, "bin", "nubra"), "--quit"], env=env, timeout=10, check=True)
    poll("the new Nubra to quit", lambda: not nubra_processes(bundle), 10)
    stop(watcher)


def body(desktop):
    update_installs_and_relaunches(desktop)
    print("ok - a signed release replaces the installation and starts", flush=True)


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    for option in ("--old", "--new", "--glossd", "--artifacts"):
        parser.add_argument(option, required=True)
    ARGS = parser.parse_args()
    ARGS.old, ARGS.new = os.path.abspath(ARGS.old), os.path.abspath(ARGS.new)
    os.makedirs(ARGS.artifacts, exist_ok=True)
    run(body, os.path.join(ARGS.artifacts, "update-desktop.png"))


if __name__ == "__main__":
    main()
