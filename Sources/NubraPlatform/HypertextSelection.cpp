#include "NubraPlatform/HypertextSelection.h"

#include <algorithm>

namespace {

// Stands for a break between blocks while the text is put together; settled into at most one line
// break at the end.
constexpr QChar blockBreak(0x2029);

// How many characters of `text` are real ones, not block breaks.
qsizetype visibleLength(const QString& text) {
    return text.size() - text.count(blockBreak);
}

// `text` cut to `limit` real characters nearest its end (`fromEnd`) or its start.
QString nearest(const QString& text, qsizetype limit, bool fromEnd) {
    qsizetype kept = 0;
    qsizetype i = fromEnd ? text.size() : 0;
    while (kept < limit && (fromEnd ? i > 0 : i < text.size())) {
        const QChar c = fromEnd ? text.at(--i) : text.at(i++);
        kept += c != blockBreak;
    }
    return fromEnd ? text.mid(i) : text.left(i);
}

// A character of a node's text, with the toolkit offset it has there.
struct Character {
    int offset = 0;
    qsizetype index = 0;
    qsizetype size = 1;
};

QList<Character> characters(const QString& text, int base, bool utf16) {
    QList<Character> result;
    result.reserve(text.size());
    int offset = base;
    for (qsizetype i = 0; i < text.size(); ++offset) {
        const qsizetype size = (!utf16 && text.at(i).isHighSurrogate() && i + 1 < text.size()) ? 2 : 1;
        result.append({offset, i, size});
        i += size;
    }
    return result;
}

bool isEmbedded(const QString& text, const Character& c) {
    return text.at(c.index) == QChar(TextNode::embeddedObject);
}

bool hasWords(QStringView text) {
    return std::any_of(text.begin(), text.end(), [](QChar c) {
        return !c.isSpace() && c != blockBreak && c != QChar(TextNode::embeddedObject);
    });
}

// The selection of one object and the text around it, as the three parts the caller joins.
struct Part {
    QString before;
    QString selected;
    QString after;
};

// Collects a span's pieces in reading order: context until the first selected piece, selected text
// from then on, and context after the last selected piece.
class PartBuilder {
public:
    void context(const QString& text) { (m_part.selected.isEmpty() ? m_part.before : m_pending) += text; }
    void select(const QString& text) {
        if (text.isEmpty())
            return;
        m_part.selected += m_pending + text;
        m_pending.clear();
    }
    Part take() {
        m_part.after = std::move(m_pending);
        return std::move(m_part);
    }

private:
    Part m_part;
    QString m_pending;
};

class Walk {
public:
    Walk(int radius, QDeadlineTimer deadline) : m_radius(radius), m_deadline(deadline) {}

    bool failed() const { return m_refused || m_objectsLeft < 0 || m_deadline.hasExpired(); }
    const std::optional<QRectF>& bounds() const { return m_bounds; }

    Part selection(TextNode& node, TextNode::Span span, int depth);

private:
    std::unique_ptr<TextNode> enter(TextNode& node, int offset, bool selected);
    QString read(TextNode& node, int start, int end);
    QString flatten(TextNode& node, int start, int end, qsizetype limit, bool fromEnd, bool measure,
                    int depth);
    void measure(TextNode& node, const QString& text, const QList<Character>& run);

    int m_radius;
    QDeadlineTimer m_deadline;
    int m_objectsLeft = HypertextSelection::maxObjects;
    qsizetype m_charsLeft = HypertextSelection::maxChars;
    bool m_refused = false;
    std::optional<QRectF> m_bounds;
};

// The object at `offset`. A password field inside the selection refuses the whole read; one beside it
// is left out of the context.
std::unique_ptr<TextNode> Walk::enter(TextNode& node, int offset, bool selected) {
    if (--m_objectsLeft < 0 || m_deadline.hasExpired())
        return nullptr;
    std::unique_ptr<TextNode> child = node.embeddedAt(offset);
    if (child && child->isPassword()) {
        m_refused = m_refused || selected;
        return nullptr;
    }
    return child;
}

// [start, end) of the node's text, within what the whole walk may read: an application cannot make us
// hold more than that, however many objects it nests.
QString Walk::read(TextNode& node, int start, int end) {
    end = int(std::min<qint64>(end, start + m_charsLeft));
    QString text = node.text(start, end).left(std::max<qsizetype>(0, m_charsLeft));
    m_charsLeft -= text.size();
    return text;
}

void Walk::measure(TextNode& node, const QString& text, const QList<Character>& run) {
    if (run.isEmpty())
        return;
    const qsizetype from = run.first().index;
    const qsizetype to = run.last().index + run.last().size;
    if (!hasWords(QStringView(text).mid(from, to - from)))
        return;
    const std::optional<QRectF> rect = node.extents(run.first().offset, run.last().offset + 1);
    if (rect && rect->width() > 0 && rect->height() > 0)
        m_bounds = m_bounds ? m_bounds->united(*rect) : *rect;
}

Part Walk::selection(TextNode& node, TextNode::Span span, int depth) {
    const int end = std::min(span.end, span.start + HypertextSelection::maxChars);
    const QString text = read(node, span.start, end);
    const QList<Character> chars = characters(text, span.start, node.countsUtf16());
    PartBuilder builder;
    QList<Character> run;
    for (const Character& c : chars) {
        if (failed())
            return {};
        if (!isEmbedded(text, c)) {
            builder.select(text.mid(c.index, c.size));
            run.append(c);
            continue;
        }
        measure(node, text, run);
        run.clear();
        const std::unique_ptr<TextNode> child = enter(node, c.offset, true);
        if (!child)
            continue;
        const QString wrap = child->isBlock() ? QString(blockBreak) : QString();
        Part inner;
        const QList<TextNode::Span> spans = child->selections();
        if (!spans.isEmpty() && spans.last().end > spans.first().start &&
            depth < HypertextSelection::maxDepth)
            inner = selection(*child, {spans.first().start, spans.last().end}, depth + 1);
        else
            inner.selected = flatten(*child, 0, child->characterCount(), HypertextSelection::maxChars, false,
                                     true, depth + 1);
        builder.context(wrap + inner.before);
        builder.select(inner.selected);
        builder.context(inner.after + wrap);
    }
    measure(node, text, run);
    Part part = builder.take();

    // The rest of the context comes from this object's own text on either side of the span.
    const qsizetype beforeWanted = m_radius - visibleLength(part.before);
    if (beforeWanted > 0 && span.start > 0)
        part.before.prepend(
            flatten(node, std::max(0, span.start - m_radius), span.start, beforeWanted, true, false, depth));
    const qsizetype afterWanted = m_radius - visibleLength(part.after);
    const int count = node.characterCount();
    if (afterWanted > 0 && end < count)
        part.after += flatten(node, end, int(std::min<qint64>(count, qint64(end) + m_radius)), afterWanted,
                              false, false, depth);
    return part;
}

// Up to `limit` characters of [start, end) of `node`, nested objects read in place, taken from the end
// of the span when `fromEnd`; `measureWords` says the text is selected: the rectangles of its words are
// collected too.
QString Walk::flatten(TextNode& node, int start, int end, qsizetype limit, bool fromEnd, bool measureWords,
                      int depth) {
    if (limit <= 0 || start >= end || depth > HypertextSelection::maxDepth || failed())
        return {};
    // Every offset stands for at least one character, except an object without text.
    if (fromEnd)
        start = int(std::max<qint64>(start, qint64(end) - limit));
    else
        end = int(std::min<qint64>(end, qint64(start) + limit));
    const QString text = read(node, start, end);
    QList<Character> chars = characters(text, start, node.countsUtf16());
    if (fromEnd)
        std::reverse(chars.begin(), chars.end());
    QString result;
    QList<Character> run;
    for (const Character& c : chars) {
        if (visibleLength(result) >= limit || failed())
            break;
        QString piece;
        if (isEmbedded(text, c)) {
            if (measureWords)
                measure(node, text, run);
            run.clear();
            const std::unique_ptr<TextNode> child = enter(node, c.offset, measureWords);
            if (!child)
                continue;
            const int count = child->characterCount();
            const QString inner =
                flatten(*child, 0, count, limit - visibleLength(result), fromEnd, measureWords, depth + 1);
            const QString wrap = child->isBlock() ? QString(blockBreak) : QString();
            piece = wrap + inner + wrap;
        } else {
            piece = text.mid(c.index, c.size);
            run.append(c);
        }
        fromEnd ? result.prepend(piece) : result.append(piece);
    }
    if (measureWords)
        measure(node, text, run);
    return nearest(result, limit, fromEnd);
}

// The outermost object, from `start` up, whose selection covers the object below it.
std::unique_ptr<TextNode> climb(std::unique_ptr<TextNode> start) {
    std::unique_ptr<TextNode> node = std::move(start);
    for (int level = 0; level < HypertextSelection::maxDepth; ++level) {
        std::optional<TextNode::Nesting> up = node->parent();
        if (!up || !up->node)
            break;
        const QList<TextNode::Span> spans = up->node->selections();
        const bool covers = std::any_of(spans.begin(), spans.end(), [&](const TextNode::Span& s) {
            return s.start <= up->offset && up->offset < s.end;
        });
        if (!covers)
            break;
        node = std::move(up->node);
    }
    return node;
}

// Puts the parts together, turning each run of block breaks into one line break (none at either end of
// the text, none inside the selection's edges).
class Settler {
public:
    JoinedSelection settle(const Part& part) {
        add(part.before);
        qsizetype lead = 0;
        while (lead < part.selected.size() && part.selected.at(lead) == blockBreak)
            ++lead;
        m_pending = m_pending || lead > 0;
        putBreak();
        m_result.selectionStart = m_result.text.size();
        add(part.selected.mid(lead));
        m_result.selectionEnd = m_result.text.size();
        add(part.after);
        return std::move(m_result);
    }

private:
    void add(const QString& text) {
        for (const QChar c : text) {
            if (c == blockBreak) {
                m_pending = true;
                continue;
            }
            putBreak();
            m_result.text.append(c);
        }
    }
    void putBreak() {
        if (m_pending && !m_result.text.isEmpty() && !m_result.text.endsWith(QLatin1Char('\n')))
            m_result.text.append(QLatin1Char('\n'));
        m_pending = false;
    }

    JoinedSelection m_result;
    bool m_pending = false;
};

} // namespace

std::optional<JoinedSelection> HypertextSelection::read(std::unique_ptr<TextNode> start, int radius,
                                                        QDeadlineTimer deadline) {
    if (!start)
        return std::nullopt;
    std::unique_ptr<TextNode> root = climb(std::move(start));
    const QList<TextNode::Span> spans = root->selections();
    if (spans.isEmpty() || spans.last().end <= spans.first().start)
        return std::nullopt;
    Walk walk(std::max(0, radius), deadline);
    const Part part = walk.selection(*root, {spans.first().start, spans.last().end}, 0);
    if (walk.failed() || !hasWords(part.selected))
        return std::nullopt;
    JoinedSelection joined = Settler().settle(part);
    joined.bounds = walk.bounds();
    return joined;
}
