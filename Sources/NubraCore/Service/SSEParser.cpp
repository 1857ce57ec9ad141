#include "NubraCore/Service/SSEParser.h"

#include "NubraCore/Service/PlainJsonObject.h"
#include "NubraCore/Support/JsonNumber.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

namespace {

// The code point UTF-8 `text` starts with (or ends with, when `last`) and its length in bytes; a
// length of 0 when the bytes there are not a well-formed sequence.
std::pair<char32_t, qsizetype> codePointAt(QByteArrayView text, bool last) {
    qsizetype begin = last ? text.size() - 1 : 0;
    while (last && begin > 0 && text.size() - begin < 4 &&
           (static_cast<unsigned char>(text[begin]) & 0xC0) == 0x80)
        --begin;
    const auto lead = static_cast<unsigned char>(text[begin]);
    const qsizetype length = lead < 0x80             ? 1
                             : (lead & 0xE0) == 0xC0 ? 2
                             : (lead & 0xF0) == 0xE0 ? 3
                             : (lead & 0xF8) == 0xF0 ? 4
                                                     : 0;
    if (length == 0 || begin + length > text.size() || (last && begin + length != text.size()))
        return {0, 0};
    char32_t code = length == 1 ? lead : lead & (0x7F >> length);
    for (qsizetype i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[begin + i]);
        if ((next & 0xC0) != 0x80)
            return {0, 0};
        code = (code << 6) | (next & 0x3F);
    }
    return {code, length};
}

// `text` without the code points `isSpace` accepts at both ends.
template <typename IsSpace> QByteArrayView trimmed(QByteArrayView text, IsSpace isSpace) {
    for (bool last : {false, true}) {
        while (!text.isEmpty()) {
            const auto [code, length] = codePointAt(text, last);
            if (length == 0 || !isSpace(code))
                break;
            text = last ? text.chopped(length) : text.sliced(length);
        }
    }
    return text;
}

// Field values lose horizontal white space only: the Unicode space separators and the tab.
QByteArrayView trimmedHorizontally(QByteArrayView text) {
    return trimmed(text,
                   [](char32_t c) { return c == u'\t' || QChar::category(c) == QChar::Separator_Space; });
}

QString stringOr(const QJsonObject& object, QStringView key, const QString& fallback) {
    const QJsonValue value = object.value(key);
    return value.isString() ? value.toString() : fallback;
}

std::int64_t integerOr(const QJsonObject& object, QStringView key) {
    return jsonWholeNumber(object.value(key)).value_or(0);
}

SSEEvent::Delta deltaFrom(const PlainJsonObject& object) {
    const auto field = object.value("field");
    const auto text = object.value("text");
    // Nearly every delta continues "gloss": share the literal instead of allocating a copy.
    const QString gloss = QStringLiteral("gloss");
    return {!field || *field == "gloss" ? gloss : QString::fromUtf8(*field),
            text ? QString::fromUtf8(*text) : QString()};
}

std::optional<SSEEvent> eventFrom(QByteArrayView name, const QJsonObject& object) {
    if (name == "meta")
        return SSEEvent{SSEEvent::Meta{stringOr(object, u"model", {}), integerOr(object, u"estimated_cost"),
                                       integerOr(object, u"credits_remaining")}};
    if (name == "delta")
        return SSEEvent{SSEEvent::Delta{stringOr(object, u"field", QStringLiteral("gloss")),
                                        stringOr(object, u"text", {})}};
    if (name == "done") {
        GlossResult result;
        result.gloss = stringOr(object, u"gloss", {});
        result.contextualMeaning = stringOr(object, u"contextual_meaning", {});
        if (const QJsonValue language = object.value(u"language"); language.isString())
            result.language = language.toString();
        result.creditsCost = integerOr(object, u"credits_cost");
        result.creditsRemaining = integerOr(object, u"credits_remaining");
        result.cached = object.value(u"cached").toBool(false);
        return SSEEvent{SSEEvent::Done{std::move(result)}};
    }
    if (name == "error")
        return SSEEvent{SSEEvent::Error{stringOr(object, u"code", QStringLiteral("INTERNAL")),
                                        stringOr(object, u"message", {})}};
    return std::nullopt;
}

// Where the first "\n\n" at or after `from` starts, or -1. Searching for the single byte is much
// faster than QByteArrayView::indexOf with a two-byte needle.
qsizetype blankLineAt(QByteArrayView text, qsizetype from) {
    for (qsizetype at = text.indexOf('\n', from); at >= 0 && at + 1 < text.size();
         at = text.indexOf('\n', at + 1))
        if (text[at + 1] == '\n')
            return at;
    return -1;
}

} // namespace

std::vector<SSEEvent> SSEParser::feed(QByteArrayView chunk) {
    std::vector<SSEEvent> events;
    if (m_buffer.isEmpty()) {
        // Nothing carried over: read the chunk where it is and keep only its unfinished end.
        m_buffer.append(chunk.sliced(takeBlocks(chunk, 0, events)));
    } else {
        m_buffer.append(chunk);
        m_buffer.remove(0, takeBlocks(m_buffer, m_scanned, events));
    }
    // A separator may straddle this chunk and the next one: rescan the last byte.
    m_scanned = std::max<qsizetype>(0, m_buffer.size() - 1);
    return events;
}

std::vector<SSEEvent> SSEParser::finish() {
    const QByteArray rest = trimmed(m_buffer, [](char32_t c) { return QChar::isSpace(c); }).toByteArray();
    m_buffer.truncate(0);
    m_scanned = 0;
    std::vector<SSEEvent> events;
    if (!rest.isEmpty())
        if (auto event = parse(rest))
            events.push_back(std::move(*event));
    return events;
}

qsizetype SSEParser::takeBlocks(QByteArrayView text, qsizetype from, std::vector<SSEEvent>& events) {
    qsizetype consumed = 0;
    for (;;) {
        const qsizetype separator = blankLineAt(text, from);
        if (separator < 0)
            return consumed;
        if (auto event = parse(text.sliced(consumed, separator - consumed)))
            events.push_back(std::move(*event));
        consumed = separator + 2;
        from = consumed;
    }
}

std::optional<SSEEvent> SSEParser::parse(QByteArrayView block) {
    QByteArrayView name = "message";
    // One data line, the usual case, is used where it lies; only several are copied together.
    QByteArrayView data;
    QByteArray joined;
    while (!block.isEmpty()) {
        const qsizetype end = block.indexOf('\n');
        const QByteArrayView line = end < 0 ? block : block.first(end);
        block = end < 0 ? QByteArrayView() : block.sliced(end + 1);
        if (line.startsWith("event:")) {
            name = trimmedHorizontally(line.sliced(6));
        } else if (line.startsWith("data:")) {
            const QByteArrayView value = trimmedHorizontally(line.sliced(5));
            if (data.isEmpty()) {
                data = value;
            } else {
                if (joined.isEmpty())
                    joined = data.toByteArray();
                joined.append(value);
                data = joined;
            }
        }
    }
    if (data.isEmpty())
        return std::nullopt;
    if (name == "delta")
        if (const auto plain = PlainJsonObject::read(data))
            return SSEEvent{deltaFrom(*plain)};
    QJsonParseError error{};
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray::fromRawData(data.data(), data.size()), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    return eventFrom(name, document.object());
}
