#include "NubraCore/Service/APIEnvelope.h"

#include <QTest>

Q_DECLARE_METATYPE(DecodingError::Kind)

class EnvelopeTest : public QObject {
    Q_OBJECT
private slots:
    void acceptsEitherOkValue_data() {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("ok");
        QTest::newRow("ok true") << QByteArray(R"({"ok":true,"data":{"a":1}})") << true;
        QTest::newRow("ok false") << QByteArray(R"({"data":{"a":1},"ok":false,"extra":[]})") << false;
    }
    void acceptsEitherOkValue() {
        QFETCH(QByteArray, body);
        QFETCH(bool, ok);
        const auto envelope = APIEnvelope::decode(body);
        QVERIFY(envelope);
        QCOMPARE(envelope.value().ok, ok);
        QCOMPARE(envelope.value().data.value(u"a").toInt(), 1);
    }

    void refusesMalformedEnvelopes_data() {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<DecodingError::Kind>("kind");
        QTest::addColumn<QString>("path");
        using K = DecodingError::Kind;
        QTest::newRow("empty body") << QByteArray() << K::invalidJson << QString();
        QTest::newRow("array") << QByteArray("[]") << K::typeMismatch << QString();
        QTest::newRow("no ok") << QByteArray(R"({"data":{}})") << K::missingKey << u"ok"_qs;
        QTest::newRow("ok not boolean")
            << QByteArray(R"({"ok":"true","data":{}})") << K::typeMismatch << u"ok"_qs;
        QTest::newRow("no data") << QByteArray(R"({"ok":true})") << K::missingKey << u"data"_qs;
        QTest::newRow("data not object")
            << QByteArray(R"({"ok":true,"data":[1]})") << K::typeMismatch << u"data"_qs;
        QTest::newRow("neither member, ok reported first") << QByteArray("{}") << K::missingKey << u"ok"_qs;
    }
    void refusesMalformedEnvelopes() {
        QFETCH(QByteArray, body);
        QFETCH(DecodingError::Kind, kind);
        QFETCH(QString, path);
        const auto envelope = APIEnvelope::decode(body);
        QVERIFY(!envelope);
        QCOMPARE(envelope.error().kind, kind);
        QCOMPARE(envelope.error().path, path);
    }

    void describesEachKindReadably() {
        QCOMPARE(DecodingError::missingKey(u"ok"_qs).description(),
                 u"The answer has no required member \"ok\""_qs);
        QCOMPARE(
            DecodingError::typeMismatch(u"available"_qs, u"a boolean"_qs).within(u"data"_qs).description(),
            u"The answer has the wrong type at \"data.available\": expected a boolean"_qs);
        QCOMPARE(DecodingError::typeMismatch(QString(), u"an object"_qs).description(),
                 u"The answer has the wrong type at the top level: expected an object"_qs);

        const auto notJson = APIEnvelope::decode("nope");
        QVERIFY(!notJson);
        QVERIFY2(notJson.error().description().startsWith(u"The answer is not valid JSON: "),
                 qPrintable(notJson.error().description()));
        QVERIFY(notJson.error().description().contains(u" at offset "));
    }
};

QTEST_APPLESS_MAIN(EnvelopeTest)
#include "tst_envelope.moc"
