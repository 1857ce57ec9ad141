#pragma once

#include "NubraCore/Service/SSEEvent.h"
#include "NubraCore/Service/SSELineAccumulator.h"
#include "NubraCore/Service/SSELineSplitter.h"
#include "NubraCore/Service/SSEParser.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <vector>

// The whole decoding path of one response body: bytes to lines, lines to blocks, blocks to events.
// Each event comes out as soon as the blank line that ends its block has arrived. The first "done" or
// "error" event ends decoding: nothing after it is looked at. Bounded so that a hostile peer cannot
// exhaust memory: a line or a block over 1 MiB, or more than 16 MiB in all, stops the stream.
class SSEDecoder {
public:
    static constexpr qsizetype MaxLineBytes = SSELineSplitter::MaxLineBytes;
    static constexpr qsizetype MaxBlockBytes = 1 << 20;
    static constexpr qsizetype MaxResponseBytes = 16 << 20;

    enum class State { reading, ended, tooLarge };

    // The events completed by `bytes`, up to and including a terminal one.
    std::vector<SSEEvent> push(QByteArrayView bytes);

    // At the end of the body, first: a last line without its line feed is still a line of the stream,
    // so a block it closes comes out (and may end the stream) exactly as in `push`.
    std::vector<SSEEvent> endOfBody();

    // Then: the events of whatever is left unterminated, delivered as they are (a terminal event here
    // does not stop the ones before it). Runs `endOfBody` first if nobody did.
    std::vector<SSEEvent> finish();

    State state() const { return m_state; }
    // Why the stream was stopped, for the user; empty while it is fine.
    QString failure() const;

private:
    // False when the line would make the pending block too large.
    bool take(QByteArrayView line, std::vector<SSEEvent>& events);
    void decode(QByteArrayView block, std::vector<SSEEvent>& events);

    SSELineSplitter m_splitter;
    SSELineAccumulator m_accumulator;
    SSEParser m_parser;
    QByteArray m_block; // the block with the extra line feed that makes the parser decode it at once
    qsizetype m_received = 0;
    State m_state = State::reading;
    bool m_bodyEnded = false;
    bool m_responseTooLarge = false;
};
