// Decoder throughput on a stream of many small "delta" events and on one large event. The reference,
// measured in the same run, is the least any decoder must do: turn the same bytes into a QString.
// Compare the bytes_per_second of each case with its reference.
#include "NubraCore/Service/SSEDecoder.h"

#include <benchmark/benchmark.h>

namespace {

QByteArray smallEvents() {
    QByteArray body;
    for (int i = 0; body.size() < (4 << 20); ++i)
        body +=
            "event: delta\ndata: {\"field\":\"gloss\",\"text\":\"word " + QByteArray::number(i) + " \"}\n\n";
    return body;
}

QByteArray largeEvent() {
    return "event: done\ndata: {\"gloss\":\"" + QByteArray(900 * 1024, 'x') +
           "\",\"contextual_meaning\":\"c\",\"credits_cost\":1,\"credits_remaining\":2,\"cached\":false}\n\n";
}

// Bytes arrive from the socket in pieces of this size.
constexpr qsizetype readSize = 16 * 1024;

void decode(benchmark::State& state, const QByteArray& body) {
    std::size_t events = 0;
    for (auto _ : state) {
        SSEDecoder decoder;
        for (qsizetype at = 0; at < body.size(); at += readSize)
            events +=
                decoder.push(QByteArrayView(body).sliced(at, std::min(readSize, body.size() - at))).size();
        events += decoder.finish().size();
    }
    benchmark::DoNotOptimize(events);
    state.SetBytesProcessed(std::int64_t(state.iterations()) * body.size());
}

void reference(benchmark::State& state, const QByteArray& body) {
    for (auto _ : state) {
        qsizetype units = 0;
        for (qsizetype at = 0; at < body.size(); at += readSize)
            units += QString::fromUtf8(QByteArrayView(body).sliced(at, std::min(readSize, body.size() - at)))
                         .size();
        benchmark::DoNotOptimize(units);
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * body.size());
}

void BM_DecodeSmallEvents(benchmark::State& state) {
    static const QByteArray body = smallEvents();
    decode(state, body);
}
void BM_ReferenceSmallEvents(benchmark::State& state) {
    static const QByteArray body = smallEvents();
    reference(state, body);
}
void BM_DecodeLargeEvent(benchmark::State& state) {
    static const QByteArray body = largeEvent();
    decode(state, body);
}
void BM_ReferenceLargeEvent(benchmark::State& state) {
    static const QByteArray body = largeEvent();
    reference(state, body);
}

} // namespace

BENCHMARK(BM_ReferenceSmallEvents);
BENCHMARK(BM_DecodeSmallEvents);
BENCHMARK(BM_ReferenceLargeEvent);
BENCHMARK(BM_DecodeLargeEvent);
BENCHMARK_MAIN();
