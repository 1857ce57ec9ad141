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
                  const QString& lang = u"en"_qs) {
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
                 u"sloping land (especially the slope beside a body of water)"_qs);
        QCOMPARE(sense->examples.size(), std::size_t(2));
        QCOMPARE(QString::fromStdString(sense->examples.front()), u"they pulled the canoe up on the bank"_qs);
        QVERIFY(!sense->hypernyms.empty());
        QVERIFY(!m_database->synset(wordnet::Pos::noun, 12)); // not the start of a record
    }

    void inflectedFormsLeadToTheirBase() {
        QVERIFY(lookup(u"running"_qs).result.gloss.startsWith(u"running \u2192 run (verb)\n1. "_qs));
        const QString better = lookup(u"Better."_qs).result.gloss;
        QVERIFY2(better.contains(u"better \u2192 good (adjective)"_qs), qPrintable(better));
    }

    void contextPicksTheSense() {
        const auto river = lookup(u"bank"_qs, u"We sat on the"_qs, u"of the river and watched the boats."_qs);
        QVERIFY2(river.result.contextualMeaning.startsWith(
                     u"Here \u201cbank\u201d most likely means: sloping land"_qs),
                 qPrintable(river.result.contextualMeaning));
        QVERIFY(river.result.contextualMeaning.contains(u"(noun, sense 1;"_qs));
        QVERIFY(river.result.contextualMeaning.contains(u"\u201criver\u201d"_qs));

        const auto money = lookup(u"bank"_qs, u"She went to the"_qs, u"to make deposits."_qs);
        QVERIFY2(money.result.contextualMeaning.contains(u"a financial institution"_qs),
                 qPrintable(money.result.contextualMeaning));
        QVERIFY(money.result.contextualMeaning.contains(u"(noun, sense 2;"_qs));

        const auto none = lookup(u"bank"_qs);
        QVERIFY(none.result.contextualMeaning.startsWith(QStringLiteral(
            "No context was given; the most common sense of \u201cbank\u201d is: sloping land")));
    }

    void lengthDecidesHowManySenses() {
        const auto countSenses = [](const QString& gloss) {
            return int(gloss.split(u'\n').filter(QRegularExpression(u"^\\d+\\. "_qs)).size());
        };
        const int brief =
            countSenses(lookup(u"bank"_qs, {}, {}, GlossStyle::plain, GlossLength::short_).result.gloss);
        const int medium =
            countSenses(lookup(u"bank"_qs, {}, {}, GlossStyle::plain, GlossLength::medium).result.gloss);
        const int detailed =
            countSenses(lookup(u"bank"_qs, {}, {}, GlossStyle::plain, GlossLength::detailed).result.gloss);
        QCOMPARE(brief, 2);     // one sense of the noun, one of the verb
        QCOMPARE(medium, 6);    // three of each
        QCOMPARE(detailed, 12); // six of each
    }

    void styleDecidesThePresentation() {
        const QString plain = lookup(u"bank"_qs).result.gloss;
        QVERIFY(!plain.contains(u"Example:"_qs));
        QVERIFY(!plain.contains(u"Broader term:"_qs));

        const QString academic = lookup(u"bank"_qs, {}, {}, GlossStyle::academic).result.gloss;
        QVERIFY(academic.contains(u"   Broader term: slope, incline, side \u2014 "_qs));

        const QString learning = lookup(u"bank"_qs, {}, {}, GlossStyle::languageLearning).result.gloss;
        QVERIFY(learning.contains(u"   Example: \u201cthey pulled the canoe up on the bank\u201d"_qs));
        QVERIFY(learning.contains(u"   Synonyms: depository financial institution, banking concern"_qs));

        const QString code = lookup(u"getUserName"_qs, {}, {}, GlossStyle::coding).result.gloss;
        QVERIFY2(code.startsWith(u"Identifier: getUserName\nReads as: get user name\n- get (verb): "_qs),
                 qPrintable(code));
        // Coding style on an ordinary word is the ordinary entry.
        QCOMPARE(lookup(u"bank"_qs, {}, {}, GlossStyle::coding).result.gloss, plain);
    }

    void chineseHeadings() {
        const auto zh =
            lookup(u"bank"_qs, u"river"_qs, {}, GlossStyle::languageLearning, GlossLength::short_, u"zh"_qs);
        QVERIFY(zh.result.gloss.startsWith(u"bank（名词）\n1. sloping land"_qs));
        QVERIFY(zh.result.gloss.contains(u"   例句："_qs));
        QVERIFY(zh.result.contextualMeaning.startsWith(u"此处 \u201cbank\u201d 最可能的意思是："_qs));
        QCOMPARE(zh.result.language, std::optional<QString>(u"zh"_qs));
        QCOMPARE(lookup(u"bank"_qs).result.language, std::optional<QString>(u"en"_qs));
    }

    void phrasesAndUnknownText() {
        QVERIFY(lookup(u"ice cream"_qs).result.gloss.startsWith(u"ice cream (noun)\n"_qs));

        const auto phrase = lookup(u"the muddy river bank"_qs);
        QVERIFY2(phrase.result.gloss.startsWith(u"Word by word:\n- muddy ("_qs),
                 qPrintable(phrase.result.gloss));
        QVERIFY(phrase.result.gloss.contains(u"\n- river (noun): a large natural stream of water"_qs));
        // The other words of the phrase are context too: the river bank is the sloping land.
        QVERIFY(phrase.result.gloss.contains(u"\n- bank (noun): sloping land"_qs));
        QVERIFY(
            phrase.result.contextualMeaning.startsWith(u"Word by word in this context: muddy \u2014 "_qs));

        const auto unknown = lookup(u"xqzzyv"_qs);
        QVERIFY(unknown.result.gloss.startsWith(
            u"\u201cxqzzyv\u201d has no entry in the offline WordNet dictionary"_qs));
        QVERIFY(unknown.result.gloss.contains(u"--backend openai"_qs));
        QVERIFY(lookup(u"xqzzyv blorft"_qs)
                    .result.gloss.startsWith(u"\u201cxqzzyv blorft\u201d has no entry"_qs));
        // Accented letters are part of the word: "élan" is not "lan" (a local area network).
        QVERIFY(lookup(u"«bank»"_qs).result.gloss.startsWith(u"bank (noun)\n"_qs));
        QVERIFY(lookup(u"«élan»"_qs).result.gloss.startsWith(u"\u201c«élan»\u201d has no entry"_qs));
    }

    void streamedDeltasAddUpToTheResult() {
        const auto result = lookup(u"bank"_qs, u"river"_qs, {}, GlossStyle::academic, GlossLength::detailed);
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
        const GlossRequest request(u"bank"_qs, {}, {}, std::nullopt, GlossStyle::plain, GlossLength::detailed,
                                   u"en"_qs, ModelTier::fast);
        const auto outcome = m_backend->gloss(request, gone);
        QVERIFY(std::holds_alternative<BackendError>(outcome));
        QCOMPARE(gone.calls, 2);
    }
};

QTEST_APPLESS_MAIN(WordNetTest)
#include "tst_wordnet.moc"
