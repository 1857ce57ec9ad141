#!/usr/bin/python3
"""Prints where a word of an application's text is on the screen, as JSON {x, y, width, height}
(top-left origin), read through the accessibility bus. Run with Debian's python3, which has the
AT-SPI bindings: word_extents.py APPLICATION WORD"""
import json
import sys

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi  # noqa: E402


def text_holding(node, word, depth=0):
    if node is None or depth > 30:
        return None
    try:
        text = node.get_text_iface()
        if text is not None:
            content = Atspi.Text.get_text(node, 0, -1)
            if word in content:
                return node, content.index(word)
        for i in range(node.get_child_count()):
            found = text_holding(node.get_child_at_index(i), word, depth + 1)
            if found:
                return found
    except gi.repository.GLib.Error:
        return None
    return None


def main():
    application, word = sys.argv[1], sys.argv[2]
    desktop = Atspi.get_desktop(0)
    for i in range(desktop.get_child_count()):
        app = desktop.get_child_at_index(i)
        if app is None or app.get_name() != application:
            continue
        found = text_holding(app, word)
        if found:
            node, start = found
            rect = Atspi.Text.get_range_extents(node, start, start + len(word), Atspi.CoordType.SCREEN)
            print(json.dumps({"x": rect.x, "y": rect.y, "width": rect.width, "height": rect.height}))
            return 0
    return 1


if __name__ == "__main__":
    sys.exit(main())
