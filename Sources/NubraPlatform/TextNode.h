#pragma once

#include <QList>
#include <QRectF>
#include <QString>

#include <memory>
#include <optional>

// One object of another application's accessibility tree seen as text: a paragraph, a link, a table
// cell, a whole web document. Offsets count characters the way the toolkit does (UTF-16 units in Qt,
// code points elsewhere). An object nested in another one (a link in a paragraph, a paragraph in a
// document) stands in its parent's text as one U+FFFC. Every read may fail; a failure is an empty answer.
class TextNode {
public:
    struct Span {
        int start = 0;
        int end = 0;
        friend bool operator==(const Span&, const Span&) = default;
    };
    struct Nesting;
    static constexpr char16_t embeddedObject = u'\uFFFC';

    virtual ~TextNode() = default;

    // -1 when the object has no text.
    virtual int characterCount() = 0;
    virtual QString text(int start, int end) = 0;
    // Whether offsets count UTF-16 units rather than code points.
    virtual bool countsUtf16() = 0;
    // The selected spans of this object's own text, in order.
    virtual QList<Span> selections() = 0;
    // The object that stands as U+FFFC at `offset`; null when there is none or the toolkit does not say.
    virtual std::unique_ptr<TextNode> embeddedAt(int offset) = 0;
    // The object this one is nested in, with the offset of its U+FFFC there; nothing at the top of a
    // document or when the parent has no text.
    virtual std::optional<Nesting> parent() = 0;
    // Whether the object is a block of its own (a paragraph, a heading, a list item, a cell) rather than
    // a run inside a line (a link, a span of code).
    virtual bool isBlock() = 0;
    virtual bool isPassword() = 0;
    // The screen rectangle of [start, end), top-left origin.
    virtual std::optional<QRectF> extents(int start, int end) = 0;
};

struct TextNode::Nesting {
    std::unique_ptr<TextNode> node;
    int offset = 0;
};
