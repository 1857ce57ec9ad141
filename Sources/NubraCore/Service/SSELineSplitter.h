#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <optional>

// Cuts the raw bytes of a response into lines as they arrive. Only a line feed ends a line; one
// carriage return directly before it (or at the very end) is dropped. Lines come out as UTF-8 in which
// every invalid sequence is repaired with U+FFFD, exactly as QString::fromUtf8 reads them (a leading
// byte order mark included). Empty lines are kept: they end event blocks.
class SSELineSplitter {
public:
    // A peer that never sends a line feed must not grow the buffer without bound.
    static constexpr qsizetype MaxLineBytes = 1 << 20;

    enum class Status { line, needMore, tooLong };

    // Takes the next line out of `bytes` and advances `bytes` past it. On Status::line, `line` holds
    // it until the next call; on needMore, `bytes` was used up and is kept for the next call. After
    // tooLong (a line grew past MaxLineBytes) the splitter is unusable.
    Status next(QByteArrayView& bytes, QByteArrayView& line);

    // The last, unterminated line, if any bytes are left; valid until the next call.
    std::optional<QByteArrayView> finish();

private:
    QByteArrayView close(QByteArrayView raw);

    QByteArray m_buffer;   // the start of a line that arrived in an earlier piece
    QByteArray m_repaired; // a line that needed repair, kept while the caller reads it
    bool m_bufferTaken = false;
};
