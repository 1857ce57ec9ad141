#include "NubraApp/Foundation/HistoryNotifier.h"
#include "NubraCore/Service/TokenStore.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "OverlayTestKit.h"

#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

using Ending = LocalHttpServer::Ending;

Q_DECLARE_METATYPE(OverlayTestKit::Response)

namespace {
const QString networkIssue = u"Network issue — try again."_qs;

} // namespace

class OverlayTest : public QObject {
    Q_OBJECT

    // Waits for the current lookup to settle.
    static void waitIdle(OverlayTestKit& kit) {
        QTRY_VERIFY_WITH_TIMEOUT(!kit.controller->isLoading(), 5000);
    }

private slots:
    void initTestCase() { L10n::setOverride(u"en"_qs); }
    void cleanupTestCase() { L10n::setOverride(std::nullopt); }

    // Where the limit lies and what the messages say is NubraCLITests' tst_lookup; here, that a refused
    // selection is never sent.
    void selectionOverTheLimitIsNotSent() {
        OverlayTestKit kit;
        kit.trigger(QString(3001, u'a'));
        QVERIFY(!kit.controller->isLoading());
        QVERIFY(kit.controller->errorMessage()->startsWith(u"Selection too long (3001 chars"_qs));
        kit.answer({sse::done(u"g"_qs, u"c"_qs)});
        kit.trigger(u"ok"_qs);
        waitIdle(kit);
        const auto requests = kit.server.requests();
        QCOMPARE(requests.size(), 1u);
        QCOMPARE(QJsonDocument::fromJson(requests[0].body).object().value(u"selected_text").toString(),
                 u"ok"_qs);
    }

    // Its request id is the request's own (tst_vocabulary).
    void requestCarriesSelectionSettingsAndCredential() {
        OverlayTestKit kit;
        kit.answer({sse::done(u"g"_qs, u"c"_qs)});
        kit.answer({sse::done(u"g"_qs, u"c"_qs)});
        kit.state->settings().setOutputLang(u"fr"_qs);
        kit.desktop.frontApplications.front = FrontApp{u"Mousepad"_qs, u"mousepad"_qs, 42};
        // Read from the keyring only now, for the first lookup, which waits for it.
        kit.secrets.write(TokenStore::account(QString::fromLatin1(TokenKey::deviceToken)), "tok-1");
        kit.trigger(u"serendipity"_qs);
        waitIdle(kit);

        kit.desktop.frontApplications.front.reset();
        kit.state->setDeviceToken(QString());
        kit.trigger(u"serendipity"_qs);
        waitIdle(kit);

        const auto requests = kit.server.requests();
        QCOMPARE(requests.size(), 2u);
        const QJsonObject first = QJsonDocument::fromJson(requests[0].body).object();
        QCOMPARE(first.value(u"selected_text").toString(), u"serendipity"_qs);
        QCOMPARE(first.value(u"context_before").toString(), u"before "_qs);
        QCOMPARE(first.value(u"context_after").toString(), u" after"_qs);
        QCOMPARE(first.value(u"source_app").toString(), u"Mousepad"_qs);
        QCOMPARE(first.value(u"lang").toString(), u"fr"_qs);
        QCOMPARE(requests[0].header("authorization"), QByteArray("Bearer tok-1"));

        const QJsonObject second = QJsonDocument::fromJson(requests[1].body).object();
        QVERIFY(!second.contains(u"source_app"));
        QVERIFY(!requests[1].hasHeader("authorization"));
    }

    void deltasRouteByFieldAndDoneReplaces() {
        OverlayTestKit kit;
        QStringList glossValues, meaningValues;
        connect(kit.controller.get(), &OverlayController::glossChanged, this,
                [&] { glossValues << kit.controller->gloss(); });
        connect(kit.controller.get(), &OverlayController::contextualMeaningChanged, this,
                [&] { meaningValues << kit.controller->contextualMeaning(); });
        QSignalSpy completed(kit.controller.get(), &OverlayController::explanationCompleted);
        kit.answer({sse::meta(), sse::delta(u"gloss"_qs, u"Hel"_qs),
                    sse::delta(u"contextual_meaning"_qs, u"in "_qs), sse::delta(u"gloss"_qs, u"lo"_qs),
                    sse::delta(u"anything"_qs, u"use"_qs), sse::done(u"Hello."_qs, u"In use."_qs)});
        kit.trigger(u"hello"_qs);
        waitIdle(kit);

        QCOMPARE(glossValues, (QStringList{u"Hel"_qs, u"Hello"_qs, u"Hello."_qs}));
        QCOMPARE(meaningValues, (QStringList{u"in "_qs, u"in use"_qs, u"In use."_qs}));
        QCOMPARE(completed.size(), 1);
        QVERIFY(!kit.controller->errorMessage());
    }

    void failedLookupShowsNetworkIssue_data() {
        QTest::addColumn<OverlayTestKit::Response>("response");
        QTest::newRow("error event") << OverlayTestKit::Response::streamed(
            {sse::delta(u"gloss"_qs, u"partial"_qs), sse::error(u"QUOTA"_qs, u"server text"_qs)});
        QTest::newRow("401") << OverlayTestKit::Response::whole(401, R"({"error":"nope"})");
    }
    void failedLookupShowsNetworkIssue() {
        QFETCH(OverlayTestKit::Response, response);
        OverlayTestKit kit;
        kit.answer(response);
        kit.trigger(u"word"_qs);
        QTRY_COMPARE_WITH_TIMEOUT(kit.controller->errorMessage(), std::optional<QString>(networkIssue), 5000);
        QVERIFY(!kit.controller->isLoading());
    }

    void newTriggerCancelsTheRunningLookup() {
        OverlayTestKit kit;
        kit.answer({sse::delta(u"gloss"_qs, u"first"_qs)}, Ending::holdOpen);
        kit.answer({sse::delta(u"gloss"_qs, u"sec"_qs), sse::done(u"second"_qs, QString())});
        kit.trigger(u"one"_qs);
        QTRY_COMPARE_WITH_TIMEOUT(kit.controller->gloss(), u"first"_qs, 5000);

        QStringList glossValues;
        connect(kit.controller.get(), &OverlayController::glossChanged, this,
                [&] { glossValues << kit.controller->gloss(); });
        QSignalSpy errors(kit.controller.get(), &OverlayController::errorMessageChanged);
        kit.trigger(u"two"_qs);
        waitIdle(kit);
        // The first transfer was aborted; nothing it might still report reaches the second card.
        QTRY_COMPARE_WITH_TIMEOUT(kit.server.abandonedResponses(), 1, 5000);
        QCOMPARE(glossValues, (QStringList{QString(), u"sec"_qs, u"second"_qs}));
        QCOMPARE(errors.size(), 0);
        QCOMPARE(kit.controller->selectedText(), u"two"_qs);
    }

    void closeStopsTheLookup() {
        OverlayTestKit kit;
        kit.answer({sse::delta(u"gloss"_qs, u"first"_qs)}, Ending::holdOpen);
        kit.trigger(u"one"_qs);
        QVERIFY(kit.controller->isVisible());
        QVERIFY(kit.controller->windowId().has_value());
        QTRY_COMPARE_WITH_TIMEOUT(kit.controller->gloss(), u"first"_qs, 5000);
        kit.controller->close();
        QVERIFY(!kit.controller->isVisible());
        QVERIFY(!kit.controller->isLoading());
        QVERIFY(!kit.controller->windowId());
        QTRY_COMPARE_WITH_TIMEOUT(kit.server.abandonedResponses(), 1, 5000);
        QVERIFY(!kit.controller->errorMessage());
    }

    // What is stored, and when not, is NubraCLITests' tst_lookup; here, that a finished lookup is stored
    // after it was announced, following the recording switch, and the history windows are told.
    void historyWrite_data() {
        QTest::addColumn<bool>("record");
        QTest::newRow("recorded") << true;
        QTest::newRow("recording off") << false;
    }
    void historyWrite() {
        QFETCH(bool, record);
        OverlayTestKit kit;
        kit.state->settings().setRecordHistory(record);
        QSignalSpy updates(&HistoryNotifier::shared(), &HistoryNotifier::nubraHistoryDidUpdate);
        int storedWhenCompleted = -1;
        connect(kit.controller.get(), &OverlayController::explanationCompleted, this,
                [&] { storedWhenCompleted = kit.state->history().count(); });
        kit.desktop.frontApplications.front = FrontApp{u"Mousepad"_qs, std::nullopt, 0};
        kit.answer({sse::done(u"An explanation."_qs, u"meaning"_qs, 3)});
        kit.trigger(u"word"_qs);
        waitIdle(kit);

        QCOMPARE(storedWhenCompleted, 0); // told before the write
        QCOMPARE(kit.state->history().count(), record ? 1 : 0);
        QCOMPARE(updates.size(), record ? 1 : 0);
        if (record) {
            const HistoryRecord row = kit.state->history().recent(1).first();
            QCOMPARE(row.selectedText, u"word"_qs);
            QCOMPARE(row.contextBefore, u"before "_qs);
            QCOMPARE(row.sourceApp, u"Mousepad"_qs);
            QCOMPARE(row.creditsCost, qint64(3));
        }
    }
};

QTEST_MAIN(OverlayTest)
#include "tst_overlay.moc"
