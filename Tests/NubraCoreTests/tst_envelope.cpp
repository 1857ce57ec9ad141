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
        QTest::newRow("truncated") << QByteArray(R"({"ok":true,"data":{)") << K::invalidJson << QString();
        QTest::newRow("array") << QByteArray("[]") << K::typeMismatch << QString();
        QTest::newRow("no ok") << QByteArray(R"({"data":{}})") << K::missingKey << QStringLiteral("ok");
        QTest::newRow("ok not boolean")
            << QByteArray(R"({"ok":"true","data":{}})") << K::typeMismatch << QStringLiteral("ok");
        QTest::newRow("ok null") << QByteArray(R"({"ok":null,"data":{}})") << K::typeMismatch
                                 << QStringLiteral("ok");
        QTest::newRow("no data") << QByteArray(R"({"ok":true})") << K::missingKey << QStringLiteral("data");
        QTest::newRow("data not object")
            << QByteArray(R"({"ok":true,"data":[1]})") << K::typeMismatch << QStringLiteral("data");
        QTest::newRow("neither member, ok reported first")
            << QByteArray("{}") << K::missingKey << QStringLiteral("ok");
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
        QCOMPARE(DecodingError::missingKey(QStringLiteral("ok")).description(),
                 QStringLiteral("The answer has no required member \"ok\""));
        QCOMPARE(DecodingError::typeMismatch(QStringLiteral("available"), QStringLiteral("a boolean"))
                     .within(QStringLiteral("data"))
                     .description(),
                 QStringLiteral("The answer has the wrong type at \"data.available\": expected a boolean"));
        QCOMPARE(DecodingError::typeMismatch(QString(), QStringLiteral("an object")).description(),
                 QStringLiteral("The answer has the wrong type at the top level: expected an object"));

        const auto notJson = APIEnvelope::decode("nope");
        QVERIFY(!notJson);
        QVERIFY2(notJson.error().description().startsWith(u"The answer is not valid JSON: "),
                 qPrintable(notJson.error().description()));
        QVERIFY(notJson.error().description().contains(u" at offset "));
    }
};

QTEST_APPLESS_MAIN(EnvelopeTest)
#include "tst_envelope.moc"
