// Study cards from lookups: the note's HTML, the fields of a note type, the text file Anki imports, and
// the delivery through an AnkiConnect stand-in, with the file when Anki is not running.
#include "NubraCore/Anki/AnkiDelivery.h"
#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "TestSupport/AnkiConnectStandIn.h"
#include "TestSupport/DebugLogCapture.h"

#include <QFile>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace std::chrono_literals;
using Response = LocalHttpServer::Response;
using Kind = AnkiError::Kind;

Q_DECLARE_METATYPE(Response)
Q_DECLARE_METATYPE(AnkiError::Kind)

namespace {

HistoryRecord lookup(const QString& before, const QString& text, const QString& after) {
    HistoryRecord record;
    record.selectedText = text;
    record.contextBefore = before;
    record.contextAfter = after;
    record.gloss = u"a gloss"_qs;
    return record;
}

// A text file as Anki's importer reads it: "#key:value" header lines at the top, then rows of fields
// split at the separator, a field in quotation marks running over separators and line breaks with
// doubled quotation marks standing for one.
struct AnkiImport {
    QMap<QString, QString> headers;
    QList<QStringList> rows;

    static AnkiImport parse(const QString& text) {
        AnkiImport file;
        qsizetype at = 0;
        while (at < text.size() && text.at(at) == u'#') {
            const qsizetype end = text.indexOf(u'\n', at);
            const QString line = text.mid(at + 1, end - at - 1);
            const qsizetype colon = line.indexOf(u':');
            file.headers.insert(line.left(colon), line.mid(colon + 1));
            at = end + 1;
        }
        const QChar separator = file.headers.value(u"separator"_qs) == u"tab" ? u'\t' : u',';
        QStringList row;
        QString field;
        bool quoted = false;
        for (; at < text.size(); ++at) {
            const QChar c = text.at(at);
            if (quoted) {
                if (c == u'"' && at + 1 < text.size() && text.at(at + 1) == u'"') {
                    field += u'"';
                    ++at;
                } else if (c == u'"') {
                    quoted = false;
                } else {
                    field += c;
                }
            } else if (c == u'"' && field.isEmpty()) {
                quoted = true;
            } else if (c == separator) {
                row << std::exchange(field, QString());
            } else if (c == u'\n') {
                row << std::exchange(field, QString());
                file.rows << std::exchange(row, QStringList());
            } else {
                field += c;
            }
        }
        return file;
    }
};

} // namespace

class AnkiTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    std::unique_ptr<AnkiConnectStandIn> m_anki;

    AnkiReport deliver(const QUrl& url, const QList<AnkiNote>& notes, const AnkiTarget& target,
                       AnkiConnect::Options options = {}) {
        AnkiDelivery delivery(AnkiConnect(url, nubraDirectSession(), options), m_dir.path());
        QSignalSpy finished(&delivery, &AnkiDelivery::finished);
        delivery.send(notes, target);
        if (!finished.wait(10'000) || finished.size() != 1)
            qFatal("the delivery did not finish once");
        return finished.takeFirst().at(0).value<AnkiReport>();
    }

private slots:
    void initTestCase() {
        L10n::setOverride(u"en"_qs);
        qRegisterMetaType<AnkiReport>();
    }
    void cleanupTestCase() { L10n::setOverride(std::nullopt); }
    void init() { m_anki = std::make_unique<AnkiConnectStandIn>(); }
    // Idle keep-alive connections would hold the stand-in's shutdown for a second.
    void cleanup() {
        nubraDirectSession()->clearConnectionCache();
        m_anki.reset();
    }

    // The sentence is cut at sentence ends in both scripts, the text marked, everything escaped.
    void noteFront_data() {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("after");
        QTest::addColumn<QString>("sentence");
        QTest::newRow("English") << u"He left early. The bank "_qs << u"charges"_qs
                                 << u" fees on transfers. Nobody knew."_qs
                                 << u"The bank <b>charges</b> fees on transfers."_qs;
        QTest::newRow("Chinese") << u"昨天下雨了。他在银行"_qs << u"存钱"_qs << u"，然后回家了。明天见！"_qs
                                 << u"他在银行<b>存钱</b>，然后回家了。"_qs;
        QTest::newRow("decimals and addresses go on")
            << u"Rates rose 3.5 percent at example.com near the "_qs << u"bank"_qs << u"!) Then"_qs
            << u"Rates rose 3.5 percent at example.com near the <b>bank</b>!)"_qs;
        QTest::newRow("closing quote and line breaks") << u"Title\nShe said “go.” Then the "_qs << u"dog"_qs
                                                       << u" ran\nNext"_qs << u"Then the <b>dog</b> ran"_qs;
        QTest::newRow("markup read literally") << u"if a < b && "_qs << u"x\"y"_qs << u" > 0. Done"_qs
                                               << u"if a &lt; b &amp;&amp; <b>x&quot;y</b> &gt; 0."_qs;
        QTest::newRow("no context") << QString() << u"serendipity"_qs << u"  "_qs << QString();
    }
    void noteFront() {
        QFETCH(QString, before);
        QFETCH(QString, text);
        QFETCH(QString, after);
        QFETCH(QString, sentence);
        const AnkiNote note = AnkiNote::from(lookup(before, text, after));
        QCOMPARE(note.sentence, sentence);
        QCOMPARE(note.front(), sentence.isEmpty()
                                   ? QString(u"<p><b>"_qs + note.word + u"</b></p>"_qs)
                                   : QString(u"<p>"_qs + sentence + u"</p><p>"_qs + note.word + u"</p>"_qs));
    }

    // The history keeps the first 50 characters before the selection: that long, they may not reach it.
    void storedContextThatMayNotReachTheText() {
        const QString near = u"He sat by the "_qs;
        const QString cut = QString(49, u'x') + u" "_qs;
        QCOMPARE(AnkiNote::fromStored(lookup(near, u"bank"_qs, u"."_qs)).sentence,
                 u"He sat by the <b>bank</b>."_qs);
        QCOMPARE(AnkiNote::fromStored(lookup(cut, u"bank"_qs, u"."_qs)).sentence, u"<b>bank</b>."_qs);
    }

    void noteBack() {
        HistoryRecord record = lookup({}, u"w"_qs, {});
        record.gloss = u"A <tag> & \"quote\"\r\n\r\n  Second line\nthird\n"_qs;
        record.contextualMeaning = u"Here: 存钱"_qs;
        record.sourceApp = u"Fire<fox>"_qs;
        record.createdAt = QDateTime(QDate(2026, 11, 26), QTime(12, 0), Qt::UTC);
        QCOMPARE(
            AnkiNote::from(record).back,
            u"<p>A &lt;tag&gt; &amp; &quot;quote&quot;</p><p>Second line<br>third</p><hr><p>Here: 存钱</p>"
            "<p><small>Fire&lt;fox&gt; · "_qs +
                record.createdAt.toLocalTime().toString(u"yyyy-MM-dd"_qs) + u"</small></p>"_qs);
    }

    // F front, W word, S sentence, B back, F|B both in one field.
    void fieldsByName_data() {
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("Basic") << QStringList{u"Front"_qs, u"Back"_qs} << QStringList{u"F"_qs, u"B"_qs};
        QTest::newRow("vocabulary type")
            << QStringList{u"word"_qs, u" Sentence "_qs, u"Meaning"_qs, u"Audio"_qs}
            << QStringList{u"W"_qs, u"S"_qs, u"B"_qs, QString()};
        QTest::newRow("Chinese names")
            << QStringList{u"背面"_qs, u"正面"_qs} << QStringList{u"B"_qs, u"F"_qs};
        QTest::newRow("a word field alone takes the sentence too")
            << QStringList{u"Expression"_qs, u"Reading"_qs, u"Meaning"_qs}
            << QStringList{u"F"_qs, QString(), u"B"_qs};
        QTest::newRow("unknown names by position")
            << QStringList{u"Text"_qs, u"Extra"_qs, u"More"_qs} << QStringList{u"F"_qs, u"B"_qs, QString()};
        QTest::newRow("one field") << QStringList{u"Only"_qs} << QStringList{u"F|B"_qs};
    }
    void fieldsByName() {
        QFETCH(QStringList, names);
        QFETCH(QStringList, expected);
        const AnkiNote note = AnkiNote::from(lookup(u"The "_qs, u"cat"_qs, u" sat."_qs));
        QStringList values = note.fieldsFor(names);
        for (QString& value : values) {
            value.replace(note.front() + u"<hr>"_qs + note.back, u"F|B"_qs);
            value.replace(note.front(), u"F"_qs);
            value.replace(note.back, u"B"_qs);
            value.replace(note.sentence, u"S"_qs);
            value.replace(note.word, u"W"_qs);
        }
        QCOMPARE(values, expected);
    }

    // Appended twice to one file, notes read back field for field under one header.
    void textFileRoundTrip() {
        const AnkiTarget target{u"日本語::Words"_qs, u"Basic"_qs};
        const AnkiNote marked = AnkiNote::from(lookup(u"他在银行"_qs, u"存钱"_qs, u"。"_qs));
        HistoryRecord markup = lookup(u"a "_qs, u"<b>&"_qs, u" \"c\""_qs);
        markup.gloss = u"x < y\n\nz"_qs;
        const AnkiNote escaped = AnkiNote::from(markup);
        const AnkiNote raw{u"tab\t\"q\"\nline"_qs, {}, u"tab\there \"q\"\r\nline"_qs};
        const QString path = AnkiTextFile::pendingPath(m_dir.path(), target);
        QCOMPARE(QFileInfo(path).fileName(), u"anki-notes-日本語__Words-Basic.txt"_qs);
        using Appended = AnkiTextFile::Appended;
        auto append = [&](const QList<AnkiNote>& notes) {
            const auto outcome = AnkiTextFile::append(path, notes, target);
            return std::holds_alternative<Appended>(outcome) ? std::get<Appended>(outcome) : Appended{-1, -1};
        };
        QCOMPARE(append({marked, escaped}).written, 2);
        // A note already waiting is not written twice.
        const Appended again = append({raw, marked, raw});
        QCOMPARE(again.written, 1);
        QCOMPARE(again.alreadyThere, 2);

        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        QCOMPARE(bytes.left(bytes.indexOf('\n', bytes.indexOf("#tags"))),
                 AnkiTextFile::header(target).chopped(1));
        const AnkiImport import = AnkiImport::parse(QString::fromUtf8(bytes));
        QCOMPARE(import.headers.value(u"separator"_qs), u"tab"_qs);
        QCOMPARE(import.headers.value(u"html"_qs), u"true"_qs);
        QCOMPARE(import.headers.value(u"deck"_qs), target.deck);
        QCOMPARE(import.headers.value(u"notetype"_qs), target.noteType);
        QCOMPARE(import.headers.value(u"tags column"_qs), u"3"_qs);
        const QList<QStringList> expected{{marked.front(), marked.back, u"nubra"_qs},
                                          {escaped.front(), escaped.back, u"nubra"_qs},
                                          {raw.front(), raw.back, u"nubra"_qs}};
        QCOMPARE(import.rows, expected);
        QVERIFY(import.rows[0][0].contains(u"他在银行<b>存钱</b>。"_qs));
        QVERIFY(import.rows[1][0].contains(u"a <b>&lt;b&gt;&amp;</b> &quot;c&quot;"_qs));
        QVERIFY(import.rows[1][1].startsWith(u"<p>x &lt; y</p><p>z</p>"_qs));
        QCOMPARE(QString::fromUtf8(AnkiTextFile::document({marked, escaped, raw}, target)),
                 QString::fromUtf8(bytes));
    }

    // Added once (the deck made), then counted as already there; fields go by the note type's names.
    void addsOnceIntoAnki() {
        AnkiConnectStandIn& anki = *m_anki;
        anki.addModel(u"Vocab"_qs, {u"Word"_qs, u"Sentence"_qs, u"Meaning"_qs});
        const AnkiNote note = AnkiNote::from(lookup(u"The "_qs, u"cat"_qs, u" sat."_qs));

        AnkiReport report = deliver(anki.url(), {note}, {u"Nubra"_qs, u"Basic"_qs});
        QCOMPARE(report.added, 1);
        QCOMPARE(report.message(), u"Added to Anki (deck “Nubra”)."_qs);
        QVERIFY(anki.decks().contains(u"Nubra"_qs));
        QCOMPARE(anki.notes().size(), std::size_t(1));
        QCOMPARE(anki.notes()[0].fields, (QJsonObject{{u"Front"_qs, note.front()}, {u"Back"_qs, note.back}}));
        QCOMPARE(anki.notes()[0].tags, QStringList{u"nubra"_qs});

        report = deliver(anki.url(), {note}, {u"Nubra"_qs, u"Basic"_qs});
        QCOMPARE(report.added, 0);
        QCOMPARE(report.duplicates, 1);
        QCOMPARE(report.message(), u"Already in Anki."_qs);
        QCOMPARE(anki.notes().size(), std::size_t(1));

        const AnkiNote other = AnkiNote::from(lookup({}, u"dog"_qs, {}));
        const AnkiNote empty = AnkiNote::from(lookup({}, u""_qs, {}));
        report = deliver(anki.url(), {note, other, empty}, {u"Nubra"_qs, u"Vocab"_qs});
        QCOMPARE(report.added, 2);
        QCOMPARE(report.failed, 1);
        QCOMPARE(report.error->kind, Kind::refused);
        QCOMPARE(
            report.message(),
            u"Added 2 notes to Anki (deck “Nubra”). Anki refused: cannot create note because it is empty"_qs);
        QCOMPARE(anki.notes()[1].fields.value(u"Sentence"_qs).toString(), note.sentence);
        QCOMPARE(anki.notes()[1].fields.value(u"Word"_qs).toString(), u"cat"_qs);
    }

    void refusalKeepsAnkisMessage() {
        AnkiConnectStandIn& anki = *m_anki;
        const AnkiReport report =
            deliver(anki.url(), {AnkiNote::from(lookup({}, u"x"_qs, {}))}, {u"Nubra"_qs, u"Missing"_qs});
        QCOMPARE(report.failed, 1);
        QVERIFY(report.error);
        QCOMPARE(*report.error, (AnkiError{Kind::refused, u"model was not found: Missing"_qs}));
        QCOMPARE(report.message(), u"Anki refused: model was not found: Missing"_qs);
        QVERIFY(!anki.actions().contains(u"addNote"_qs));
    }

    // Nothing listens: the notes wait in the pending file, and the message says where.
    void notRunningWritesTheFile() {
        const AnkiTarget target{u"Nubra"_qs, u"Basic"_qs};
        const AnkiNote note = AnkiNote::from(lookup(u"A "_qs, u"word"_qs, u"."_qs));
        const AnkiNote other = AnkiNote::from(lookup(u"A "_qs, u"bird"_qs, u"."_qs));
        const QUrl closed = LocalHttpServer::closedPortUrl();
        AnkiReport report = deliver(closed, {note, other}, target);
        const QString path = AnkiTextFile::pendingPath(m_dir.path(), target);
        QCOMPARE(report.filePath, path);
        QCOMPARE(report.filed, 2);
        QCOMPARE(report.added + report.failed, 0);
        QCOMPARE(report.message(),
                 u"Anki (with AnkiConnect) is not running: saved to %1 for File › Import."_qs.arg(path));
        report = deliver(closed, {note}, target);
        QCOMPARE(report.filed, 0);
        QCOMPARE(report.message(),
                 u"Anki is not running; what was sent is already waiting in %1."_qs.arg(path));
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(AnkiImport::parse(QString::fromUtf8(file.readAll())).rows.size(), 2);
        QVERIFY(file.remove());
    }

    // Answers that are not AnkiConnect's are typed, never taken for a result.
    void clientErrors_data() {
        QTest::addColumn<Response>("response");
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<QString>("message");
        QTest::newRow("error envelope")
            << Response::whole(200, R"({"result":null,"error":"collection is not available"})")
            << Kind::refused << u"collection is not available"_qs;
        QTest::newRow("not JSON") << Response::whole(200, "<html>hi</html>", "text/html") << Kind::badReply
                                  << u"not an AnkiConnect answer"_qs;
        QTest::newRow("no error key") << Response::whole(200, R"({"result":["a"]})") << Kind::badReply
                                      << u"not an AnkiConnect answer"_qs;
        QTest::newRow("HTTP error") << Response::whole(403, "{}") << Kind::badReply << QString();
        QTest::newRow("too large") << Response::whole(200, QByteArray(2 << 20, ' ')) << Kind::badReply
                                   << u"the answer is too large"_qs;
        Response stalled = Response::streamed({"{\"result\":", "null,\"error\":null}"});
        stalled.pieces[1].delay = 800ms;
        QTest::newRow("stalled") << stalled << Kind::noAnswer << QString();
    }
    void clientErrors() {
        QFETCH(Response, response);
        QFETCH(Kind, kind);
        QFETCH(QString, message);
        AnkiConnectStandIn& anki = *m_anki;
        anki.answerNextWith(response);
        std::optional<AnkiResult<QStringList>> answer;
        QObject context;
        const auto timeout = kind == Kind::noAnswer ? 300ms : 5000ms;
        AnkiConnect(anki.url(), nubraDirectSession(), {timeout}).deckNames(&context, [&](auto result) {
            answer = result;
        });
        QTRY_VERIFY_WITH_TIMEOUT(answer.has_value(), 5000);
        const auto* error = std::get_if<AnkiError>(&*answer);
        QVERIFY(error);
        QCOMPARE(error->kind, kind);
        if (!message.isEmpty())
            QCOMPARE(error->message, message);
    }
};

QTEST_GUILESS_MAIN(AnkiTest)
#include "tst_anki.moc"
