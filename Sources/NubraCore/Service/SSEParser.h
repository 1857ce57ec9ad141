#pragma once

#include "NubraCore/Service/SSEEvent.h"

#include <QByteArray>
#include <QByteArrayView>

#include <vector>

// Turns event-stream text (UTF-8) into events. Blocks are separated by "\n\n"; only the "event:" and
// "data:" fields are read, data lines are concatenated with no separator and must form one JSON
// object, and only the names meta, delta, done and error are understood. Anything else is dropped
// without a trace.
class SSEParser {
public:
    // Appends `chunk` and returns the events of every block it completed, in order.
    std::vector<SSEEvent> feed(QByteArrayView chunk);

    // Decodes whatever is still buffered as one last block and empties the buffer.
    std::vector<SSEEvent> finish();

    const QByteArray& buffer() const { return m_buffer; }

private:
    // Decodes the complete blocks of `text`, the search for "\n\n" starting at `from`; returns how
    // many bytes they took.
    static qsizetype takeBlocks(QByteArrayView text, qsizetype from, std::vector<SSEEvent>& events);
    static std::optional<SSEEvent> parse(QByteArrayView block);

    QByteArray m_buffer;
    qsizetype m_scanned = 0; // where the search for "\n\n" resumes
};
