#include "NubraCore/Service/SSEDecoder.h"

std::vector<SSEEvent> SSEDecoder::push(QByteArrayView bytes) {
    std::vector<SSEEvent> events;
    if (m_state != State::reading)
        return events;
    m_received += bytes.size();
    if (m_received > MaxResponseBytes) {
        m_responseTooLarge = true;
        m_state = State::tooLarge;
        return events;
    }
    QByteArrayView line;
    for (;;) {
        switch (m_splitter.next(bytes, line)) {
        case SSELineSplitter::Status::needMore:
            return events;
        case SSELineSplitter::Status::tooLong:
            m_state = State::tooLarge;
            return events;
        case SSELineSplitter::Status::line:
            break;
        }
        if (!take(line, events)) {
            m_state = State::tooLarge;
            return events;
        }
        if (!events.empty() && (events.back().isDone() || events.back().isError())) {
            m_state = State::ended;
            return events;
        }
    }
}

std::vector<SSEEvent> SSEDecoder::endOfBody() {
    std::vector<SSEEvent> events;
    if (m_state != State::reading || m_bodyEnded)
        return events;
    m_bodyEnded = true;
    if (auto line = m_splitter.finish(); line && !take(*line, events)) {
        m_state = State::tooLarge;
        return events;
    }
    if (!events.empty() && (events.back().isDone() || events.back().isError()))
        m_state = State::ended;
    return events;
}

std::vector<SSEEvent> SSEDecoder::finish() {
    std::vector<SSEEvent> events = endOfBody();
    if (m_state != State::reading)
        return events;
    m_state = State::ended;
    if (auto block = m_accumulator.flush())
        decode(*block, events);
    for (SSEEvent& event : m_parser.finish())
        events.push_back(std::move(event));
    return events;
}

QString SSEDecoder::failure() const {
    if (m_state != State::tooLarge)
        return {};
    return m_responseTooLarge ? QStringLiteral("event stream too large (over 16 MiB in one response)")
                              : QStringLiteral("event too large (a line or block over 1 MiB)");
}

bool SSEDecoder::take(QByteArrayView line, std::vector<SSEEvent>& events) {
    if (m_accumulator.pendingSize() + line.size() + 1 > MaxBlockBytes)
        return false;
    if (auto block = m_accumulator.add(line))
        decode(*block, events);
    return true;
}

void SSEDecoder::decode(QByteArrayView block, std::vector<SSEEvent>& events) {
    // The extra line feed makes the block end in "\n\n", so it is decoded at once.
    m_block.truncate(0);
    m_block.append(block);
    m_block.append('\n');
    for (SSEEvent& event : m_parser.feed(m_block))
        events.push_back(std::move(event));
}
