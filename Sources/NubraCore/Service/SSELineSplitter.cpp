#include "NubraCore/Service/SSELineSplitter.h"

#include <QString>

SSELineSplitter::Status SSELineSplitter::next(QByteArrayView& bytes, QByteArrayView& line) {
    if (m_bufferTaken) { // the caller is done with the line that was read out of the buffer
        m_buffer.truncate(0);
        m_bufferTaken = false;
    }
    const qsizetype feed = bytes.indexOf('\n');
    const QByteArrayView piece = feed < 0 ? bytes : bytes.first(feed);
    if (m_buffer.size() + piece.size() > MaxLineBytes) {
        m_buffer.clear();
        return Status::tooLong;
    }
    if (feed < 0) {
        m_buffer.append(piece);
        bytes = {};
        return Status::needMore;
    }
    bytes = bytes.sliced(feed + 1);
    if (m_buffer.isEmpty()) {
        line = close(piece);
    } else {
        m_buffer.append(piece);
        line = close(m_buffer);
        m_bufferTaken = true;
    }
    return Status::line;
}

std::optional<QByteArrayView> SSELineSplitter::finish() {
    if (m_bufferTaken) {
        m_buffer.truncate(0);
        m_bufferTaken = false;
    }
    if (m_buffer.isEmpty())
        return std::nullopt;
    m_bufferTaken = true;
    return close(m_buffer);
}

QByteArrayView SSELineSplitter::close(QByteArrayView raw) {
    // Valid UTF-8 reads back unchanged, except that the decoder drops a leading byte order mark.
    if (raw.isValidUtf8() && !raw.startsWith("\xEF\xBB\xBF"))
        return raw.endsWith('\r') ? raw.chopped(1) : raw;
    QString text = QString::fromUtf8(raw);
    if (text.endsWith(u'\r'))
        text.chop(1);
    m_repaired = text.toUtf8();
    return m_repaired;
}
