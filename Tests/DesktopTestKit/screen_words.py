#!/usr/bin/python3
"""Prints where words of an application's text are on the screen, read through the accessibility bus:
screen_words.py [--origin X,Y] APPLICATION WORD... → JSON {word: {x, y, width, height} or null}
(top-left origin).

--origin: the application is a Wayland client, whose toolkit takes its window to start at 0,0; X,Y is
where the compositor shows the window's content. The answer then also holds, under "window", the size
of the application's first window ({width, height}).

APPLICATION is matched against the names on the bus, case ignored, as a part of the name. A word is
found as a whole word in the first text object that holds it. Run with Debian's python3, which has the
AT-SPI bindings.

Toolkits disagree on coordinates, so this asks the way each one answers right:
- whole-range screen extents (Gecko, Chromium, GTK 3, LibreOffice);
- LibreOffice (GTK 3) places what is inside its root pane as if the pane started where the window
  does, leaving out the native menu bar above it: the pane reports itself higher than the panel that
  holds it, and that difference is added back;
- GTK 4 refuses those and screen coordinates altogether, but gives each character's extents relative
  to its window's content: add the window's place on the screen and the margin its client-side shadow
  takes inside the X window.
Never asks for an object's attributes: that alone switches Chromium's page tree on, and a test of
Chromium without accessibility must not do it behind the probe's back.
"""
import json
import re
import subprocess
import sys
import warnings

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

warnings.simplefilter("ignore", DeprecationWarning)  # get_text_iface: the replacement is newer than Debian 12's

# Menus hold most of LibreOffice's objects and never the text a test looks for.
SKIPPED_ROLES = {Atspi.Role.MENU_BAR, Atspi.Role.MENU, Atspi.Role.MENU_ITEM, Atspi.Role.CHECK_MENU_ITEM,
                 Atspi.Role.RADIO_MENU_ITEM, Atspi.Role.SEPARATOR, Atspi.Role.PASSWORD_TEXT}
MAX_OBJECTS = 4000


def text_objects(node, budget, shift=(0, 0), holder=None, depth=0):
    """Depth-first, the objects with a text interface, with their text and the shift their screen
    coordinates need (see root_pane_shift)."""
    if node is None or depth > 40 or budget[0] <= 0:
        return
    budget[0] -= 1
    try:
        role = node.get_role()
        if role in SKIPPED_ROLES:
            return
        if role == Atspi.Role.ROOT_PANE and holder is not None:
            shift = root_pane_shift(node, holder)
        if node.get_text_iface() is not None:
            yield node, Atspi.Text.get_text(node, 0, -1), shift
        count = node.get_child_count()
    except GLib.Error:
        return
    for i in range(count):
        try:
            child = node.get_child_at_index(i)
        except GLib.Error:
            continue
        yield from text_objects(child, budget, shift, node, depth + 1)


def root_pane_shift(pane, holder):
    """How far a root pane reports itself up and left of the object that holds it. (LibreOffice's pane
    names the window as its parent, so the holder is the object that lists it as a child.)"""
    inner = Atspi.Component.get_extents(pane, Atspi.CoordType.SCREEN)
    outer = Atspi.Component.get_extents(holder, Atspi.CoordType.SCREEN)
    return max(0, outer.x - inner.x), max(0, outer.y - inner.y)


def window_origin(node):
    """Where the content of `node`'s window starts on the screen: the X window's place plus the margin
    of a client-side shadow (the X window's size less the size the toolkit gives its frame)."""
    frame = node
    while True:
        parent = frame.get_parent()
        if parent is None or parent.get_role() == Atspi.Role.APPLICATION:
            break
        frame = parent
    size = Atspi.Component.get_extents(frame, Atspi.CoordType.WINDOW)
    pid = node.get_process_id()
    found = subprocess.run(["xdotool", "search", "--onlyvisible", "--pid", str(pid)], capture_output=True,
                           text=True).stdout.split()
    best = None
    for window in found:
        values = dict(word.split("=", 1) for word in subprocess.run(
            ["xdotool", "getwindowgeometry", "--shell", window], capture_output=True, text=True).stdout.split()
            if "=" in word)
        if "WIDTH" not in values:
            continue
        geometry = tuple(int(values[key]) for key in ("X", "Y", "WIDTH", "HEIGHT"))
        if best is None or geometry[2] * geometry[3] > best[2] * best[3]:
            best = geometry
    if best is None:
        return None
    x, y, width, height = best
    return x + max(0, (width - size.width) // 2), y + max(0, (height - size.height) // 2)


def union(a, b):
    left, top = min(a[0], b[0]), min(a[1], b[1])
    return left, top, max(a[0] + a[2], b[0] + b[2]) - left, max(a[1] + a[3], b[1] + b[3]) - top


def word_rect(node, start, end, shift, origin=None):
    """None while the application has not laid the text out yet (Gecko answers zeros then)."""
    try:
        r = Atspi.Text.get_range_extents(node, start, end, Atspi.CoordType.SCREEN)
        if r.width <= 0 or r.height <= 0:
            return None
        shift = origin or shift
        return r.x + shift[0], r.y + shift[1], r.width, r.height
    except GLib.Error:
        pass  # GTK 4
    try:
        first = Atspi.Text.get_character_extents(node, start, Atspi.CoordType.WINDOW)
        last = Atspi.Text.get_character_extents(node, end - 1, Atspi.CoordType.WINDOW)
    except GLib.Error:
        return None
    origin = origin or window_origin(node)
    if origin is None or first.width <= 0:
        return None
    x, y, width, height = union((first.x, first.y, first.width, first.height),
                                (last.x, last.y, last.width, last.height))
    return x + origin[0], y + origin[1], width, height


def main():
    arguments = sys.argv[1:]
    origin = None
    if arguments[0] == "--origin":
        origin = tuple(int(n) for n in arguments[1].split(","))
        arguments = arguments[2:]
    application, words = arguments[0].lower(), arguments[1:]
    Atspi.set_timeout(1000, 3000)
    found = {word: None for word in words}
    desktop = Atspi.get_desktop(0)
    for i in range(desktop.get_child_count()):
        app = desktop.get_child_at_index(i)
        if app is None or application not in (app.get_name() or "").lower():
            continue
        budget = [MAX_OBJECTS]
        for node, text, shift in text_objects(app, budget):
            for word in words:
                if found[word] is not None:
                    continue
                match = re.search(rf"\b{re.escape(word)}\b", text)
                if not match:
                    continue
                rect = word_rect(node, match.start(), match.end(), shift, origin)
                if rect:
                    found[word] = dict(zip(("x", "y", "width", "height"), rect))
            if all(found.values()):
                break
        if origin and app.get_child_count():
            size = Atspi.Component.get_extents(app.get_child_at_index(0), Atspi.CoordType.WINDOW)
            found["window"] = {"width": size.width, "height": size.height}
    print(json.dumps(found))
    return 0


if __name__ == "__main__":
    sys.exit(main())
