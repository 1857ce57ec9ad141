#include "NubraCore/Service/SSELineAccumulator.h"

std::optional<QByteArrayView> SSELineAccumulator::add(QByteArrayView line) {
    if (line.isEmpty())
        return flush();
    reopen();
    m_block.append(line);
    m_block.append('\n');
    return std::nullopt;
}

std::optional<QByteArrayView> SSELineAccumulator::flush() {
    reopen();
    if (m_block.isEmpty())
        return std::nullopt;
    m_closed = true;
    return m_block;
}

void SSELineAccumulator::reopen() {
    if (!m_closed)
        return;
    m_block.truncate(0); // keeps the storage for the next block
    m_closed = false;
}
