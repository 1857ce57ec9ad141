#!/usr/bin/env python3
"""Capture in the applications people read in, on a virtual X11 desktop (see DesktopTestKit).

Each application is started once, with a document of known words: Firefox ESR and Chromium (with and
without --force-renderer-accessibility) on fixtures/reading.html, LibreOffice Writer on
fixtures/writing.fodt, Evince on a PDF written here, GNOME Text Editor on a text file and gnome-terminal
on a shell's output. The cases double-click words and drag across phrases with xdotool, and judge the
JSON lines of nubra-capture-probe: the exact text, the neighbouring words in the context, and a
rectangle over the words, measured through the accessibility bus (screen_words.py). The probe is
started before some applications and after others (Writer always runs before it, so the probe has to
find the focus without having seen it move).

A case that fails is reported and the others still run; the script fails if any case failed. An
application that is not installed is skipped; with none installed the script exits 77 (skipped).
"""
import argparse
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "DesktopTestKit"))
from desktop_kit import (SCREEN_H, SKIP, Failure, Lines, check, poll, run, screenshot, xdotool,  # noqa: E402
                         xdotool_output)

HERE = os.path.dirname(os.path.abspath(__file__))
SCREEN_WORDS = os.path.join(HERE, "..", "DesktopTestKit", "screen_words.py")
ARGS = None
TOLERANCE = 6  # pixels between the probe's rectangle and the words' own


# ---------------------------------------------------------------------------------------------------
# Applications

class App:
    """An application started in its own process group, so that stopping it takes its helpers too."""

    def __init__(self, argv, window_class, env=None):
        self.window_class = window_class
        self.process = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL, env=env, start_new_session=True)
        self.extra_pids = []

    def window(self, timeout=60):
        def find():
            found = xdotool_output("search", "--onlyvisible", "--class", self.window_class)
            return found[-1] if found else None
        return poll(f"a window of class {self.window_class}", find, timeout)

    def activate(self):
        xdotool("windowactivate", "--sync", self.window())

    def stop(self):
        for pid in self.extra_pids:
            try:
                os.kill(pid, signal.SIGTERM)
            except ProcessLookupError:
                pass
        if self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGTERM)
            try:
                self.process.wait(timeout=5)
            except subprocess.TimeoutExpired:
                os.killpg(self.process.pid, signal.SIGKILL)
                self.process.wait()
        else:
            try:  # the launcher is gone; what it started may not be
                os.killpg(self.process.pid, signal.SIGTERM)
            except ProcessLookupError:
                pass


def runtime_path(name):
    return os.path.join(os.environ["XDG_RUNTIME_DIR"], name)


def words_on_screen(application, words, hold=0.5, timeout=40):
    """The rectangles of `words` once the application shows them all and they have held still for `hold`
    seconds (an application may still move or resize its window after it first shows the text)."""
    state = {"rects": None, "since": 0.0}

    def settled():
        found = subprocess.run(["/usr/bin/python3", SCREEN_WORDS, application, *words], capture_output=True,
                               text=True)
        rects = json.loads(found.stdout) if found.returncode == 0 and found.stdout else {}
        if not rects or not all(rects.values()):
            state["rects"] = None
            return None
        if rects != state["rects"]:
            state["rects"], state["since"] = rects, time.monotonic()
            return None
        return rects if time.monotonic() - state["since"] >= hold else None
    return poll(f"{application} to show {' '.join(words)}", settled, timeout)


# ---------------------------------------------------------------------------------------------------
# Gestures

def center(rect):
    return rect["x"] + rect["width"] // 2, rect["y"] + rect["height"] // 2


def double_click(rect):
    xdotool("mousemove", *center(rect))
    xdotool("click", "--repeat", 2, "--delay", 80, 1)


def drag(first, last):
    """From the left edge of `first` to the right edge of `last`, in small steps: some viewers (Evince)
    select only along motion they have seen."""
    y0, y1 = center(first)[1], center(last)[1]
    x0, x1 = first["x"] + 2, last["x"] + last["width"] - 2
    xdotool("mousemove", x0, y0, "mousedown", 1)
    steps = 6
    for step in range(1, steps + 1):
        xdotool("sleep", 0.04, "mousemove", x0 + (x1 - x0) * step // steps, y0 + (y1 - y0) * step // steps)
    xdotool("sleep", 0.04, "mouseup", 1)


def union(*rects):
    left = min(r["x"] for r in rects)
    top = min(r["y"] for r in rects)
    return {"x": left, "y": top, "width": max(r["x"] + r["width"] for r in rects) - left,
            "height": max(r["y"] + r["height"] for r in rects) - top}


# ---------------------------------------------------------------------------------------------------
# The probe and what it must report

class Probe:
    def __init__(self):
        self.process = subprocess.Popen([ARGS.probe, "--trigger", "onSelection", "--radius", "12"],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, text=True)
        self.lines = Lines(self.process)
        ready = self.lines.next_json(15)
        check(ready and ready.get("event") == "ready", f"the probe did not start: {ready}")

    def capture(self, timeout):
        deadline = time.monotonic() + timeout
        while (remaining := deadline - time.monotonic()) > 0:
            got = self.lines.next_json(remaining)
            if got is None or "text" in got:
                return got
        return None

    def nothing(self, timeout, what):
        got = self.capture(timeout)
        check(got is None, f"{what} captured {got}")

    def stop(self):
        self.process.terminate()
        try:
            self.process.wait(timeout=5)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


def flat(text):
    return re.sub(r"\s+", " ", text or "")


def top_left(bounds):
    """The probe reports bottom-left-origin coordinates."""
    return {"x": bounds["x"], "y": SCREEN_H - bounds["y"] - bounds["height"], "width": bounds["width"],
            "height": bounds["height"]}


def check_capture(got, text, before=None, after=None, rect=None, spans=None, paths=("accessibility",)):
    """The words, and when they came through the accessibility interface, their context and where they
    are: `rect` must be the probe's rectangle (within TOLERANCE), `spans` words whose centres it covers (a
    selection over several lines). PRIMARY knows neither; its rectangle is the mouse's place."""
    check(got is not None, "nothing was captured")
    check(flat(got["text"]).strip() == text, f"captured {got['text']!r}, not {text!r}: {got}")
    check(got["path"] in paths, f"came through {got['path']}, not {' or '.join(paths)}: {got}")
    if got["path"] != "accessibility":
        return got["path"]
    if before is not None:
        check(flat(got["before"]).endswith(before), f"context before is {got['before']!r}, not …{before!r}")
    if after is not None:
        check(flat(got["after"]).startswith(after), f"context after is {got['after']!r}, not {after!r}…")
    bounds = top_left(got["bounds"])
    if rect is not None:
        edges = ((bounds["x"], rect["x"]), (bounds["y"], rect["y"]),
                 (bounds["x"] + bounds["width"], rect["x"] + rect["width"]),
                 (bounds["y"] + bounds["height"], rect["y"] + rect["height"]))
        check(all(abs(a - b) <= TOLERANCE for a, b in edges), f"rectangle {bounds} is not the words' {rect}")
    for word in spans or ():
        x, y = center(word)
        check(bounds["x"] <= x <= bounds["x"] + bounds["width"] and bounds["y"] <= y <= bounds["y"] +
              bounds["height"], f"rectangle {bounds} does not cover {word}")
    return got["path"]


class Suite:
    def __init__(self):
        self.passed, self.failed = 0, []

    def case(self, name, fn):
        """Runs one case; a failed one leaves a picture of the screen among the artifacts."""
        try:
            path = fn()
        except Failure as failure:
            self.failed.append(name)
            print(f"not ok - {name}: {failure}", flush=True)
            screenshot(os.path.join(ARGS.artifacts, "apps-" + re.sub(r"[^a-z0-9]+", "-", name.lower()) + ".png"))
            return
        self.passed += 1
        print(f"ok - {name}" + (f" ({path})" if path else ""), flush=True)


class Reader:
    """The gestures of one application's cases, with the probe that judges them."""

    def __init__(self, suite, probe, label, words, empty, timeout=6):
        self.suite, self.probe, self.label, self.words, self.empty = suite, probe, label, words, empty
        self.timeout = timeout

    def deselect(self):
        # A press inside a selection would start dragging it: click where there is nothing first. A
        # click selects nothing and must capture nothing.
        xdotool("mousemove", *self.empty, "click", 1)
        self.probe.nothing(0.6, "a click on an empty spot")

    def word(self, name, word, **expected):
        def fn():
            self.deselect()
            double_click(self.words[word])
            expected.setdefault("rect", self.words[word])
            return check_capture(self.probe.capture(self.timeout), word, **expected)
        self.suite.case(f"{self.label}: {name}", fn)

    def phrase(self, name, first, last, text, **expected):
        def fn():
            self.deselect()
            drag(self.words[first], self.words[last])
            if self.words[first]["y"] == self.words[last]["y"]:
                expected.setdefault("rect", union(self.words[first], self.words[last]))
            else:
                expected.setdefault("spans", (self.words[first], self.words[last]))
            return check_capture(self.probe.capture(self.timeout), text, **expected)
        self.suite.case(f"{self.label}: {name}", fn)

    def refused(self, name, word):
        def fn():
            self.deselect()
            xdotool("mousemove", *center(self.words[word]), "click", 1)
            self.probe.nothing(0.6, "a click into the password field")
            xdotool("click", "--repeat", 2, "--delay", 80, 1)
            self.probe.nothing(3, "a double-click in a password field")
        self.suite.case(f"{self.label}: {name}", fn)


# ---------------------------------------------------------------------------------------------------
# Browsers

PAGE = os.path.join(HERE, "fixtures", "reading.html")
PAGE_WORDS = ["about", "charlie", "hotel", "lima", "oscar", "quebec", "sierra", "uniform", "xray", "maple",
              "jasper", "copper", "heron", "candle"]
FIREFOX_PREFERENCES = """\
user_pref("browser.shell.checkDefaultBrowser", false);
user_pref("browser.startup.homepage_override.mstone", "ignore");
user_pref("startup.homepage_welcome_url", "");
user_pref("browser.aboutwelcome.enabled", false);
user_pref("datareporting.policy.dataSubmissionEnabled", false);
user_pref("toolkit.telemetry.reportingpolicy.firstRun", false);
user_pref("browser.startup.upgradeDialog.enabled", false);
user_pref("browser.tabs.warnOnClose", false);
"""


def page_cases(reader, full):
    """What reading.html must give in a browser that shows its tree."""
    reader.word("a word of a paragraph", "charlie", before="bravo ", after=" delta")
    reader.phrase("a drag across a link", "lima", "oscar", "lima mike november oscar", before="Kilo ",
                  after=" papa")
    reader.phrase("a drag across two paragraphs", "hotel", "lima", "hotel india juliet. Kilo lima",
                  before="golf ", after=" mike")
    reader.word("a word in <code>", "sierra", before="romeo ", after=" tango")
    reader.word("a list item", "xray", before="Whiskey ", after=" yankee")
    reader.word("the iframe", "candle", before="Lantern ", after=" torch")

    def leaving_the_frame():
        # Each document keeps its own selection: a click on the page leaves the frame's selection as it
        # was, and having selected nothing, must capture nothing.
        try:
            reader.deselect()
        finally:  # the frame's selection must not reach the cases after this one
            candle = reader.words["candle"]
            xdotool("mousemove", candle["x"] + 330, center(candle)[1], "click", 1)
            reader.probe.capture(0.6)
    reader.suite.case(f"{reader.label}: a click beside the iframe's selection captures nothing", leaving_the_frame)
    reader.word("an input", "copper", before="Nickel ", after=" zinc")
    if full:
        reader.word("a heading", "about", before="Heading ", after=" harbours")
        reader.word("bold", "quebec", before="papa ", after=" romeo")
        reader.word("a larger span", "uniform", before="tango ", after=" victor")
        reader.word("a table cell", "maple", before="cedar ")
        reader.word("a textarea", "jasper", before="Garnet ", after=" opal")
        reader.word("contenteditable", "heron", before="Falcon ", after=" osprey")
    reader.refused("a password field is refused", "password")


def password_field(words):
    """The password field follows the input on the same line; the words hold its text field's place."""
    copper = words["copper"]
    return {"x": copper["x"] + 260, "y": copper["y"], "width": 20, "height": copper["height"]}


def below(words, anchor):
    rect = words[anchor]
    return rect["x"] + 300, rect["y"] + rect["height"] + 70


def firefox(suite):
    profile = runtime_path("firefox-profile")
    os.makedirs(profile)
    with open(os.path.join(profile, "user.js"), "w", encoding="utf-8") as f:
        f.write(FIREFOX_PREFERENCES)
    probe = Probe()  # before the browser
    app = App(["firefox-esr", "-profile", profile, "-no-remote", "--width", "1200", "--height", "760",
               f"file://{PAGE}"], "firefox")
    try:
        app.window()
        words = words_on_screen("firefox", PAGE_WORDS)
        words["password"] = password_field(words)
        app.activate()
        page_cases(Reader(suite, probe, "Firefox", words, below(words, "candle")), full=True)
    finally:
        probe.stop()
        app.stop()


CHROMIUM = ["chromium", "--no-sandbox", "--test-type", "--password-store=basic", "--no-first-run",
            "--window-position=40,27", "--window-size=1200,760"]


def chromium(suite):
    app = App([*CHROMIUM, f"--user-data-dir={runtime_path('chromium-a11y')}", "--force-renderer-accessibility",
               f"file://{PAGE}"], "chromium")
    probe = None
    try:
        app.window()
        words = words_on_screen("chromium", PAGE_WORDS)
        words["password"] = password_field(words)
        probe = Probe()  # after the browser
        app.activate()
        reader = Reader(suite, probe, "Chromium with accessibility", words, below(words, "candle"))
        # Nubra asks a Chromium it has not read from yet to build its tree, and Chromium's tree can lag a
        # moment behind the page after that: the first selection may come through PRIMARY.
        poll("Chromium to answer", lambda: first_selection(reader, "charlie"), 30)
        page_cases(reader, full=False)
    finally:
        if probe:
            probe.stop()
        app.stop()
    return words


def chromium_plain(suite, words):
    """Without the flag there is no tree to measure: the same window shows the same page at the same
    place, so the words are where they were."""
    probe = Probe()
    app = App([*CHROMIUM, f"--user-data-dir={runtime_path('chromium-plain')}", f"file://{PAGE}"], "chromium")
    try:
        app.window()
        app.activate()
        reader = Reader(suite, probe, "Chromium without accessibility", words, below(words, "candle"))
        # The page must be up before its words are clicked: wait for the first double-click to select.
        poll("Chromium to show the page", lambda: first_selection(reader, "charlie"), 30)
        # PRIMARY has the text alone; once capture has switched the page's tree on, the context too.
        paths = ("primary", "accessibility")
        reader.word("a word of a paragraph", "charlie", before="bravo ", after=" delta", paths=paths)
        reader.phrase("a drag across a link", "lima", "oscar", "lima mike november oscar", before="Kilo ",
                      after=" papa", paths=paths)
        # Chromium puts a password field's clear text on PRIMARY.
        reader.refused("a password field is refused", "password")
    finally:
        probe.stop()
        app.stop()


def first_selection(reader, word):
    xdotool("mousemove", *reader.empty, "click", 1)
    reader.probe.capture(0.6)  # an earlier try's capture, late
    double_click(reader.words[word])
    got = reader.probe.capture(3)
    return got is not None and flat(got["text"]).strip() == word


# ---------------------------------------------------------------------------------------------------
# Documents and editors

def writer(suite):
    profile = runtime_path("libreoffice-profile")
    os.makedirs(os.path.join(profile, "user"))
    with open(os.path.join(profile, "user", "registrymodifications.xcu"), "w", encoding="utf-8") as f:
        f.write('<?xml version="1.0" encoding="UTF-8"?>\n'
                '<oor:items xmlns:oor="http://openoffice.org/2001/registry">\n'
                '<item oor:path="/org.openoffice.Office.Common/Misc"><prop oor:name="ShowTipOfTheDay" '
                'oor:op="fuse"><value>false</value></prop></item>\n'
                '<item oor:path="/org.openoffice.Office.Common/Misc"><prop oor:name="FirstRun" '
                'oor:op="fuse"><value>false</value></prop></item>\n'
                '<item oor:path="/org.openoffice.Setup/Product"><prop oor:name="ooSetupLastVersion" '
                'oor:op="fuse"><value>7.4</value></prop></item>\n'
                '</oor:items>\n')
    document = runtime_path("writing.fodt")
    shutil.copy(os.path.join(HERE, "fixtures", "writing.fodt"), document)
    app = App(["soffice", "--writer", "--norestore", "--nologo", f"-env:UserInstallation=file://{profile}",
               document], "libreoffice-writer")
    probe = None
    try:
        app.window(timeout=120)
        words = words_on_screen("soffice", ["charlie", "delta", "foxtrot", "hotel", "lima"], hold=3, timeout=60)
        app.activate()
        # Writer moves its focus into the text a moment after the window appears: the words' rectangles
        # holding still says the layout is done, the caret's paragraph says the focus arrived.
        probe = Probe()  # after Writer: the probe has seen no focus event
        reader = Reader(suite, probe, "Writer (open before the probe)", words,
                        (words["charlie"]["x"] + 200, words["lima"]["y"] + 200), timeout=10)
        reader.word("a double-click on a word", "charlie", before="bravo ", after=" delta")
        reader.phrase("a drag across a phrase", "delta", "foxtrot", "delta echo foxtrot", before="charlie ",
                      after=" golf")
        reader.phrase("a drag across two paragraphs", "hotel", "lima", "hotel india juliet. Kilo lima",
                      before="golf ", after=" mike")
    finally:
        if probe:
            probe.stop()
        app.stop()


def pdf(lines, path):
    """A one-page PDF of `lines` in Helvetica, which every PDF viewer has."""
    content = "BT /F1 22 Tf 30 120 Td 30 TL " + " ".join(f"({line}) Tj T*" for line in lines) + " ET"
    objects = ["<< /Type /Catalog /Pages 2 0 R >>", "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
               "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 520 170] /Contents 4 0 R "
               "/Resources << /Font << /F1 5 0 R >> >> >>",
               f"<< /Length {len(content)} >>\nstream\n{content}\nendstream",
               "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"]
    out, offsets = "%PDF-1.4\n", []
    for number, body in enumerate(objects, 1):
        offsets.append(len(out))
        out += f"{number} 0 obj\n{body}\nendobj\n"
    xref = len(out)
    out += f"xref\n0 {len(objects) + 1}\n0000000000 65535 f \n"
    out += "".join(f"{offset:010d} 00000 n \n" for offset in offsets)
    out += f"trailer\n<< /Size {len(objects) + 1} /Root 1 0 R >>\nstartxref\n{xref}\n%%EOF\n"
    with open(path, "w", encoding="ascii") as f:
        f.write(out)


def word_and_phrase(suite, label, argv, window_class, drop):
    """A double-click on "charlie" and a drag from "lima" to "november" in a document showing the
    reading lines, with the probe started before the application; `drop`: how far below "charlie" the
    document is empty."""
    probe = Probe()
    app = App(argv, window_class)
    try:
        app.window()
        words = words_on_screen(window_class, ["charlie", "lima", "november"])
        app.activate()
        empty = (words["charlie"]["x"], words["charlie"]["y"] + drop)
        reader = Reader(suite, probe, label, words, empty)
        reader.word("a double-click on a word", "charlie", before="bravo ", after=" delta")
        reader.phrase("a drag across a phrase", "lima", "november", "lima mike november", before="Kilo ",
                      after=" oscar")
    finally:
        probe.stop()
        app.stop()


def evince(suite):
    document = runtime_path("reading.pdf")
    pdf(["Alpha bravo charlie delta echo", "Kilo lima mike november oscar", "Uniform victor whiskey xray"],
        document)
    word_and_phrase(suite, "Evince", ["evince", document], "evince", 250)


def text_editor(suite):
    document = runtime_path("reading.txt")
    with open(document, "w", encoding="utf-8") as f:
        f.write("Alpha bravo charlie delta echo foxtrot golf.\nKilo lima mike november oscar papa.\n")
    word_and_phrase(suite, "GNOME Text Editor", ["gnome-text-editor", "--standalone", document],
                    "gnome-text-editor", 200)


def terminal(suite):
    """A terminal never gets a synthetic Ctrl+C: it would interrupt what runs there. The shell here
    leaves a mark when interrupted; the clipboard must keep what the user had put there."""
    interrupted = runtime_path("interrupted")
    script = ("printf 'Alpha bravo charlie delta echo\\nKilo lima mike november oscar\\n'; "
              f"trap 'echo > {interrupted}' INT; while :; do sleep 0.2; done")
    app = App(["gnome-terminal", "--geometry=70x10+80+80", "--", "sh", "-c", script], "gnome-terminal")
    probe = None
    try:
        window = app.window()
        # The window belongs to gnome-terminal-server, which the session bus started for the test.
        pid = subprocess.run(["xdotool", "getwindowpid", window], capture_output=True, text=True).stdout.strip()
        if pid.isdigit():
            app.extra_pids.append(int(pid))
        words = words_on_screen("gnome-terminal", ["charlie", "lima", "november"])
        probe = Probe()  # after the terminal
        app.activate()
        subprocess.run(["xclip", "-selection", "clipboard", "-i"], input="the user's own words", text=True,
                       check=True)
        empty = (words["charlie"]["x"], words["charlie"]["y"] + 120)
        reader = Reader(suite, probe, "gnome-terminal", words, empty)
        paths = ("accessibility", "primary")
        reader.word("a double-click on a word", "charlie", before="bravo ", after=" delta", paths=paths)
        reader.phrase("a drag across a phrase", "lima", "november", "lima mike november", before="Kilo ",
                      after=" oscar", paths=paths)

        def untouched():
            clipboard = subprocess.run(["xclip", "-selection", "clipboard", "-o"], capture_output=True, text=True,
                                       timeout=5).stdout
            check(clipboard == "the user's own words", f"the clipboard holds {clipboard!r}")
            check(not os.path.exists(interrupted), "the terminal received Ctrl+C")
        suite.case("gnome-terminal: no copy keystroke, the clipboard untouched", untouched)
    finally:
        if probe:
            probe.stop()
        app.stop()


# ---------------------------------------------------------------------------------------------------

APPLICATIONS = [  # (name, the program it needs, the session)
    ("firefox", "firefox-esr", firefox),
    ("chromium", "chromium", None),  # both Chromium sessions, see body()
    ("writer", "soffice", writer),
    ("evince", "evince", evince),
    ("text-editor", "gnome-text-editor", text_editor),
    ("terminal", "gnome-terminal", terminal),
]


def body(desktop):
    suite = Suite()
    chosen = [a for a in APPLICATIONS if not ARGS.only or a[0] in ARGS.only]
    started = time.monotonic()
    for name, program, session in chosen:
        if not shutil.which(program):
            print(f"# skipped: {program} is not installed", flush=True)
            continue
        begun = time.monotonic()
        try:
            if name == "chromium":
                chromium_plain(suite, chromium(suite))
            else:
                session(suite)
        except Failure as failure:  # the application itself would not come up
            suite.failed.append(name)
            print(f"not ok - {name}: {failure}", flush=True)
        print(f"# {name}: {time.monotonic() - begun:.0f} s", flush=True)
    if suite.passed == 0 and not suite.failed:
        print("SKIP: none of the applications is installed")
        sys.exit(SKIP)
    print(f"# {suite.passed} cases passed, {len(suite.failed)} failed in {time.monotonic() - started:.0f} s",
          flush=True)
    if suite.failed:
        raise Failure(f"{len(suite.failed)} cases failed: {', '.join(suite.failed)}")


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--probe", required=True)
    parser.add_argument("--artifacts", required=True)
    parser.add_argument("--only", nargs="*", help="run only these applications: " +
                        " ".join(name for name, _, _ in APPLICATIONS))
    ARGS = parser.parse_args()
    run(body, os.path.join(ARGS.artifacts, "capture-apps.png"))


if __name__ == "__main__":
    main()
