#include "NubraCore/History/HistoryStore.h"
#include "NubraCore/Lookup/FriendlyError.h"
#include "NubraCore/Lookup/LookupHistory.h"
#include "NubraCore/Lookup/LookupProgress.h"
#include "NubraCore/Lookup/SelectionLimit.h"
#include "TestSupport/DebugLogCapture.h"
#include "TestSupport/SqliteQuery.h"

#include <QTemporaryDir>
#include <QTest>

namespace {

SSEEvent delta(const QString& field, const QString& text) {
    return {SSEEvent::Delta{field, text}};
}

GlossResult result(const QString& gloss, std::int64_t cost = 2) {
    return {gloss, u"in context"_qs, u"en"_qs, cost, 40, false};
}

GlossRequest request(const QString& before = {}, const QString& after = {},
                     std::optional<QString> sourceApp = std::nullopt) {
    return {u"bank"_qs,
            before,
            after,
            sourceApp,
            GlossStyle::languageLearning,
            GlossLength::detailed,
            u"auto"_qs,
            ModelTier::quality};
}

const QDateTime finishedAt = QDateTime(QDate(2026, 3, 5), QTime(14, 7, 9, 250), Qt::UTC);

} // namespace

class LookupTest : public QObject {
    Q_OBJECT
private slots:
    void cleanup() { L10n::setOverride(std::nullopt); }

    void selectionLimitCountsUserPerceivedCharacters() {
        QCOMPARE(SelectionLimit::refusal(QString(3000, u'a')), std::nullopt);
        L10n::setOverride(u"zh"_qs);
        QCOMPARE(SelectionLimit::refusal(QString(3002, u'a')),
                 u"选中文本过长（3002 字符，上限 3000）。请缩短选区后重试。"_qs);

        // 3000 emoji are 6000 UTF-16 units but 3000 characters; an accent combines with its letter.
        QString emoji;
        for (int i = 0; i < 3000; ++i)
            emoji += u"😀"_qs;
        QCOMPARE(SelectionLimit::refusal(emoji), std::nullopt);
        QCOMPARE(SelectionLimit::characterCount(u"e\u0301a"_qs), 2);
        QCOMPARE(SelectionLimit::prefix(u"😀😀x"_qs, 2), u"😀😀"_qs);
        QCOMPARE(SelectionLimit::prefix(u"ab"_qs, 5), u"ab"_qs);
    }

    void failureMessagesFollowTheCodeAndLanguage() {
        L10n::setOverride(u"en"_qs);
        QCOMPARE(FriendlyError::message(u"RATE_LIMITED"_qs), u"Too fast — try again in a moment."_qs);
        QCOMPARE(FriendlyError::message(u"rate_limited"_qs), u"Something went wrong — try again."_qs);
        L10n::setOverride(u"zh"_qs);
        QCOMPARE(FriendlyError::message(u"BOOM"_qs), u"出错了，请稍后重试。"_qs);

        DebugLogCapture log;
        QCOMPARE(FriendlyError::apply(u"QUOTA"_qs, u"server says no"_qs), u"出错了，请稍后重试。"_qs);
        QCOMPARE(log.messages(), QStringList{u"gloss error code=QUOTA fallback=server says no"_qs});
    }

    void recordCutsContextAndLabelsTheModel() {
        const QString before = QString(49, u'b') + u"😀tail"_qs;
        const QString after = QString(60, u'a');
        const HistoryRecord record =
            LookupHistory::record(request(before, after, u"Notes"_qs), result(u"a slope"_qs, 3), finishedAt);
        QCOMPARE(record.id, 0);
        QCOMPARE(record.createdAt, finishedAt);
        QCOMPARE(record.selectedText, u"bank"_qs);
        QCOMPARE(record.contextBefore, QString(49, u'b') + u"😀"_qs);
        QCOMPARE(record.contextAfter, QString(50, u'a'));
        QCOMPARE(record.gloss, u"a slope"_qs);
        QCOMPARE(record.contextualMeaning, u"in context"_qs);
        QCOMPARE(record.sourceApp, u"Notes"_qs);
        QCOMPARE(record.style, u"language_learning"_qs);
        QCOMPARE(record.length, u"detailed"_qs);
        QCOMPARE(record.model, u"cloud"_qs);
        QCOMPARE(record.creditsCost, 3);
        QCOMPARE(LookupHistory::record(request(), result(u"x"_qs), finishedAt).sourceApp, QString());
    }

    void persistStoresTrimsAndSkips() {
        HistoryStore store(u":memory:"_qs);
        for (int i = 0; i < 3; ++i) {
            HistoryRecord old =
                LookupHistory::record(request(), result(u"old"_qs), finishedAt.addDays(-1 - i));
            store.insert(old);
        }
        QCOMPARE(LookupHistory::persist(store, true, 2, request(), result(u"new"_qs), finishedAt),
                 LookupHistory::Outcome::stored);
        const QList<HistoryRecord> kept = store.recent(-1);
        QCOMPARE(kept.size(), 2);
        QCOMPARE(kept[0].gloss, u"new"_qs);
        QCOMPARE(kept[1].createdAt, finishedAt.addDays(-1));

        QCOMPARE(LookupHistory::persist(store, false, 1, request(), result(u"off"_qs), finishedAt),
                 LookupHistory::Outcome::skipped);
        QCOMPARE(LookupHistory::persist(store, true, 1, request(), result(QString()), finishedAt),
                 LookupHistory::Outcome::skipped);
        QCOMPARE(store.count(), 2); // skipping does not trim either
    }

    void aFailedInsertIsReportedAndLogged() {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"h.sqlite3"_qs);
        HistoryStore store(path);
        // Without its table every statement of the store fails.
        sqliteColumn(path, "DROP TABLE history;");
        DebugLogCapture log;
        QCOMPARE(LookupHistory::persist(store, true, 5, request(), result(u"x"_qs), finishedAt),
                 LookupHistory::Outcome::failed);
        QCOMPARE(log.messages().size(), 2);
        QVERIFY(log.messages()[0].startsWith(u"history: insert failed: "_qs));
        QVERIFY(log.messages()[1].startsWith(u"history: trim failed: "_qs));
    }

    void progressFollowsTheCard() {
        LookupProgress progress;
        progress.start();
        QVERIFY(progress.isLoading());
        QCOMPARE(progress.apply({SSEEvent::Meta{u"m"_qs, 1, 2}}), std::nullopt);
        progress.apply(delta(u"gloss"_qs, u"A "_qs));
        progress.apply(delta(u"contextual_meaning"_qs, u"Here "_qs));
        progress.apply(delta(u"gloss"_qs, u"slope"_qs));
        progress.apply(delta(u"anything"_qs, u"too"_qs));
        QCOMPARE(progress.gloss(), u"A slope"_qs);
        QCOMPARE(progress.contextualMeaning(), u"Here too"_qs);
        QVERIFY(progress.isLoading());

        const GlossResult final = result(u"The final text"_qs);
        QCOMPARE(progress.apply({SSEEvent::Done{final}}), final);
        QCOMPARE(progress.gloss(), u"The final text"_qs);
        QCOMPARE(progress.contextualMeaning(), u"in context"_qs);
        QVERIFY(!progress.isLoading());
        QCOMPARE(progress.result(), final);

        // A new lookup starts from nothing.
        progress.start();
        QCOMPARE(progress.gloss(), QString());
        QCOMPARE(progress.result(), std::nullopt);
    }

    void anErrorEventEndsWithTheNetworkMessage() {
        L10n::setOverride(u"en"_qs);
        DebugLogCapture log;
        LookupProgress progress;
        progress.start();
        progress.apply({SSEEvent::Error{u"RATE_LIMITED"_qs, u"slow down"_qs}});
        QCOMPARE(progress.errorMessage(), u"Too fast — try again in a moment."_qs);
        QVERIFY(!progress.isLoading());
        // The stream then fails with the upstream error, and the card ends with the network message.
        progress.fail(GlossAPIError::upstream(u"RATE_LIMITED"_qs, u"slow down"_qs));
        QCOMPARE(progress.errorMessage(), u"Network issue — try again."_qs);
        QCOMPARE(log.messages(), (QStringList{u"gloss error code=RATE_LIMITED fallback=slow down"_qs,
                                              u"gloss error code=NETWORK fallback=slow down"_qs}));

        progress.refuse(u"too long"_qs);
        QCOMPARE(progress.errorMessage(), u"too long"_qs);
        QVERIFY(!progress.isLoading());
        progress.start();
        QCOMPARE(progress.errorMessage(), std::nullopt);
    }

    void aStreamEndingWithoutResultStopsLoading() {
        LookupProgress progress;
        progress.start();
        progress.apply(delta(u"gloss"_qs, u"partial"_qs));
        progress.end();
        QVERIFY(!progress.isLoading());
        QCOMPARE(progress.gloss(), u"partial"_qs);
        QCOMPARE(progress.errorMessage(), std::nullopt);
        QCOMPARE(progress.result(), std::nullopt);
    }
};

QTEST_APPLESS_MAIN(LookupTest)
#include "tst_lookup.moc"
