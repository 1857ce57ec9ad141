// Feeds arbitrary bytes to the event-stream decoder. Beyond "no crash, no leak, no UB" it checks that
// the events do not depend on how the bytes were cut into chunks.
#include "NubraCore/Service/SSEDecoder.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

std::vector<SSEEvent> decode(QByteArrayView body, std::size_t chunk, SSEDecoder::State& state) {
    SSEDecoder decoder;
    std::vector<SSEEvent> events;
    for (qsizetype at = 0; at < body.size(); at += qsizetype(chunk))
        for (SSEEvent& event : decoder.push(body.sliced(at, std::min<qsizetype>(qsizetype(chunk), body.size() - at))))
            events.push_back(std::move(event));
    for (SSEEvent& event : decoder.finish())
        events.push_back(std::move(event));
    state = decoder.state();
    return events;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1)
        return 0;
    // The first byte picks the chunk size of the second pass.
    const std::size_t chunk = 1 + data[0] % 17;
    const QByteArrayView body(reinterpret_cast<const char*>(data + 1), qsizetype(size - 1));
    SSEDecoder::State wholeState{};
    SSEDecoder::State chunkedState{};
    const auto whole = decode(body, std::max<std::size_t>(body.size(), 1), wholeState);
    const auto chunked = decode(body, chunk, chunkedState);
    if (whole != chunked || wholeState != chunkedState)
        std::abort();
    return 0;
}
