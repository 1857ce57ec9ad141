// Stores lookups into the history file given as the only argument until it is killed, printing each
// returned id on its own line as soon as insert() has returned.
#include "NubraCore/History/HistoryStore.h"

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: history_writer <database>\n");
        return 2;
    }
    try {
        HistoryStore store(QString::fromLocal8Bit(argv[1]));
        HistoryRecord record;
        record.gloss = QString(400, u'解');
        record.contextualMeaning = QStringLiteral("meaning");
        record.style = QStringLiteral("plain");
        record.length = QStringLiteral("medium");
        record.model = QStringLiteral("cloud");
        for (int i = 0; i < 1'000'000; ++i) {
            record.createdAt = QDateTime::currentDateTimeUtc();
            record.selectedText = QStringLiteral("lookup %1").arg(i);
            std::printf("%lld\n", static_cast<long long>(store.insert(record)));
            std::fflush(stdout);
        }
    } catch (const HistoryStoreError& error) {
        std::fprintf(stderr, "history_writer: %s\n", error.what());
        return 1;
    }
    return 0;
}
