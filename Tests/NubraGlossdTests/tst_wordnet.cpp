#include "NubraGlossd/Morphology.h"
#include "NubraGlossd/WordNetBackend.h"

#include <QTest>

namespace {

// Collects what the backend streams, so each test can check that the deltas add up to the result.
struct Collector : EventSink {
    QString gloss;
    QString meaning;
    int deltas = 0;
    bool delta(const QString& field, const QString& text) override {
        ++deltas;
        (field == u"gloss" ? gloss : meaning) += text;
        return true;
    }
};

struct Lookup {
    GlossResult result;
    Collector streamed;
};

} // namespace

class WordNetTest : public QObject {
    Q_OBJECT

    std::optional<WordNetBackend> m_backend;
    std::optional<wordnet::Database> m_database;

    Lookup lookup(const QString& text, const QString& before = {}, const QString& after = {},
                  GlossStyle style = GlossStyle::plain, GlossLength length = GlossLength::medium,
                  const QString& lang = QStringLiteral("en")) {
        Lookup outcome;
        const GlossRequest request(text, before, after, std::nullopt, style, length, lang, ModelTier::fast);
        auto answer = m_backend->gloss(request, outcome.streamed);
        if (auto* result = std::get_if<GlossResult>(&answer))
            outcome.result = *result;
        return outcome;
    }

private slots:
    void initTestCase() {
        m_database = wordnet::Database::open("/usr/share/wordnet");
        QVERIFY2(m_database, "the wordnet-base package provides /usr/share/wordnet");
        m_backend.emplace(*wordnet::Database::open("/usr/share/wordnet"));
    }

    void baseFormsFollowExceptionsAndSuffixRules_data() {
        QTest::addColumn<QString>("word");
        QTest::addColumn<int>("pos");
        QTest::addColumn<QStringList>("forms");
        QTest::newRow("geese") << "geese" << int(wordnet::Pos::noun) << QStringList{"goose"};
        QTest::newRow("running verb") << "running" << int(wordnet::Pos::verb) << QStringList{"run"};
        QTest::newRow("running noun") << "running" << int(wordnet::Pos::noun) << QStringList{"running"};
        QTest::newRow("better adj") << "better" << int(wordnet::Pos::adjective)
                                    << QStringList{"better", "good", "well"};
        QTest::newRow("churches") << "churches" << int(wordnet::Pos::noun) << QStringList{"church"};
        QTest::newRow("women") << "women" << int(wordnet::Pos::noun) << QStringList{"woman"};
        QTest::newRow("hoped") << "hoped" << int(wordnet::Pos::verb) << QStringList{"hope", "hop"};
        QTest::newRow("bigger") << "bigger" << int(wordnet::Pos::adjective) << QStringList{"bigger", "big"};
        QTest::newRow("nothing") << "qzxv" << int(wordnet::Pos::noun) << QStringList{};
    }
    void baseFormsFollowExceptionsAndSuffixRules() {
        QFETCH(QString, word);
        QFETCH(int, pos);
        QFETCH(QStringList, forms);
        QStringList found;
        for (const auto& form : wordnet::baseForms(*m_database, word.toStdString(), wordnet::Pos(pos)))
            found << QString::fromStdString(form);
        QCOMPARE(found, forms);
    }

    void synsetsAreReadWithTheirGlossParts() {
        const auto entry = m_database->lookup("bank", wordnet::Pos::noun);
        QVERIFY(entry);
        QCOMPARE(entry->offsets.size(), std::size_t(10));
        const auto sense = m_database->synset(wordnet::Pos::noun, entry->offsets.front());
        QVERIFY(sense);
        QCOMPARE(QString::fromStdString(sense->definition),
                 QStringLiteral("sloping land (especially the slope beside a body of water)"));
        QCOMPARE(sense->examples.size(), std::size_t(2));
        QCOMPARE(QString::fromStdString(sense->examples.front()),
                 QStringLiteral("they pulled the canoe up on the bank"));
        QVERIFY(!sense->hypernyms.empty());
        QVERIFY(!m_database->synset(wordnet::Pos::noun, 12)); // not the start of a record
    }

    void inflectedFormsLeadToTheirBase() {
        QVERIFY(lookup(QStringLiteral("running"))
                    .result.gloss.startsWith(QStringLiteral("running \u2192 run (verb)\n1. ")));
        const QString better = lookup(QStringLiteral("Better.")).result.gloss;
        QVERIFY2(better.contains(QStringLiteral("better \u2192 good (adjective)")), qPrintable(better));
    }

    void contextPicksTheSense() {
        const auto river = lookup(QStringLiteral("bank"), QStringLiteral("We sat on the"),
                                  QStringLiteral("of the river and watched the boats."));
        QVERIFY2(river.result.contextualMeaning.startsWith(
                     QStringLiteral("Here \u201cbank\u201d most likely means: sloping land")),
                 qPrintable(river.result.contextualMeaning));
        QVERIFY(river.result.contextualMeaning.contains(QStringLiteral("(noun, sense 1;")));
        QVERIFY(river.result.contextualMeaning.contains(QStringLiteral("\u201criver\u201d")));

        const auto money = lookup(QStringLiteral("bank"), QStringLiteral("She went to the"),
                                  QStringLiteral("to make deposits."));
        QVERIFY2(money.result.contextualMeaning.contains(QStringLiteral("a financial institution")),
                 qPrintable(money.result.contextualMeaning));
        QVERIFY(money.result.contextualMeaning.contains(QStringLiteral("(noun, sense 2;")));

        const auto none = lookup(QStringLiteral("bank"));
        QVERIFY(none.result.contextualMeaning.startsWith(QStringLiteral(
            "No context was given; the most common sense of \u201cbank\u201d is: sloping land")));
    }

    void lengthDecidesHowManySenses() {
        const auto countSenses = [](const QString& gloss) {
            return int(gloss.split(u'\n').filter(QRegularExpression(QStringLiteral("^\\d+\\. "))).size());
        };
        const int brief = countSenses(
            lookup(QStringLiteral("bank"), {}, {}, GlossStyle::plain, GlossLength::short_).result.gloss);
        const int medium = countSenses(
            lookup(QStringLiteral("bank"), {}, {}, GlossStyle::plain, GlossLength::medium).result.gloss);
        const int detailed = countSenses(
            lookup(QStringLiteral("bank"), {}, {}, GlossStyle::plain, GlossLength::detailed).result.gloss);
        QCOMPARE(brief, 2);     // one sense of the noun, one of the verb
        QCOMPARE(medium, 6);    // three of each
        QCOMPARE(detailed, 12); // six of each
    }

    void styleDecidesThePresentation() {
        const QString plain = lookup(QStringLiteral("bank")).result.gloss;
        QVERIFY(!plain.contains(QStringLiteral("Example:")));
        QVERIFY(!plain.contains(QStringLiteral("Broader term:")));

        const QString academic = lookup(QStringLiteral("bank"), {}, {}, GlossStyle::academic).result.gloss;
        QVERIFY(academic.contains(QStringLiteral("   Broader term: slope, incline, side \u2014 ")));

        const QString learning =
            lookup(QStringLiteral("bank"), {}, {}, GlossStyle::languageLearning).result.gloss;
        QVERIFY(learning.contains(
            QStringLiteral("   Example: \u201cthey pulled the canoe up on the bank\u201d")));
        QVERIFY(learning.contains(
            QStringLiteral("   Synonyms: depository financial institution, banking concern")));

        const QString code = lookup(QStringLiteral("getUserName"), {}, {}, GlossStyle::coding).result.gloss;
        QVERIFY2(code.startsWith(
                     QStringLiteral("Identifier: getUserName\nReads as: get user name\n- get (verb): ")),
                 qPrintable(code));
        // Coding style on an ordinary word is the ordinary entry.
        QCOMPARE(lookup(QStringLiteral("bank"), {}, {}, GlossStyle::coding).result.gloss, plain);
    }

    void chineseHeadings() {
        const auto zh = lookup(QStringLiteral("bank"), QStringLiteral("river"), {},
                               GlossStyle::languageLearning, GlossLength::short_, QStringLiteral("zh"));
        QVERIFY(zh.result.gloss.startsWith(QStringLiteral("bank（名词）\n1. sloping land")));
        QVERIFY(zh.result.gloss.contains(QStringLiteral("   例句：")));
        QVERIFY(
            zh.result.contextualMeaning.startsWith(QStringLiteral("此处 \u201cbank\u201d 最可能的意思是：")));
        QCOMPARE(zh.result.language, std::optional<QString>(QStringLiteral("zh")));
        QCOMPARE(lookup(QStringLiteral("bank")).result.language,
                 std::optional<QString>(QStringLiteral("en")));
    }

    void phrasesAndUnknownText() {
        QVERIFY(lookup(QStringLiteral("ice cream"))
                    .result.gloss.startsWith(QStringLiteral("ice cream (noun)\n")));

        const auto phrase = lookup(QStringLiteral("the muddy river bank"));
        QVERIFY2(phrase.result.gloss.startsWith(QStringLiteral("Word by word:\n- muddy (")),
                 qPrintable(phrase.result.gloss));
        QVERIFY(phrase.result.gloss.contains(
            QStringLiteral("\n- river (noun): a large natural stream of water")));
        // The other words of the phrase are context too: the river bank is the sloping land.
        QVERIFY(phrase.result.gloss.contains(QStringLiteral("\n- bank (noun): sloping land")));
        QVERIFY(phrase.result.contextualMeaning.startsWith(
            QStringLiteral("Word by word in this context: muddy \u2014 ")));

        const auto unknown = lookup(QStringLiteral("xqzzyv"));
        QVERIFY(unknown.result.gloss.startsWith(
            QStringLiteral("\u201cxqzzyv\u201d has no entry in the offline WordNet dictionary")));
        QVERIFY(unknown.result.gloss.contains(QStringLiteral("--backend openai")));
        QVERIFY(lookup(QStringLiteral("xqzzyv blorft"))
                    .result.gloss.startsWith(QStringLiteral("\u201cxqzzyv blorft\u201d has no entry")));
        // Accented letters are part of the word: "élan" is not "lan" (a local area network).
        QVERIFY(lookup(QStringLiteral("«bank»")).result.gloss.startsWith(QStringLiteral("bank (noun)\n")));
        QVERIFY(lookup(QStringLiteral("«élan»"))
                    .result.gloss.startsWith(QStringLiteral("\u201c«élan»\u201d has no entry")));
    }

    void streamedDeltasAddUpToTheResult() {
        const auto result = lookup(QStringLiteral("bank"), QStringLiteral("river"), {}, GlossStyle::academic,
                                   GlossLength::detailed);
        QVERIFY(result.streamed.deltas > 3);
        QCOMPARE(result.streamed.gloss, result.result.gloss);
        QCOMPARE(result.streamed.meaning, result.result.contextualMeaning);
        QCOMPARE(result.result.creditsCost, 0);
        QCOMPARE(result.result.cached, false);
    }

    void aGoneClientStopsTheLookup() {
        struct Gone : EventSink {
            int calls = 0;
            bool delta(const QString&, const QString&) override { return ++calls < 2; }
        } gone;
        const GlossRequest request(QStringLiteral("bank"), {}, {}, std::nullopt, GlossStyle::plain,
                                   GlossLength::detailed, QStringLiteral("en"), ModelTier::fast);
        const auto outcome = m_backend->gloss(request, gone);
        QVERIFY(std::holds_alternative<BackendError>(outcome));
        QCOMPARE(gone.calls, 2);
    }
};

QTEST_APPLESS_MAIN(WordNetTest)
#include "tst_wordnet.moc"
