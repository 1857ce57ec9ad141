// Added latency of the streaming client: from the moment the local server hands a block's last byte to
// the socket to the moment the event reaches the consumer (a GlossLookup signal). The reference,
// measured against the same server in the same run, is curl -N's time to first byte on loopback: what
// a minimal client needs to see bytes at all. Prints median and p99 of both and their ratio.
// Usage: bench_added_latency [EVENTS] [CURL_RUNS]
#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Service/GlossLookup.h"
#include "TestSupport/LocalHttpServer.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QProcess>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// Pieces of a stream written this far apart, so that each arrives alone.
constexpr std::chrono::milliseconds pieceGap{4};

struct Summary {
    double median = 0;
    double p99 = 0;
};

Summary summarize(std::vector<double> microseconds) {
    if (microseconds.empty())
        return {};
    std::sort(microseconds.begin(), microseconds.end());
    const auto at = [&](double q) { return microseconds[std::size_t(q * double(microseconds.size() - 1))]; };
    return {at(0.5), at(0.99)};
}

QList<LocalHttpServer::Piece> eventPieces(int count) {
    QList<LocalHttpServer::Piece> pieces;
    for (int i = 0; i < count; ++i)
        pieces.append(
            {"event: delta\ndata: {\"field\":\"gloss\",\"text\":\"word " + QByteArray::number(i) + " \"}\n\n",
             pieceGap});
    pieces.append({"event: done\ndata: {\"gloss\":\"g\",\"contextual_meaning\":\"c\",\"credits_cost\":1,"
                   "\"credits_remaining\":2,\"cached\":false}\n\n",
                   pieceGap});
    return pieces;
}

// Microseconds from each piece's write to its event's arrival; empty when the lookup failed.
std::vector<double> lookupLatencies(const LocalHttpServer& server, int events) {
    QNetworkAccessManager session;
    const GlossAPI api(server.url(), &session);
    const GlossRequest request(u"serendipity"_qs, u"pure "_qs, u" struck"_qs, std::nullopt,
                               GlossStyle::languageLearning, GlossLength::short_, u"auto"_qs,
                               ModelTier::quality, u"BENCH"_qs);
    std::vector<Clock::time_point> arrivals;
    bool ok = false;
    bool ended = false;
    const std::size_t writesBefore = server.pieceWriteTimes().size();
    auto lookup = api.gloss(request, u"tok"_qs, u"DEVICE"_qs);
    QObject::connect(lookup.get(), &GlossLookup::event,
                     [&](const SSEEvent&) { arrivals.push_back(Clock::now()); });
    QObject::connect(lookup.get(), &GlossLookup::finished, [&] { ok = ended = true; });
    QObject::connect(lookup.get(), &GlossLookup::failed, [&](const GlossAPIError&) { ended = true; });
    QElapsedTimer timer;
    timer.start();
    while (!ended && timer.elapsed() < 60'000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    const auto writes = server.pieceWriteTimes();
    std::vector<double> latencies;
    if (!ok || arrivals.size() != std::size_t(events) + 1 || writes.size() < writesBefore + arrivals.size())
        return latencies;
    for (std::size_t i = 0; i < arrivals.size(); ++i)
        latencies.push_back(
            std::chrono::duration<double, std::micro>(arrivals[i] - writes[writesBefore + i]).count());
    return latencies;
}

// curl's time to first byte for a one-piece stream, in microseconds; empty when curl is missing or failed.
std::vector<double> curlFirstByteTimes(const LocalHttpServer& server, int runs) {
    std::vector<double> times;
    const QString url = server.url().toString() + u"/first-byte";
    for (int i = 0; i < runs; ++i) {
        QProcess curl;
        curl.start(u"curl"_qs, {u"-N"_qs, u"-s"_qs, u"-o"_qs, u"/dev/null"_qs, u"-w"_qs,
                                u"%{time_starttransfer}"_qs, url});
        if (!curl.waitForFinished(10'000) || curl.exitStatus() != QProcess::NormalExit ||
            curl.exitCode() != 0)
            return {};
        times.push_back(curl.readAllStandardOutput().trimmed().toDouble() * 1e6);
    }
    return times;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const int events = argc > 1 ? std::max(1, atoi(argv[1])) : 250;
    const int curlRuns = argc > 2 ? std::max(1, atoi(argv[2])) : 50;

    LocalHttpServer server;
    server.route("POST", "/v1/gloss", [events](const LocalHttpServer::Request&) {
        LocalHttpServer::Response response;
        response.pieces = eventPieces(events);
        return response;
    });
    server.route("GET", "/first-byte", [](const LocalHttpServer::Request&) {
        return LocalHttpServer::Response::streamed({"event: delta\ndata: {}\n\n"});
    });
    if (!server.start()) {
        std::fprintf(stderr, "the local server did not start\n");
        return 1;
    }

    const auto added = lookupLatencies(server, events);
    if (added.empty()) {
        std::fprintf(stderr, "the lookup did not deliver every event\n");
        return 1;
    }
    const auto curl = curlFirstByteTimes(server, curlRuns);
    if (curl.empty()) {
        std::fprintf(stderr, "curl failed or is missing (Debian package curl)\n");
        return 1;
    }
    const Summary ours = summarize(added);
    const Summary reference = summarize(curl);
    std::printf("added latency, write to consumer (%zu events): median %.0f us, p99 %.0f us\n", added.size(),
                ours.median, ours.p99);
    std::printf("curl -N time to first byte (%zu runs):         median %.0f us, p99 %.0f us\n", curl.size(),
                reference.median, reference.p99);
    std::printf("ratio added / curl:                            median %.2f, p99 %.2f\n",
                ours.median / reference.median, ours.p99 / reference.p99);
    return 0;
}
