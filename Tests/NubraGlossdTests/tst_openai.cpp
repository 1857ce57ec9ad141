#include "ScriptedUpstream.h"

#include "NubraGlossd/OpenAIBackend.h"
#include "NubraGlossd/SectionSplitter.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QTest>

namespace {

struct Collector : EventSink {
    std::vector<std::pair<QString, QString>> deltas;
    bool delta(const QString& field, const QString& text) override {
        deltas.emplace_back(field, text);
        return true;
    }
};

GlossRequest request(ModelTier tier = ModelTier::fast) {
    return GlossRequest(u"bank"_qs, u"sat on the"_qs, u"of the river"_qs, u"Notes"_qs,
                        GlossStyle::languageLearning, GlossLength::short_, u"zh"_qs, tier);
}

OpenAIConfig config(const ScriptedUpstream& upstream, const QString& model) {
    return {upstream.baseUrl(), model, {}, {}, "sk-test", 1};
}

QString joined(const std::vector<std::pair<QString, QString>>& pieces, const QString& field) {
    QString text;
    for (const auto& [name, piece] : pieces)
        if (name == field)
            text += piece;
    return text;
}

} // namespace

class OpenAITest : public QObject {
    Q_OBJECT

private slots:
    void splitterHoldsBackAMarkerCutInPieces() {
        SectionSplitter splitter;
        std::vector<std::pair<QString, QString>> all;
        for (const char* piece : {"Gloss [", "[CON", "TEXT", "]]", "  \n", "Mean", "ing"}) {
            auto out = splitter.feed(QString::fromUtf8(piece));
            all.insert(all.end(), out.begin(), out.end());
        }
        auto rest = splitter.finish();
        all.insert(all.end(), rest.begin(), rest.end());
        QCOMPARE(joined(all, u"gloss"_qs), u"Gloss "_qs);
        QCOMPARE(joined(all, u"contextual_meaning"_qs), u"Meaning"_qs);
        QCOMPARE(all.front(), std::make_pair(u"gloss"_qs, u"Gloss "_qs));

        SectionSplitter lookalike; // a bracket that never becomes the marker is released in the end
        auto out = lookalike.feed(u"a [[CON"_qs);
        QCOMPARE(joined(out, u"gloss"_qs), u"a "_qs);
        out = lookalike.finish();
        QCOMPARE(joined(out, u"gloss"_qs), u"[[CON"_qs);
    }

    void upstreamTokensBecomeDeltas() {
        ScriptedUpstream upstream;
        OpenAIBackend backend(config(upstream, u"ok"_qs));
        Collector sink;
        const auto outcome = backend.gloss(request(), sink);
        const auto* result = std::get_if<GlossResult>(&outcome);
        QVERIFY(result);
        QCOMPARE(result->gloss, u"A bank is sloping land."_qs);
        QCOMPARE(result->contextualMeaning, u"Here: the river side."_qs);
        QCOMPARE(sink.deltas.front(), std::make_pair(u"gloss"_qs, u"A bank is "_qs));
        QCOMPARE(sink.deltas.back(), std::make_pair(u"contextual_meaning"_qs, u"the river side."_qs));
        QVERIFY(sink.deltas.size() >= 4);

        // The prompt carries the selection, its context, style, length and language.
        const QJsonObject sent = upstream.lastRequest();
        QCOMPARE(sent.value(u"model").toString(), u"ok"_qs);
        QCOMPARE(sent.value(u"stream").toBool(), true);
        QCOMPARE(upstream.lastAuthorization(), std::string("Bearer sk-test"));
        const QJsonArray messages = sent.value(u"messages").toArray();
        const QString system = messages.at(0).toObject().value(u"content").toString();
        const QString user = messages.at(1).toObject().value(u"content").toString();
        QVERIFY(system.contains(u"language learner"_qs));
        QVERIFY(system.contains(u"one or two sentences"_qs));
        QVERIFY(system.contains(u"Simplified Chinese"_qs));
        QVERIFY(system.contains(u"[[CONTEXT]]"_qs));
        QCOMPARE(user, QStringLiteral(
                           "Selection:\nbank\n\nText before it:\nsat on the\n\nText after it:\nof the river"
                           "\n\nApplication: Notes"));
    }

    void tiersPickTheirModels() {
        ScriptedUpstream upstream;
        OpenAIBackend backend({upstream.baseUrl(), u"base"_qs, u"small"_qs, {}, {}, 1});
        QCOMPARE(backend.modelName(request(ModelTier::fast)), u"small"_qs);
        QCOMPARE(backend.modelName(request(ModelTier::quality)), u"base"_qs);
    }

    void upstreamFailuresBecomeErrorOutcomes_data() {
        QTest::addColumn<QString>("model"); // picks the scripted upstream's answer; "none": nothing listens
        QTest::addColumn<QString>("code");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("streamed");
        QTest::newRow("error answer")
            << u"fail"_qs << u"UPSTREAM_ERROR"_qs
            << u"The language model service answered 500: the model is overloaded"_qs << QString();
        QTest::newRow("stalled") << u"stall"_qs << u"UPSTREAM_TIMEOUT"_qs << QString() << u"Thinking"_qs;
        QTest::newRow("unreachable") << u"none"_qs << u"UPSTREAM_UNREACHABLE"_qs << QString() << QString();
    }

    void upstreamFailuresBecomeErrorOutcomes() {
        QFETCH(QString, model);
        QFETCH(QString, code);
        QFETCH(QString, message);
        QFETCH(QString, streamed);
        ScriptedUpstream upstream;
        OpenAIConfig setup = config(upstream, model);
        if (model == u"none")
            setup.upstream = "http://127.0.0.1:1/v1";
        OpenAIBackend backend(setup);
        Collector sink;
        QElapsedTimer timer;
        timer.start();
        const auto outcome = backend.gloss(request(), sink);
        QVERIFY(timer.elapsed() < 2500); // the stalled one gives up after its one second
        const auto* error = std::get_if<BackendError>(&outcome);
        QVERIFY(error);
        QCOMPARE(error->code, code);
        if (!message.isEmpty())
            QCOMPARE(error->message, message);
        QCOMPARE(joined(sink.deltas, u"gloss"_qs), streamed);
    }
};

QTEST_APPLESS_MAIN(OpenAITest)
#include "tst_openai.moc"
