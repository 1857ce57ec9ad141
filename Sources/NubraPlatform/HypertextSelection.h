#pragma once

#include "NubraPlatform/TextNode.h"

#include <QDeadlineTimer>

// A selection joined from the objects that hold it, in reading order.
struct JoinedSelection {
    // The selected text with context on each side; blocks are separated by one line break.
    QString text;
    // The selection within `text`, in UTF-16 units.
    qsizetype selectionStart = 0;
    qsizetype selectionEnd = 0;
    // The union of the selected words' screen rectangles, when the toolkit gives any.
    std::optional<QRectF> bounds;
};

// Reads a selection that lives in nested objects: a web page, where the focused document holds one
// U+FFFC per paragraph and the words live further down, or a paragraph with links in it. From the
// object it starts at, it climbs to the outermost ancestor whose selection still covers it, then
// follows the U+FFFC characters inside each selected span down to the objects whose own text is
// selected, and reads the context around the selection from the same objects and their neighbours.
// U+FFFC never reaches the result. The walk visits a bounded number of objects, and every call it makes
// goes to another application, so it belongs on the thread that talks to them.
class HypertextSelection {
public:
    static constexpr int maxObjects = 400;
    static constexpr int maxDepth = 24;
    static constexpr int maxChars = 1 << 20;

    // Nothing when `start` has no selection, when nothing but embedded objects and white space is
    // selected, when a password field is among the objects, or when the budget or `deadline` ran out.
    static std::optional<JoinedSelection> read(std::unique_ptr<TextNode> start, int radius,
                                               QDeadlineTimer deadline);
};
