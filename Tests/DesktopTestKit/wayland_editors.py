"""The editors the Wayland end-to-end suites select in, each a native Wayland client with accessibility:
GTK 3 (mousepad), GTK 4 (GNOME Text Editor) and Qt 6 (the test text window).

A Wayland client takes its window to start at 0,0; where the compositor shows it is the suite's to
say (`origin`).
"""
import json
import os
import shutil
import subprocess

from desktop_kit import Failure, Lines, poll, stop

SCREEN_WORDS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "screen_words.py")
SENTENCE = "She sat on the bank of the river and watched the boats.\n"
# The test text window's first line.
PROSE = "Alpha bravo charlie delta echo foxtrot golf hotel india juliet."


class Editor:
    """An editor showing `text`: `typed` is selected with the keyboard, `dragged` with the pointer;
    `bus_name` finds it on the accessibility bus, `source` is its name in the history."""

    prints = False  # whether what it prints is read

    def __init__(self, label, argv, bus_name, source, text, typed, dragged, env=None):
        self.label, self.argv, self.bus_name, self.source = label, argv, bus_name, source
        self.text, self.typed, self.dragged, self.env = text, typed, dragged, env or {}
        self.process = None

    def installed(self):
        return shutil.which(self.argv[0]) is not None

    def start(self, spawn, env, folder):
        """Starts it through `spawn(argv, env=…, capture=…)` on the file it shows, in `folder`."""
        path = os.path.join(folder, "river.txt")
        with open(path, "w", encoding="utf-8") as f:
            f.write(SENTENCE)
        argv = [path if part == "{file}" else part for part in self.argv]
        self.process = spawn(argv, env=dict(env, GDK_BACKEND="wayland", QT_QPA_PLATFORM="wayland", **self.env),
                             capture=self.prints)
        return self.process

    def words(self, origin, env, *words):
        """Where `words` are on the screen, and the size of the editor's window, as screen_words.py tells."""
        found = subprocess.run(["/usr/bin/python3", SCREEN_WORDS, "--origin", "%d,%d" % origin, self.bus_name,
                                *words], env=env, capture_output=True, text=True, timeout=20)
        return json.loads(found.stdout or "{}")

    def drag_span(self, origin, env):
        """Where a drag over `dragged` starts and ends: just inside the word, along its middle."""
        rect = poll(f"where {self.dragged!r} is in {self.label}",
                    lambda: self.words(origin, env, self.dragged).get(self.dragged), 10)
        y = rect["y"] + rect["height"] // 2
        return (rect["x"] + 1, y), (rect["x"] + rect["width"] - 1, y)

    def stop(self):
        stop(self.process)


class TextWindow(Editor):
    """The test text window, which prints where its words start and end: Qt counts the character after
    a range into the range's extents, so a drag to the edge those give takes the space after the word."""

    prints = True

    def __init__(self, path, env=None):
        super().__init__("Qt 6", [path], "textwindow", "nubra-test-textwindow", PROSE, "delta", "foxtrot", env)
        self.lines = None
        self.printed = {}

    def installed(self):
        return True

    def start(self, spawn, env, folder):
        self.printed = {}
        self.lines = Lines(super().start(spawn, env, folder))
        return self.process

    def drag_span(self, origin, env):
        while self.dragged not in self.printed:
            line = self.lines.next_json(10)
            if line is None:
                raise Failure(f"{self.label} did not tell where {self.dragged!r} is")
            self.printed[line["word"]] = line
        word = self.printed[self.dragged]
        y = origin[1] + word["y"]
        return (origin[0] + word["startX"] + 1, y), (origin[0] + word["endX"] - 1, y)


def editors(textwindow, textwindow_env=None):
    """The three editors, GTK 3 first."""
    return [Editor("GTK 3", ["mousepad", "--disable-server", "{file}"], "mousepad", "Mousepad", SENTENCE, "river",
                   "boats"),
            Editor("GTK 4", ["gnome-text-editor", "--standalone", "{file}"], "text-editor", "Text Editor", SENTENCE,
                   "river", "boats"),
            TextWindow(textwindow, textwindow_env)]
