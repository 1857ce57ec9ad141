#include "NubraBuildInfo/BuildInfo.h"
#include "NubraGlossd/FixedBackend.h"
#include "NubraGlossd/GlossServer.h"
#include "NubraGlossd/OpenAIBackend.h"
#include "NubraGlossd/WordNetBackend.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <thread>

namespace {

// Exit codes: 0 after a clean shutdown, 1 when the service cannot start, 2 for a bad command line.
constexpr int ExitCannotStart = 1;
constexpr int ExitUsage = 2;

int usageError(const QString& message) {
    std::fprintf(stderr, "nubra-glossd: %s\n", qPrintable(message));
    return ExitUsage;
}

int startError(const QString& message) {
    std::fprintf(stderr, "nubra-glossd: %s\n", qPrintable(message));
    return ExitCannotStart;
}

// Whether every address `host` stands for is this machine's own loopback.
bool isLoopback(const std::string& host) {
    in_addr v4{};
    in6_addr v6{};
    if (host == "localhost" ||
        (inet_pton(AF_INET, host.c_str(), &v4) == 1 && (ntohl(v4.s_addr) >> 24) == 127))
        return true;
    return inet_pton(AF_INET6, host.c_str(), &v6) == 1 && IN6_IS_ADDR_LOOPBACK(&v6);
}

std::optional<int> integer(const QString& text, int min, int max) {
    bool ok = false;
    const int value = text.toInt(&ok);
    return ok && value >= min && value <= max ? std::optional<int>(value) : std::nullopt;
}

} // namespace

int main(int argc, char** argv) {
    // SIGTERM and SIGINT are taken by one thread with sigwait, so every other thread is spared them.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("nubra-glossd"));
    QCoreApplication::setApplicationVersion(BuildInfo::version());

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("The Nubra gloss service: answers lookups as event streams."));
    parser.addHelpOption();
    parser.addVersionOption();
    const auto option = [&](const char* name, const char* help, const char* value,
                            const char* fallback = "") {
        QCommandLineOption opt{QLatin1String(name), QLatin1String(help), QLatin1String(value),
                               QLatin1String(fallback)};
        parser.addOption(opt);
        return opt;
    };
    const auto port = option("port", "Port to listen on (0 picks a free one).", "N", "8790");
    const auto bind = option("bind",
                             "Address to listen on. Beyond loopback, every host that reaches it may use "
                             "the service: add --tokens.",
                             "ADDRESS", "127.0.0.1");
    const auto backend = option("backend", "wordnet (offline), openai or fixed.", "NAME", "wordnet");
    const auto wordnetDir =
        option("wordnet-dir", "WordNet 3.0 database directory.", "DIR", "/usr/share/wordnet");
    const auto tokens = option("tokens", "Require device tokens from this JSON file.", "FILE");
    const auto manifest = option("manifest", "Release manifest (JSON) served by /v1/updates/latest.", "FILE");
    const auto releases = option("releases",
                                 "Serve DIR/manifest.json by /v1/updates/latest and the files of DIR under "
                                 "/releases/.",
                                 "DIR");
    const auto rate = option("rate",
                             "Lookups per minute per device token (per client address without --tokens), "
                             "0 for no limit.",
                             "N", "0");
    const auto threads = option("threads", "Worker threads (connections served at once).", "N", "16");
    const auto queue =
        option("queue", "Connections that may wait for a worker; more are answered 503 at once.", "N", "64");
    const auto perPeer =
        option("connections-per-client",
               "Connections one client address may hold; more are answered 429 at once.", "N", "8");
    const auto deadline = option("request-deadline",
                                 "Seconds for a request's headers and body to arrive whole.", "SECONDS", "5");
    const auto accessLog =
        option("access-log", "Append the access log to this file instead of stderr.", "FILE");
    const auto upstream =
        option("upstream", "openai: chat-completions base URL.", "URL", "https://api.openai.com/v1");
    const auto model = option("model", "openai: model name.", "NAME", "gpt-4o-mini");
    const auto modelFast = option("model-fast", "openai: model for the fast tier.", "NAME");
    const auto modelQuality = option("model-quality", "openai: model for the quality tier.", "NAME");
    const auto keyEnv =
        option("api-key-env", "openai: environment variable holding the API key.", "VAR", "OPENAI_API_KEY");
    const auto timeout = option("upstream-timeout", "openai: seconds without upstream data before giving up.",
                                "SECONDS", "30");
    if (!parser.parse(QCoreApplication::arguments()))
        return usageError(parser.errorText());
    if (parser.isSet(QStringLiteral("help"))) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        return 0;
    }
    if (parser.isSet(QStringLiteral("version"))) {
        std::printf("nubra-glossd %s\n", qPrintable(BuildInfo::version()));
        return 0;
    }
    if (!parser.positionalArguments().isEmpty())
        return usageError(QStringLiteral("unexpected argument %1").arg(parser.positionalArguments().front()));

    const auto portNumber = integer(parser.value(port), 0, 65535);
    const auto rateNumber = integer(parser.value(rate), 0, 1000000);
    const auto threadCount = integer(parser.value(threads), 2, 1024);
    const auto queueLength = integer(parser.value(queue), 1, 100000);
    const auto perPeerCount = integer(parser.value(perPeer), 1, 100000);
    const auto deadlineSeconds = integer(parser.value(deadline), 1, 3600);
    const auto timeoutSeconds = integer(parser.value(timeout), 1, 3600);
    if (!portNumber || !rateNumber || !threadCount || !queueLength || !perPeerCount || !deadlineSeconds ||
        !timeoutSeconds)
        return usageError(
            QStringLiteral("--port, --rate, --threads, --queue, --connections-per-client, "
                           "--request-deadline and --upstream-timeout take whole numbers in range"));

    ServerSetup setup;
    setup.ratePerMinute = *rateNumber;
    setup.limits = {*threadCount, *queueLength, *perPeerCount, std::chrono::seconds(*deadlineSeconds)};
    const QString backendName = parser.value(backend);
    if (backendName == u"wordnet") {
        auto database = wordnet::Database::open(parser.value(wordnetDir).toStdString());
        if (!database)
            return startError(QStringLiteral("cannot read the WordNet database in %1 (install wordnet-base)")
                                  .arg(parser.value(wordnetDir)));
        setup.backend = std::make_unique<WordNetBackend>(std::move(*database));
    } else if (backendName == u"openai") {
        const QByteArray key = qgetenv(parser.value(keyEnv).toLocal8Bit().constData());
        setup.backend = std::make_unique<OpenAIBackend>(
            OpenAIConfig{parser.value(upstream).toStdString(), parser.value(model), parser.value(modelFast),
                         parser.value(modelQuality), key.toStdString(), *timeoutSeconds});
    } else if (backendName == u"fixed") {
        setup.backend = std::make_unique<FixedBackend>();
    } else {
        return usageError(
            QStringLiteral("unknown backend %1 (expected wordnet, openai or fixed)").arg(backendName));
    }

    if (parser.isSet(tokens)) {
        auto loaded = TokenRegistry::load(parser.value(tokens));
        if (auto* problem = std::get_if<QString>(&loaded))
            return startError(*problem);
        setup.tokens = std::make_unique<TokenRegistry>(std::move(std::get<TokenRegistry>(loaded)));
    }
    if (parser.isSet(manifest)) {
        QFile file(parser.value(manifest));
        const QJsonDocument document =
            file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()) : QJsonDocument();
        if (!document.isObject() || !document.object().value(u"available").isBool())
            return startError(
                QStringLiteral("the manifest %1 must be a JSON object with a boolean \"available\"")
                    .arg(parser.value(manifest)));
        setup.manifest = document.object();
    }
    if (parser.isSet(releases)) {
        const QFileInfo folder(parser.value(releases));
        if (parser.isSet(manifest))
            return usageError(QStringLiteral("--manifest and --releases exclude each other"));
        if (!folder.isDir())
            return startError(
                QStringLiteral("the releases folder %1 does not exist").arg(parser.value(releases)));
        setup.releasesDir = folder.absoluteFilePath();
    }
    std::FILE* logFile = nullptr;
    if (parser.isSet(accessLog)) {
        logFile = std::fopen(qPrintable(parser.value(accessLog)), "a");
        if (!logFile)
            return startError(QStringLiteral("cannot open the access log %1").arg(parser.value(accessLog)));
        setup.accessLog = logFile;
    }

    GlossServer server(std::move(setup));
    const std::string host = parser.value(bind).toStdString();
    const auto bound = server.bind(host, *portNumber);
    if (!bound)
        return startError(QStringLiteral("cannot listen on %1:%2").arg(parser.value(bind)).arg(*portNumber));
    std::fprintf(stderr, "nubra-glossd listening on http://%s:%d (backend %s)\n", host.c_str(), *bound,
                 qPrintable(backendName));
    if (!parser.isSet(tokens) && !isLoopback(host))
        std::fprintf(stderr,
                     "nubra-glossd: warning: listening beyond loopback without --tokens; anyone who can "
                     "reach %s:%d can use this service (and its upstream API key)\n",
                     host.c_str(), *bound);

    std::atomic<bool> finished = false;
    std::thread signalWaiter([&] {
        int received = 0;
        sigwait(&stopSignals, &received);
        // A signal that arrives before the server listens would find nothing to stop: keep asking
        // until the server has ended.
        while (!finished) {
            server.stop();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    server.run();
    finished = true;
    // Wake the waiter if the server ended on its own.
    pthread_kill(signalWaiter.native_handle(), SIGTERM);
    signalWaiter.join();
    if (logFile)
        std::fclose(logFile);
    return 0;
}
