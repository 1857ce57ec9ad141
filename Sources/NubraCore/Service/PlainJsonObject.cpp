#include "NubraCore/Service/PlainJsonObject.h"

namespace {

class Reader {
public:
    explicit Reader(QByteArrayView text) : m_text(text) {}

    void skipSpace() {
        while (m_at < m_text.size() && isSpace(m_text[m_at]))
            ++m_at;
    }

    bool take(char c) {
        skipSpace();
        if (m_at < m_text.size() && m_text[m_at] == c) {
            ++m_at;
            return true;
        }
        return false;
    }

    // A string without escapes or control characters; its content, or nothing.
    std::optional<QByteArrayView> string() {
        if (!take('"'))
            return std::nullopt;
        const qsizetype begin = m_at;
        bool ascii = true;
        for (; m_at < m_text.size(); ++m_at) {
            const auto c = static_cast<unsigned char>(m_text[m_at]);
            if (c == '"')
                break;
            if (c == '\\' || c < 0x20)
                return std::nullopt;
            ascii = ascii && c < 0x80;
        }
        if (m_at == m_text.size())
            return std::nullopt;
        const QByteArrayView content = m_text.sliced(begin, m_at - begin);
        ++m_at;
        if (!ascii && !content.isValidUtf8())
            return std::nullopt;
        return content;
    }

    bool atEnd() {
        skipSpace();
        return m_at == m_text.size();
    }

private:
    static bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

    QByteArrayView m_text;
    qsizetype m_at = 0;
};

} // namespace

std::optional<PlainJsonObject> PlainJsonObject::read(QByteArrayView json) {
    Reader reader(json);
    PlainJsonObject object;
    if (!reader.take('{'))
        return std::nullopt;
    if (!reader.take('}')) {
        do {
            if (object.m_count == MaxMembers)
                return std::nullopt;
            const auto key = reader.string();
            if (!key || !reader.take(':'))
                return std::nullopt;
            const auto value = reader.string();
            if (!value)
                return std::nullopt;
            object.m_members[object.m_count++] = {*key, *value};
        } while (reader.take(','));
        if (!reader.take('}'))
            return std::nullopt;
    }
    if (!reader.atEnd())
        return std::nullopt;
    return object;
}

std::optional<QByteArrayView> PlainJsonObject::value(QByteArrayView key) const {
    for (int i = m_count - 1; i >= 0; --i)
        if (m_members[i].key == key)
            return m_members[i].value;
    return std::nullopt;
}
