#!/usr/bin/python3
"""Prints the widgets an application shows, as read through the accessibility bus: one JSON list of
{role, name, text, x, y, width, height, states} (top-left screen origin), for a test to find a button by
its label or read a label's text the way a screen reader would. Run with Debian's python3, which has the
AT-SPI bindings: widgets.py APPLICATION"""
import json
import sys

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

STATES = {Atspi.StateType.SHOWING: "showing", Atspi.StateType.FOCUSED: "focused",
          Atspi.StateType.CHECKED: "checked", Atspi.StateType.ENABLED: "enabled",
          Atspi.StateType.SELECTED: "selected", Atspi.StateType.ACTIVE: "active"}


def describe(node):
    rect = node.get_extents(Atspi.CoordType.SCREEN)
    states = node.get_state_set()
    text = None
    if node.get_text_iface() is not None:
        text = Atspi.Text.get_text(node, 0, -1)
    return {"role": node.get_role_name(), "name": node.get_name(), "text": text, "x": rect.x, "y": rect.y,
            "width": rect.width, "height": rect.height,
            "states": [name for state, name in STATES.items() if states.contains(state)]}


def walk(node, found, depth=0):
    if node is None or depth > 40:
        return
    try:
        if not node.get_state_set().contains(Atspi.StateType.SHOWING) and depth > 1:
            return
        found.append(describe(node))
        for i in range(node.get_child_count()):
            walk(node.get_child_at_index(i), found, depth + 1)
    except GLib.Error:
        return


def main():
    desktop = Atspi.get_desktop(0)
    found = []
    for i in range(desktop.get_child_count()):
        app = desktop.get_child_at_index(i)
        if app is not None and app.get_name() == sys.argv[1]:
            for j in range(app.get_child_count()):
                walk(app.get_child_at_index(j), found)
    print(json.dumps(found))
    return 0


if __name__ == "__main__":
    sys.exit(main())
