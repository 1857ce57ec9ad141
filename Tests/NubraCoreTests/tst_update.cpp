#include "NubraCore/Update/Installation.h"
#include "NubraCore/Update/Semver.h"
#include "NubraCore/Update/UpdateManifest.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

#include <cstdint>
#include <limits>
#include <vector>

using Components = std::vector<std::int64_t>;
Q_DECLARE_METATYPE(Components)

namespace {

QJsonObject object(const char* json) {
    return QJsonDocument::fromJson(json).object();
}

void writeExecutable(const QString& path) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(file.setPermissions(file.permissions() | QFile::ExeOwner));
}

} // namespace

class UpdateTest : public QObject {
    Q_OBJECT
private slots:
    void cleanup() { L10n::setOverride(std::nullopt); }

    void parsesVersions_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<Components>("expected");
        constexpr std::int64_t max = std::numeric_limits<std::int64_t>::max();
        QTest::newRow("plain") << u"1.2.3"_qs << Components{1, 2, 3};
        QTest::newRow("blanks and v") << u" \n\tv1.20 \r\n"_qs << Components{1, 20};
        QTest::newRow("v after blank is not leading") << u"v v1"_qs << Components{0};
        QTest::newRow("empty pieces dropped") << u".1..2."_qs << Components{1, 2};
        QTest::newRow("empty") << QString() << Components{};
        QTest::newRow("only v") << u"vVv"_qs << Components{};
        QTest::newRow("pre-release") << u"1.2.3-beta.1"_qs << Components{1, 2, 3, 1};
        QTest::newRow("letter first") << u"1.x7"_qs << Components{1, 0};
        QTest::newRow("leading zeros") << u"01.007"_qs << Components{1, 7};
        QTest::newRow("largest int64") << u"9223372036854775807.1"_qs << Components{max, 1};
        QTest::newRow("int64 overflow") << u"9223372036854775808.1"_qs << Components{0, 1};
        QTest::newRow("mixed with arabic-indic digit") << u"12٣.4"_qs << Components{0, 4};
        QTest::newRow("combining mark joins the digit") << u"1\u0301.2"_qs << Components{0, 2};
        QTest::newRow("non-number stops the prefix") << u"7é"_qs << Components{7};
    }
    void parsesVersions() {
        QFETCH(QString, text);
        QFETCH(Components, expected);
        QCOMPARE(Semver::parse(text), expected);
    }

    void comparesVersions_data() {
        QTest::addColumn<QString>("candidate");
        QTest::addColumn<QString>("reference");
        QTest::addColumn<bool>("newer");
        QTest::newRow("10 beats 9") << u"1.2.10"_qs << u"1.2.9"_qs << true;
        QTest::newRow("missing zero") << u"1.2"_qs << u"1.2.0"_qs << false;
        QTest::newRow("extra component") << u"1.2.0.1"_qs << u"1.2"_qs << true;
        QTest::newRow("prefix and blanks") << u"v1.3"_qs << u"  1.2 \n"_qs << true;
        QTest::newRow("equal") << u"2.0.0"_qs << u"v2"_qs << false;
        QTest::newRow("empty reference") << u"1"_qs << QString() << true;
    }
    void comparesVersions() {
        QFETCH(QString, candidate);
        QFETCH(QString, reference);
        QFETCH(bool, newer);
        QCOMPARE(Semver::isNewer(candidate, reference), newer);
        QVERIFY(!Semver::isNewer(reference, candidate)); // never both ways; the rows not newer are equal
    }

    void decodesManifests() {
        // Plain literal for the URL: moc misreads "//" inside raw strings as a comment.
        const auto full = UpdateManifest::fromJson(
            object(R"({"available":true,"version":"1.4.0","notes":"n",)"
                   "\"url\":\"https://example.com/"
                   "Nubra.zip\",\"sha256\":\"ABC\",\"signature\":\"c2ln\",\"version_signature\":\"dg==\","
                   "\"size\":12}"));
        QVERIFY(full);
        const UpdateManifest expected{true,      u"1.4.0"_qs, u"n"_qs,   u"https://example.com/Nubra.zip"_qs,
                                      u"ABC"_qs, u"c2ln"_qs,  u"dg=="_qs};
        QCOMPARE(full.value(), expected);

        const auto bare = UpdateManifest::fromJson(object(R"({"available":false,"version":null})"));
        QVERIFY(bare);
        QCOMPARE(bare.value(), UpdateManifest{});
    }

    void refusesManifests_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<DecodingError>("error");
        const auto missing = [](const char* key) {
            return DecodingError::missingKey(QString::fromLatin1(key));
        };
        const auto mismatch = [](const char* key, const char* type) {
            return DecodingError::typeMismatch(QString::fromLatin1(key), QString::fromLatin1(type));
        };
        QTest::newRow("no available") << QByteArray(R"({"version":"1"})") << missing("available");
        QTest::newRow("available as text")
            << QByteArray(R"({"available":"true"})") << mismatch("available", "a boolean");
        QTest::newRow("version number")
            << QByteArray(R"({"available":true,"version":2})") << mismatch("version", "a string");
        QTest::newRow("notes object")
            << QByteArray(R"({"available":true,"notes":{"en":"x"}})") << mismatch("notes", "a string");
        QTest::newRow("sha256 array")
            << QByteArray(R"({"available":true,"sha256":[]})") << mismatch("sha256", "a string");
    }
    void refusesManifests() {
        QFETCH(QByteArray, json);
        QFETCH(DecodingError, error);
        const auto manifest = UpdateManifest::fromJson(QJsonDocument::fromJson(json).object());
        QVERIFY(!manifest);
        QCOMPARE(manifest.error(), error);
    }

    void localizesNotes_data() {
        QTest::addColumn<QString>("language");
        QTest::addColumn<std::optional<QString>>("notes");
        QTest::addColumn<std::optional<QString>>("expected");
        const QString both = QStringLiteral(R"({"zh":"修复","en":"Fixes"})");
        const QString onlyFr = QStringLiteral(R"({"fr":"Corrections"})");
        const QString onlyEn = QStringLiteral(R"({"en":"Fixes"})");
        const QString nonText = QStringLiteral(R"({"zh":"修复","en":1})");
        const std::optional<QString> none;
        QTest::newRow("zh interface")
            << u"zh"_qs << std::optional<QString>(both) << std::optional<QString>(u"修复"_qs);
        QTest::newRow("other language code")
            << u"fr"_qs << std::optional<QString>(QStringLiteral(R"({"fr":"F","en":"E"})"))
            << std::optional<QString>(u"F"_qs);
        QTest::newRow("falls back to en")
            << u"zh"_qs << std::optional<QString>(onlyEn) << std::optional<QString>(u"Fixes"_qs);
        QTest::newRow("no usable member")
            << u"en"_qs << std::optional<QString>(onlyFr) << std::optional<QString>(onlyFr);
        QTest::newRow("non-text member")
            << u"zh"_qs << std::optional<QString>(nonText) << std::optional<QString>(nonText);
        QTest::newRow("plain text") << u"zh"_qs << std::optional<QString>(u"Bug fixes."_qs)
                                    << std::optional<QString>(u"Bug fixes."_qs);
        QTest::newRow("array") << u"en"_qs << std::optional<QString>(QStringLiteral(R"(["en"])"))
                               << std::optional<QString>(QStringLiteral(R"(["en"])"));
        QTest::newRow("absent") << u"en"_qs << none << none;
    }
    void localizesNotes() {
        QFETCH(QString, language);
        QFETCH(std::optional<QString>, notes);
        QFETCH(std::optional<QString>, expected);
        L10n::setOverride(language);
        UpdateManifest manifest;
        manifest.notes = notes;
        QCOMPARE(manifest.localizedNotes(), expected);
    }

    void findsTheInstallation() {
        using Kind = Installation::Kind;
        QTemporaryDir dir;
        const QString bundle = dir.path() + u"/opt/Nubra"_qs;
        writeExecutable(bundle + u"/bin/nubra"_qs);
        writeExecutable(bundle + u"/bin/nubra-glossd"_qs);
        const QString canonical = QFileInfo(bundle).canonicalFilePath();
        QCOMPARE(Installation::of(bundle + u"/bin/nubra"_qs), (Installation{Kind::bundle, canonical}));

        // A link on PATH leads to the bundle it points into.
        QDir().mkpath(dir.path() + u"/bin"_qs);
        QVERIFY(QFile::link(bundle + u"/bin/nubra"_qs, dir.path() + u"/bin/nubra"_qs));
        QCOMPARE(Installation::of(dir.path() + u"/bin/nubra"_qs).folder, canonical);

        // Without the service beside it, or in a folder of another name, it is not a release bundle.
        writeExecutable(dir.path() + u"/build/bin/nubra"_qs);
        writeExecutable(dir.path() + u"/build/bin/nubra-glossd"_qs);
        QCOMPARE(Installation::of(dir.path() + u"/build/bin/nubra"_qs).kind, Kind::other);
        QVERIFY(QFile::remove(bundle + u"/bin/nubra-glossd"_qs));
        QCOMPARE(Installation::of(bundle + u"/bin/nubra"_qs).kind, Kind::other);

        QCOMPARE(Installation::of(u"/usr/bin/env"_qs).kind, Kind::packageManaged);
        QCOMPARE(Installation::of(dir.path() + u"/missing"_qs).kind, Kind::other);
    }
};

QTEST_APPLESS_MAIN(UpdateTest)
#include "tst_update.moc"
