#include "NubraCore/Service/SSEDecoder.h"
#include "NubraCore/Service/SSELineSplitter.h"
#include "NubraCore/Service/SSEParser.h"

#include <QTest>

namespace {

SSEEvent delta(const QString& text, const QString& field = u"gloss"_qs) {
    return SSEEvent{SSEEvent::Delta{field, text}};
}

SSEEvent error(const QString& code, const QString& message) {
    return SSEEvent{SSEEvent::Error{code, message}};
}

std::vector<SSEEvent> parseOne(const QString& block) {
    SSEParser parser;
    return parser.feed((block + u"\n\n").toUtf8());
}

// Every line `bytes` completes, appended to `lines` as text; false when the splitter refused a line.
bool splitInto(SSELineSplitter& splitter, QByteArrayView bytes, QStringList& lines) {
    QByteArrayView line;
    for (;;) {
        switch (splitter.next(bytes, line)) {
        case SSELineSplitter::Status::line:
            lines.append(QString::fromUtf8(line));
            break;
        case SSELineSplitter::Status::needMore:
            return true;
        case SSELineSplitter::Status::tooLong:
            return false;
        }
    }
}

std::optional<QString> lastLine(SSELineSplitter& splitter) {
    const auto line = splitter.finish();
    return line ? std::optional(QString::fromUtf8(*line)) : std::nullopt;
}

std::vector<SSEEvent> decodeWhole(QByteArrayView body) {
    SSEDecoder decoder;
    auto events = decoder.push(body);
    for (auto& event : decoder.finish())
        events.push_back(std::move(event));
    return events;
}

const QByteArray sampleBody =
    "event: meta\ndata: {\"model\":\"m1\",\"estimated_cost\":3,\"credits_remaining\":97}\n\n"
    ": a comment\nevent: delta\ndata: {\"text\":\"Hel\"}\n\n"
    "event: delta\r\ndata: {\"field\":\"contextual_meaning\",\"text\":\"lo \xC3\xA9\"}\r\n\r\n"
    "event: done\ndata: {\"gloss\":\"Hello\",\"contextual_meaning\":\"hi\","
    "\"credits_cost\":2,\"credits_remaining\":95,\"cached\":true,\"language\":\"en\"}\n\n";

std::vector<SSEEvent> sampleEvents() {
    GlossResult result{u"Hello"_qs, u"hi"_qs, u"en"_qs, 2, 95, true};
    return {SSEEvent{SSEEvent::Meta{u"m1"_qs, 3, 97}}, delta(u"Hel"_qs),
            delta(QString::fromUtf8("lo \xC3\xA9"), u"contextual_meaning"_qs),
            SSEEvent{SSEEvent::Done{result}}};
}

} // namespace

class SSETest : public QObject {
    Q_OBJECT
private slots:
    void splitterCutsOnLineFeedOnly() {
        SSELineSplitter splitter;
        QStringList lines;
        QVERIFY(splitInto(splitter, "a\r\nb\rc\n\n\r\r\nd\xff\xfe", lines));
        QCOMPARE(lines, (QStringList{u"a"_qs, u"b\rc"_qs, QString(), u"\r"_qs}));
        const auto last = lastLine(splitter);
        QVERIFY(last);
        QCOMPARE(*last, u"d"_qs + QChar::ReplacementCharacter + QChar::ReplacementCharacter);
        QVERIFY(!lastLine(splitter));
    }

    void splitterRefusesOverlongLine() {
        SSELineSplitter splitter;
        QStringList lines;
        const QByteArray exact(SSELineSplitter::MaxLineBytes, 'x');
        QVERIFY(splitInto(splitter, exact, lines));
        QVERIFY(splitInto(splitter, "\n", lines));
        QCOMPARE(lines.size(), 1);
        QVERIFY(splitInto(splitter, exact, lines));
        QVERIFY(!splitInto(splitter, "y", lines));
    }

    void blockDecoding_data() {
        QTest::addColumn<QString>("block");
        QTest::addColumn<std::vector<SSEEvent>>("expected");
        const std::vector<SSEEvent> none;
        QTest::newRow("delta") << u"event: delta\ndata: {\"field\":\"f\",\"text\":\"t\"}"_qs
                               << std::vector{delta(u"t"_qs, u"f"_qs)};
        QTest::newRow("data lines joined without separator")
            << u"event:delta\ndata: {\"text\":\"a\ndata: b\"\ndata:}"_qs << std::vector{delta(u"ab"_qs)};
        QTest::newRow("name trimmed of spaces, tabs and no-break spaces")
            << u"event: \t\u00a0delta \t\ndata:{}"_qs << std::vector{delta(QString())};
        QTest::newRow("field name is case-sensitive") << u"Event: delta\ndata: {}"_qs << none;
        QTest::newRow("field must start the line") << u" event: delta\ndata: {}"_qs << none;
        QTest::newRow("no event line") << u"data: {\"text\":\"x\"}"_qs << none;
        QTest::newRow("no data line") << u"event: delta"_qs << none;
        QTest::newRow("blank data") << u"event: delta\ndata:   \t"_qs << none;
        QTest::newRow("array") << u"event: delta\ndata: [1]"_qs << none;
        QTest::newRow("broken json") << u"event: delta\ndata: {\"text\":"_qs << none;
        QTest::newRow("unknown name") << u"event: ping\ndata: {}"_qs << none;
        QTest::newRow("later name wins")
            << u"event: meta\nevent: error\ndata: {}"_qs << std::vector{error(u"INTERNAL"_qs, QString())};
        QTest::newRow("comments, id and retry ignored")
            << u": hi\nid: 4\nretry: 10\nevent: error\ndata: {\"code\":\"E1\",\"message\":\"m\"}"_qs
            << std::vector{error(u"E1"_qs, u"m"_qs)};
        QTest::newRow("done with wrong types")
            << u"event: done\ndata: {\"gloss\":1,\"language\":2,\"credits_cost\":1.5,\"cached\":\"yes\"}"_qs
            << std::vector{SSEEvent{SSEEvent::Done{GlossResult{}}}};
        QTest::newRow("meta wrong types") << u"event: meta\ndata: {\"model\":7,\"estimated_cost\":\"3\","
                                             "\"credits_remaining\":2.0}"_qs
                                          << std::vector{SSEEvent{SSEEvent::Meta{QString(), 0, 2}}};
        QTest::newRow("meta large integers")
            << u"event: meta\ndata: {\"estimated_cost\":9007199254740993,\"credits_remaining\":-4}"_qs
            << std::vector{SSEEvent{SSEEvent::Meta{QString(), 9007199254740993, -4}}};
        // The plain shape of a delta is read without a JSON document; these must read exactly as the
        // general parser reads them, and what it refuses must stay refused.
        QTest::newRow("delta spaced, other members ignored")
            << u"event: delta\ndata: { \"id\" : \"7\" ,\t\"text\":\"\u00e9\u4e2d \" , \"field\":\"g\" }"_qs
            << std::vector{delta(u"\u00e9\u4e2d "_qs, u"g"_qs)};
        QTest::newRow("delta repeated key: last wins")
            << u"event: delta\ndata: {\"text\":\"a\",\"text\":\"b\"}"_qs << std::vector{delta(u"b"_qs)};
        QTest::newRow("delta escapes")
            << u"event: delta\ndata: {\"text\":\"a\\\"\\n\\u00e9\\ud83d\\ude00\"}"_qs
            << std::vector{delta(u"a\"\n\u00e9\U0001F600"_qs)};
        QTest::newRow("delta number value")
            << u"event: delta\ndata: {\"text\":\"a\",\"n\":1}"_qs << std::vector{delta(u"a"_qs)};
        QTest::newRow("delta trailing comma") << u"event: delta\ndata: {\"text\":\"a\",}"_qs << none;
        QTest::newRow("delta trailing text") << u"event: delta\ndata: {\"text\":\"a\"} x"_qs << none;
        QTest::newRow("delta unterminated string") << u"event: delta\ndata: {\"text\":\"a}"_qs << none;
        QTest::newRow("delta missing colon") << u"event: delta\ndata: {\"text\" \"a\"}"_qs << none;
        QTest::newRow("delta many members")
            << u"event: delta\ndata: {\"a\":\"\",\"b\":\"\",\"c\":\"\",\"d\":\"\",\"e\":\"\",\"f\":\"\","
               "\"g\":\"\",\"h\":\"\",\"i\":\"\",\"text\":\"t\"}"_qs
            << std::vector{delta(u"t"_qs)};
        QTest::newRow("data trimmed of ideographic space")
            << u"event:\u3000delta\u2003\ndata:\u00a0{\"text\":\"x\u3000\"}\u3000"_qs
            << std::vector{delta(u"x\u3000"_qs)};
        QTest::newRow("other letters are not trimmed") << u"event: delta\u00e9\ndata: {}"_qs << none;
        QTest::newRow("delta defaults")
            << u"event: delta\ndata: {\"field\":null,\"text\":[]}"_qs << std::vector{delta(QString())};
    }

    void blockDecoding() {
        QFETCH(QString, block);
        QFETCH(std::vector<SSEEvent>, expected);
        QCOMPARE(parseOne(block), expected);
    }

    void decoderGivesSameEventsForEverySplit() {
        const auto expected = sampleEvents();
        QCOMPARE(decodeWhole(sampleBody), expected);
        for (qsizetype cut = 0; cut <= sampleBody.size(); ++cut) {
            SSEDecoder decoder;
            auto events = decoder.push(QByteArrayView(sampleBody).first(cut));
            for (auto& event : decoder.push(QByteArrayView(sampleBody).sliced(cut)))
                events.push_back(std::move(event));
            QCOMPARE(decoder.state(), SSEDecoder::State::ended);
            QVERIFY2(events == expected, qPrintable(u"split at %1"_qs.arg(cut)));
        }
        // One byte at a time: every event appears exactly when the line feed ending its block arrives.
        SSEDecoder decoder;
        std::size_t seen = 0;
        for (qsizetype i = 0; i < sampleBody.size(); ++i) {
            seen += decoder.push(QByteArrayView(sampleBody).sliced(i, 1)).size();
            const bool blockEnd = sampleBody[i] == '\n' && i > 0 &&
                                  (sampleBody[i - 1] == '\n' || sampleBody.mid(i - 2, 2) == "\n\r");
            if (blockEnd)
                QVERIFY2(seen > 0, "event held back after its block ended");
        }
        QCOMPARE(seen, expected.size());
    }

    void decoderStopsAtTerminalEvent() {
        SSEDecoder decoder;
        const auto events = decoder.push("event: error\ndata: {\"code\":\"X\",\"message\":\"bad\"}\n\n"
                                         "event: delta\ndata: {\"text\":\"late\"}\n\n");
        QCOMPARE(events, std::vector{error(u"X"_qs, u"bad"_qs)});
        QCOMPARE(decoder.state(), SSEDecoder::State::ended);
        QVERIFY(decoder.push("event: delta\ndata: {}\n\n").empty());
        QVERIFY(decoder.finish().empty());
    }

    void aLastLineWithoutLineFeedClosesItsBlockAsUsual() {
        SSEDecoder decoder;
        QVERIFY(decoder.push("event: error\ndata: {\"code\":\"X\"}\n\r").empty());
        QCOMPARE(decoder.endOfBody(), std::vector{error(u"X"_qs, QString())});
        QCOMPARE(decoder.state(), SSEDecoder::State::ended);
        QVERIFY(decoder.finish().empty());
    }

    void decoderFinishDeliversUnterminatedBlock() {
        SSEDecoder decoder;
        QCOMPARE(decoder.push("event: delta\ndata: {\"text\":\"a\"}\n\nevent: error\ndata: {}\n"),
                 std::vector{delta(u"a"_qs)});
        QCOMPARE(decoder.finish(), std::vector{error(u"INTERNAL"_qs, QString())});

        SSEDecoder noFeed;
        QVERIFY(noFeed.push("event: delta\r\ndata: {\"text\":\"b\"}").empty());
        QCOMPARE(noFeed.finish(), std::vector{delta(u"b"_qs)});

        SSEDecoder cutInsideJson;
        QVERIFY(cutInsideJson.push("event: delta\ndata: {\"text\":").empty());
        QVERIFY(cutInsideJson.finish().empty());
    }

    void decoderRefusesOversizedInput() {
        SSEDecoder longLine;
        QVERIFY(longLine.push(QByteArray(SSEDecoder::MaxLineBytes + 1, 'x')).empty());
        QCOMPARE(longLine.state(), SSEDecoder::State::tooLarge);
        QVERIFY(longLine.failure().contains(u"too large"));
        QVERIFY(longLine.finish().empty());

        // Many short lines that never close a block.
        SSEDecoder longBlock;
        QByteArray lines;
        while (lines.size() <= SSEDecoder::MaxBlockBytes)
            lines += "data: " + QByteArray(1000, 'y') + '\n';
        longBlock.push(lines);
        QCOMPARE(longBlock.state(), SSEDecoder::State::tooLarge);
        QVERIFY(longBlock.failure().contains(u"1 MiB"));

        // Small, valid but endless stream of events.
        SSEDecoder endless;
        const QByteArray event = "event: delta\ndata: {\"text\":\"" + QByteArray(1000, 'z') + "\"}\n\n";
        QByteArray chunk;
        for (int i = 0; i < 1000; ++i)
            chunk += event;
        qsizetype pushed = 0;
        while (endless.state() == SSEDecoder::State::reading) {
            endless.push(chunk);
            pushed += chunk.size();
            QVERIFY(pushed <= SSEDecoder::MaxResponseBytes + chunk.size());
        }
        QCOMPARE(endless.state(), SSEDecoder::State::tooLarge);
        QVERIFY(endless.failure().contains(u"16 MiB"));
    }
};

QTEST_APPLESS_MAIN(SSETest)
#include "tst_sse.moc"
