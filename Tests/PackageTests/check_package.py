#!/usr/bin/env python3
"""Checks the Debian package the way Debian's own tools see it, then (with --install, as root on a
disposable machine) installs it for real, uses it and removes it again.

From the .deb alone: every installed file at its path, the desktop entry, the AppStream metadata and the
user unit validated by their tools, and lintian without errors or warnings. Installed: a lookup through
the installed nubra-cli against the installed nubra-glossd (started through its user unit when a user
session bus exists), and a removal that leaves nothing behind.
usage: check_package.py [--install] PACKAGE.deb
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import sysconfig
import tempfile
import time

EXPECTED = [
    "usr/bin/nubra", "usr/bin/nubra-cli", "usr/bin/nubra-glossd", "usr/libexec/nubra/nubra-capture-probe",
    "usr/share/applications/app.nubra.Nubra.desktop", "usr/share/metainfo/app.nubra.Nubra.metainfo.xml",
    "usr/share/icons/hicolor/scalable/apps/app.nubra.Nubra.svg",
    *[f"usr/share/icons/hicolor/{n}x{n}/apps/app.nubra.Nubra.png" for n in (16, 22, 24, 32, 48, 64, 128, 256, 512)],
    "usr/share/man/man1/nubra.1.gz", "usr/share/man/man1/nubra-cli.1.gz", "usr/share/man/man1/nubra-glossd.1.gz",
    "usr/lib/systemd/user/nubra-glossd.service",
    "usr/share/doc/nubra/copyright", "usr/share/doc/nubra/changelog.gz", "usr/share/doc/nubra/environment.example",
    f"usr/lib/{sysconfig.get_config_var('MULTIARCH')}/nubra/nubra-ocr.so",
]

failures = []


def check(condition, message):
    print(f"{'ok' if condition else 'not ok'} - {message}", flush=True)
    if not condition:
        failures.append(message)
    return condition


def run(argv, **kwargs):
    return subprocess.run(argv, capture_output=True, text=True, **kwargs)


def tool_passes(argv, what, env=None, silent=False):
    """`silent`: the tool reports problems it forgives on its output, so any output fails too."""
    done = run(argv, env=env)
    if not check(done.returncode == 0 and not (silent and (done.stdout + done.stderr).strip()), what):
        print(done.stdout + done.stderr, flush=True)


def check_contents(deb):
    listed = run(["dpkg-deb", "--contents", deb]).stdout
    paths = {line.split()[-1].lstrip("./") for line in listed.splitlines() if not line.startswith("d")}
    missing = [path for path in EXPECTED if path not in paths]
    check(not missing, f"the package holds every file at its path (missing: {missing})")
    control = run(["dpkg-deb", "--field", deb, "Depends"]).stdout
    check(all(name in control for name in ("wordnet-base", "libqt6widgets6", "qt6-qpa-plugins", "libtesseract5")),
          f"Depends names the WordNet data, Qt and its X11 plugin, and Tesseract for the recognizer module: "
          f"{control.strip()}")


def check_files(deb, root):
    subprocess.run(["dpkg-deb", "-x", deb, root], check=True)
    usr = os.path.join(root, "usr")
    tool_passes(["desktop-file-validate", f"{usr}/share/applications/app.nubra.Nubra.desktop"],
                "desktop-file-validate accepts the desktop entry")
    tool_passes(["appstreamcli", "validate", "--no-net", f"{usr}/share/metainfo/app.nubra.Nubra.metainfo.xml"],
                "appstreamcli accepts the AppStream metadata")
    # The unit names its program by its installed path; verify a copy that points into the extracted tree.
    unit_dir = tempfile.mkdtemp(dir=root)
    with open(f"{usr}/lib/systemd/user/nubra-glossd.service", encoding="utf-8") as f:
        unit = f.read()
    check("ExecStart=/usr/bin/nubra-glossd " in unit, "the user unit starts the installed nubra-glossd")
    with open(os.path.join(unit_dir, "nubra-glossd.service"), "w", encoding="utf-8") as f:
        f.write(unit.replace("/usr/bin/", f"{usr}/bin/"))
    runtime = tempfile.mkdtemp(dir=root)
    os.chmod(runtime, 0o700)
    env = dict(os.environ, XDG_RUNTIME_DIR=runtime, MANPATH=f"{usr}/share/man")
    tool_passes(["systemd-analyze", "--user", "verify", os.path.join(unit_dir, "nubra-glossd.service")],
                "systemd-analyze verifies the user unit", env=env, silent=True)
    report = run(["lintian", "--fail-on", "error,warning", deb])
    findings = [line for line in report.stdout.splitlines() if re.match(r"^[EW]: ", line)]
    if not check(report.returncode == 0 and not findings, "lintian finds no errors and no warnings"):
        print(report.stdout + report.stderr, flush=True)


def installed_paths():
    """The package's files, and the folders that are its own."""
    return [path for path in run(["dpkg", "-L", "nubra"]).stdout.splitlines()
            if os.path.isfile(path) or (os.path.isdir(path) and "nubra" in os.path.basename(path))]


def look_up(service):
    done = run(["/usr/bin/nubra-cli", "gloss", "--base-url", service, "--no-history", "--before", "sat on the ",
                "--after", " of the river", "bank"], timeout=30)
    check(done.returncode == 0 and "bank" in done.stdout,
          f"the installed nubra-cli explains a word through {service}")


def start_glossd_directly():
    glossd = subprocess.Popen(["/usr/bin/nubra-glossd", "--port", "0"], stdout=subprocess.DEVNULL,
                              stderr=subprocess.PIPE, text=True)
    match = re.search(r"listening on (http://\S+)", glossd.stderr.readline())
    return glossd, match.group(1) if match else None


def user_unit_available():
    return run(["systemctl", "--user", "show-environment"]).returncode == 0


# apt waits this long for another package manager to let go of the dpkg lock instead of failing at once.
APT_GET = ["apt-get", "-o", "DPkg::Lock::Timeout=600"]


def check_installed(deb):
    print("# installing; if another package manager holds the dpkg lock, this waits up to 10 minutes for it",
          flush=True)
    install = run([*APT_GET, "install", "-y", "-q", os.path.abspath(deb)],
                  env=dict(os.environ, DEBIAN_FRONTEND="noninteractive"))
    if not check(install.returncode == 0, "apt-get installs the package with its dependencies"):
        print(install.stdout[-3000:] + install.stderr, flush=True)
        return
    files = installed_paths()
    try:
        if user_unit_available():
            run(["systemctl", "--user", "daemon-reload"])
            started = run(["systemctl", "--user", "start", "nubra-glossd"])
            check(started.returncode == 0, "systemctl --user starts nubra-glossd")
            deadline = time.monotonic() + 10
            while time.monotonic() < deadline and run(["curl", "-fsS", "http://127.0.0.1:8790/v1/updates/latest"]).returncode:
                time.sleep(0.2)
            look_up("http://127.0.0.1:8790")
            run(["systemctl", "--user", "stop", "nubra-glossd"])
        else:
            print("# no user session bus here: nubra-glossd started directly from its installed path", flush=True)
            glossd, service = start_glossd_directly()
            try:
                if check(service is not None, "the installed nubra-glossd starts"):
                    look_up(service)
            finally:
                glossd.terminate()
                glossd.wait(timeout=10)
    finally:
        removal = run([*APT_GET, "remove", "--purge", "-y", "-q", "nubra"])
        check(removal.returncode == 0, "apt-get removes the package")
        left = [path for path in files if os.path.exists(path)]
        check(not left, f"nothing of the package is left behind ({left})")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--install", action="store_true")
    parser.add_argument("deb")
    args = parser.parse_args()
    for tool in ("dpkg-deb", "desktop-file-validate", "appstreamcli", "systemd-analyze", "lintian"):
        if not shutil.which(tool):
            print(f"{tool} is missing", file=sys.stderr)
            return 2
    check_contents(args.deb)
    with tempfile.TemporaryDirectory() as root:
        check_files(args.deb, root)
    if args.install:
        if os.geteuid() != 0:
            print("# --install needs root; the installed checks were skipped", flush=True)
        elif check(run(["dpkg", "-s", "nubra"]).returncode != 0, "no nubra package is installed beforehand"):
            check_installed(args.deb)
    print(f"{len(failures)} failed" if failures else "all package checks passed", flush=True)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
