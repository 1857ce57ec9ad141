#include "NubraCore/Vocabulary/L10n.h"
#include "NubraCore/Vocabulary/Models.h"
#include "NubraCore/Vocabulary/SpeechLanguage.h"

#include <QJsonDocument>
#include <QLocale>
#include <QRegularExpression>
#include <QSet>
#include <QTest>

namespace {

template <typename E> QStringList rawValues() {
    QStringList values;
    for (E value : allCases<E>())
        values.append(rawValue(value));
    return values;
}

template <typename E> QStringList displayNames() {
    QStringList names;
    for (E value : allCases<E>())
        names.append(displayName(value));
    return names;
}

template <typename E> void checkDisplayNames() {
    L10n::setOverride(u"zh"_qs);
    const QStringList zh = displayNames<E>();
    L10n::setOverride(u"fr"_qs);
    const QStringList other = displayNames<E>();
    L10n::setOverride(u"en"_qs);
    const QStringList en = displayNames<E>();
    QCOMPARE(other, en);
    QCOMPARE(QSet<QString>(en.begin(), en.end()).size(), en.size());
    QCOMPARE(QSet<QString>(zh.begin(), zh.end()).size(), zh.size());
    for (qsizetype i = 0; i < en.size(); ++i)
        QVERIFY2(!en[i].isEmpty() && zh[i] != en[i], qPrintable(en[i]));
}

} // namespace

class VocabularyTest : public QObject {
    Q_OBJECT
private slots:
    void cleanup() { L10n::setOverride(std::nullopt); }

    void casesKeepTheirOrderAndRawValues() {
        QCOMPARE(rawValues<GlossStyle>(), (QStringList{u"plain"_qs, u"academic"_qs, u"coding"_qs,
                                                       u"languageLearning"_qs}));
        QCOMPARE(rawValues<GlossLength>(), (QStringList{u"short"_qs, u"medium"_qs, u"detailed"_qs}));
        QCOMPARE(rawValues<ModelTier>(), (QStringList{u"fast"_qs, u"quality"_qs}));
        QCOMPARE(rawValues<TriggerMode>(), (QStringList{u"onSelection"_qs, u"optionSelection"_qs,
                                                        u"doubleClick"_qs, u"hotkey"_qs}));
        QCOMPARE(rawValues<OptionModifier>(), (QStringList{u"option"_qs, u"command"_qs}));
    }

    // Every case has an English name and a Chinese one of its own; any other language shows English.
    void displayNamesFollowTheInterfaceLanguage() {
        checkDisplayNames<GlossStyle>();
        checkDisplayNames<GlossLength>();
        checkDisplayNames<ModelTier>();
        checkDisplayNames<TriggerMode>();
        checkDisplayNames<OptionModifier>();
    }

    void rawValueConstructionIsExactAndCaseSensitive() {
        QCOMPARE(fromRawValue<GlossStyle>(u"languageLearning"), GlossStyle::languageLearning);
        QCOMPARE(fromRawValue<GlossStyle>(u"language_learning"), std::nullopt);
        QCOMPARE(fromRawValue<GlossStyle>(u"Plain"), std::nullopt);
        QCOMPARE(fromRawValue<GlossLength>(u"SHORT"), std::nullopt);
        QCOMPARE(fromRawValue<ModelTier>(u""), std::nullopt);
        QCOMPARE(fromRawValue<TriggerMode>(u"hotkey "), std::nullopt);
        for (TriggerMode mode : allCases<TriggerMode>())
            QCOMPARE(fromRawValue<TriggerMode>(rawValue(mode)), mode);
        for (GlossLength length : allCases<GlossLength>())
            QCOMPARE(fromRawValue<GlossLength>(rawValue(length)), length);
    }

    void onlyLanguageLearningHasADifferentWireValue() {
        QCOMPARE(wireValue(GlossStyle::languageLearning), u"language_learning"_qs);
        for (GlossStyle style : {GlossStyle::plain, GlossStyle::academic, GlossStyle::coding})
            QCOMPARE(wireValue(style), rawValue(style));
    }

    void requestEncodesWireStrings() {
        const GlossRequest request(u"bank"_qs, u"the river "_qs, u" was steep"_qs, u"Notes"_qs,
                                   GlossStyle::languageLearning, GlossLength::detailed, u"auto"_qs,
                                   ModelTier::quality, u"00000000-0000-0000-0000-0000000000AB"_qs);
        const QJsonObject json = request.toJson();
        const QJsonObject expected{
            {u"selected_text"_qs, u"bank"_qs},     {u"context_before"_qs, u"the river "_qs},
            {u"context_after"_qs, u" was steep"_qs}, {u"source_app"_qs, u"Notes"_qs},
            {u"style"_qs, u"language_learning"_qs}, {u"length"_qs, u"detailed"_qs},
            {u"lang"_qs, u"auto"_qs},               {u"model_tier"_qs, u"quality"_qs},
            {u"request_id"_qs, u"00000000-0000-0000-0000-0000000000AB"_qs},
        };
        QCOMPARE(json, expected);
    }

    void sourceAppIsLeftOutOnlyWhenAbsent() {
        const GlossRequest without(u"x"_qs, {}, {}, std::nullopt, GlossStyle::plain, GlossLength::short_, u"en"_qs,
                                   ModelTier::fast);
        QVERIFY(!without.toJson().contains(u"source_app"));
        QVERIFY(!QJsonDocument(without.toJson()).toJson().contains("null"));

        const GlossRequest empty(u"x"_qs, {}, {}, QString(), GlossStyle::plain, GlossLength::short_, u"en"_qs,
                                 ModelTier::fast);
        QCOMPARE(empty.toJson().value(u"source_app"), QJsonValue(u""_qs));
    }

    void everyRequestGetsAFreshUpperCaseUuid() {
        const QRegularExpression canonical(u"^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$"_qs);
        QSet<QString> seen;
        for (int i = 0; i < 50; ++i) {
            const GlossRequest request(u"same"_qs, {}, {}, std::nullopt, GlossStyle::plain, GlossLength::medium,
                                       u"auto"_qs, ModelTier::fast);
            QVERIFY2(canonical.match(request.requestId()).hasMatch(), qPrintable(request.requestId()));
            seen.insert(request.requestId());
        }
        QCOMPARE(seen.size(), 50);
    }
};

class L10nTest : public QObject {
    Q_OBJECT
private slots:
    void cleanup() { L10n::setOverride(std::nullopt); }

    void firstChineseOrEnglishTagDecides_data() {
        QTest::addColumn<QStringList>("preferred");
        QTest::addColumn<QString>("language");
        QTest::newRow("japanese, chinese, english") << QStringList{u"ja-JP"_qs, u"zh-Hans-CN"_qs, u"en-US"_qs}
                                                    << u"zh"_qs;
        QTest::newRow("french, english, chinese") << QStringList{u"fr-FR"_qs, u"en-GB"_qs, u"zh-Hans"_qs}
                                                  << u"en"_qs;
        QTest::newRow("french and german only") << QStringList{u"fr"_qs, u"de-DE"_qs} << u"en"_qs;
        QTest::newRow("empty list") << QStringList{} << u"en"_qs;
        QTest::newRow("prefix test is case-sensitive") << QStringList{u"ZH-CN"_qs, u"en"_qs} << u"en"_qs;
    }

    void firstChineseOrEnglishTagDecides() {
        QFETCH(QStringList, preferred);
        QFETCH(QString, language);
        QCOMPARE(L10n::languageFrom(preferred), language);
    }

    void overrideWinsAndPicksTheHalf() {
        L10n::setOverride(u"zh"_qs);
        QCOMPARE(L10n::language(), u"zh"_qs);
        QVERIFY(L10n::isZh());
        QCOMPARE(L10n::t(u"Close"_qs, u"关闭"_qs), u"关闭"_qs);

        L10n::setOverride(u"de"_qs);
        QCOMPARE(L10n::language(), u"de"_qs); // returned unchanged
        QVERIFY(!L10n::isZh());
        QCOMPARE(L10n::t(u"Close"_qs, u"关闭"_qs), u"Close"_qs);
    }

    void withoutOverrideTheSystemListDecides() {
        QCOMPARE(L10n::override(), std::nullopt);
        QCOMPARE(L10n::language(), L10n::languageFrom(QLocale::system().uiLanguages()));
    }
};

class SpeechLanguageTest : public QObject {
    Q_OBJECT
private slots:
    void languageComesFromTheLetters_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("locale");
        QTest::newRow("English word") << u"serendipity"_qs << u"en_US"_qs;
        QTest::newRow("Simplified Chinese") << u"我们这个时候"_qs << u"zh_CN"_qs;
        QTest::newRow("Traditional Chinese") << u"我們這個時候"_qs << u"zh_TW"_qs;
        QTest::newRow("Han without telling characters is Simplified") << u"中文"_qs << u"zh_CN"_qs;
        QTest::newRow("Han outweighs Latin") << u"用 Qt 写程序"_qs << u"zh_CN"_qs;
        QTest::newRow("kana makes it Japanese") << u"日本語を読む"_qs << u"ja_JP"_qs;
        QTest::newRow("Hangul") << u"안녕하세요"_qs << u"ko_KR"_qs;
        QTest::newRow("digits and Cyrillic: the interface's") << u"123 привет"_qs << u"fr_FR"_qs;
    }
    void languageComesFromTheLetters() {
        QFETCH(QString, text);
        QFETCH(QString, locale);
        QCOMPARE(SpeechLanguage::forText(text, QLocale(u"fr_FR"_qs)).name(), locale);
    }

    void bestMatchPrefersScriptThenTerritory() {
        const QList<QLocale> engine = {QLocale(u"en_GB"_qs), QLocale(u"zh_HK"_qs), QLocale(u"en_US"_qs),
                                       QLocale(u"zh_CN"_qs)};
        QCOMPARE(SpeechLanguage::bestMatch(QLocale(u"en_US"_qs), engine), QLocale(u"en_US"_qs));
        QCOMPARE(SpeechLanguage::bestMatch(QLocale(u"en_AU"_qs), engine), QLocale(u"en_GB"_qs));
        // Hong Kong writes Traditional: it beats the mainland for Taiwanese text.
        QCOMPARE(SpeechLanguage::bestMatch(QLocale(u"zh_TW"_qs), engine), QLocale(u"zh_HK"_qs));
        QCOMPARE(SpeechLanguage::bestMatch(QLocale(u"zh_TW"_qs), {QLocale(u"zh_CN"_qs)}), QLocale(u"zh_CN"_qs));
        QCOMPARE(SpeechLanguage::bestMatch(QLocale(u"ja_JP"_qs), engine), std::nullopt);
    }
};

int main(int argc, char** argv) {
    int status = 0;
    VocabularyTest vocabulary;
    status |= QTest::qExec(&vocabulary, argc, argv);
    L10nTest l10n;
    status |= QTest::qExec(&l10n, argc, argv);
    SpeechLanguageTest speech;
    status |= QTest::qExec(&speech, argc, argv);
    return status;
}

#include "tst_vocabulary.moc"
