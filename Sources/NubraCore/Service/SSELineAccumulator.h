#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <optional>

// Groups the lines of an event stream into blocks: a blank line closes the block of the lines before it.
class SSELineAccumulator {
public:
    // Nothing for a non-empty line (it is kept); for an empty line the kept lines joined by "\n" with
    // one more "\n" at the end, or nothing when no line is kept. A returned block stays valid until
    // the next call.
    std::optional<QByteArrayView> add(QByteArrayView line);

    // Closes whatever is kept, exactly like an empty line.
    std::optional<QByteArrayView> flush();

    // The size in bytes of the block flush() would return now, for the caller's size limit.
    qsizetype pendingSize() const { return m_closed ? 0 : m_block.size(); }

private:
    void reopen();

    // Each kept line followed by its "\n": already the block, so closing it copies nothing.
    QByteArray m_block;
    bool m_closed = false;
};
