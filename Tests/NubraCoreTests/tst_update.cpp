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
        QTest::newRow("plain") << QStringLiteral("1.2.3") << Components{1, 2, 3};
        QTest::newRow("blanks and v") << QStringLiteral(" \n\tv1.20 \r\n") << Components{1, 20};
        QTest::newRow("every leading v") << QStringLiteral("vV2") << Components{2};
        QTest::newRow("v after blank is not leading") << QStringLiteral("v v1") << Components{0};
        QTest::newRow("empty pieces dropped") << QStringLiteral(".1..2.") << Components{1, 2};
        QTest::newRow("empty") << QString() << Components{};
        QTest::newRow("only v") << QStringLiteral("vVv") << Components{};
        QTest::newRow("pre-release") << QStringLiteral("1.2.3-beta.1") << Components{1, 2, 3, 1};
        QTest::newRow("build suffix") << QStringLiteral("1.2.3+build5") << Components{1, 2, 3};
        QTest::newRow("rc glued") << QStringLiteral("2.0rc1") << Components{2, 0};
        QTest::newRow("letter first") << QStringLiteral("1.x7") << Components{1, 0};
        QTest::newRow("leading zeros") << QStringLiteral("01.007") << Components{1, 7};
        QTest::newRow("largest int64") << QStringLiteral("9223372036854775807.1") << Components{max, 1};
        QTest::newRow("int64 overflow") << QStringLiteral("9223372036854775808.1") << Components{0, 1};
        QTest::newRow("full-width digit") << QStringLiteral("１.2") << Components{0, 2};
        QTest::newRow("mixed with arabic-indic digit") << QStringLiteral("12٣.4") << Components{0, 4};
        QTest::newRow("superscript counts as a number") << QStringLiteral("3²") << Components{0};
        QTest::newRow("combining mark joins the digit") << QStringLiteral("1\u0301.2") << Components{0, 2};
        QTest::newRow("non-number stops the prefix") << QStringLiteral("7é") << Components{7};
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
        QTest::newRow("10 beats 9") << QStringLiteral("1.2.10") << QStringLiteral("1.2.9") << true;
        QTest::newRow("missing zero") << QStringLiteral("1.2") << QStringLiteral("1.2.0") << false;
        QTest::newRow("extra component") << QStringLiteral("1.2.0.1") << QStringLiteral("1.2") << true;
        QTest::newRow("prefix and blanks") << QStringLiteral("v1.3") << QStringLiteral("  1.2 \n") << true;
        QTest::newRow("equal") << QStringLiteral("2.0.0") << QStringLiteral("v2") << false;
        QTest::newRow("suffix ignored") << QStringLiteral("1.2.3-beta") << QStringLiteral("1.2.3") << false;
        QTest::newRow("empty candidate") << QString() << QStringLiteral("0.0.0") << false;
        QTest::newRow("empty reference") << QStringLiteral("1") << QString() << true;
        QTest::newRow("first difference decides")
            << QStringLiteral("2.0.0") << QStringLiteral("1.9.9") << true;
        QTest::newRow("unreadable reads as zero") << QStringLiteral("x7") << QStringLiteral("0") << false;
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
                   "Nubra.zip\",\"sha256\":\"ABC\",\"signature\":\"c2ln\",\"size\":12}"));
        QVERIFY(full);
        const UpdateManifest expected{true,
                                      QStringLiteral("1.4.0"),
                                      QStringLiteral("n"),
                                      QStringLiteral("https://example.com/Nubra.zip"),
                                      QStringLiteral("ABC"),
                                      QStringLiteral("c2ln")};
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
        QTest::newRow("zh interface") << QStringLiteral("zh") << std::optional<QString>(both)
                                      << std::optional<QString>(QStringLiteral("修复"));
        QTest::newRow("en interface") << QStringLiteral("en") << std::optional<QString>(both)
                                      << std::optional<QString>(QStringLiteral("Fixes"));
        QTest::newRow("other language code")
            << QStringLiteral("fr") << std::optional<QString>(QStringLiteral(R"({"fr":"F","en":"E"})"))
            << std::optional<QString>(QStringLiteral("F"));
        QTest::newRow("falls back to en") << QStringLiteral("zh") << std::optional<QString>(onlyEn)
                                          << std::optional<QString>(QStringLiteral("Fixes"));
        QTest::newRow("no usable member")
            << QStringLiteral("en") << std::optional<QString>(onlyFr) << std::optional<QString>(onlyFr);
        QTest::newRow("non-text member")
            << QStringLiteral("zh") << std::optional<QString>(nonText) << std::optional<QString>(nonText);
        QTest::newRow("plain text") << QStringLiteral("zh")
                                    << std::optional<QString>(QStringLiteral("Bug fixes."))
                                    << std::optional<QString>(QStringLiteral("Bug fixes."));
        QTest::newRow("array") << QStringLiteral("en") << std::optional<QString>(QStringLiteral(R"(["en"])"))
                               << std::optional<QString>(QStringLiteral(R"(["en"])"));
        QTest::newRow("absent") << QStringLiteral("en") << none << none;
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
        const QString bundle = dir.path() + QStringLiteral("/opt/Nubra");
        writeExecutable(bundle + QStringLiteral("/bin/nubra"));
        writeExecutable(bundle + QStringLiteral("/bin/nubra-glossd"));
        const QString canonical = QFileInfo(bundle).canonicalFilePath();
        QCOMPARE(Installation::of(bundle + QStringLiteral("/bin/nubra")),
                 (Installation{Kind::bundle, canonical}));

        // A link on PATH leads to the bundle it points into.
        QDir().mkpath(dir.path() + QStringLiteral("/bin"));
        QVERIFY(
            QFile::link(bundle + QStringLiteral("/bin/nubra"), dir.path() + QStringLiteral("/bin/nubra")));
        QCOMPARE(Installation::of(dir.path() + QStringLiteral("/bin/nubra")).folder, canonical);

        // Without the service beside it, or in a folder of another name, it is not a release bundle.
        writeExecutable(dir.path() + QStringLiteral("/build/bin/nubra"));
        writeExecutable(dir.path() + QStringLiteral("/build/bin/nubra-glossd"));
        QCOMPARE(Installation::of(dir.path() + QStringLiteral("/build/bin/nubra")).kind, Kind::other);
        QVERIFY(QFile::remove(bundle + QStringLiteral("/bin/nubra-glossd")));
        QCOMPARE(Installation::of(bundle + QStringLiteral("/bin/nubra")).kind, Kind::other);

        QCOMPARE(Installation::of(QStringLiteral("/usr/bin/env")).kind, Kind::packageManaged);
        QCOMPARE(Installation::of(dir.path() + QStringLiteral("/missing")).kind, Kind::other);
    }
};

QTEST_APPLESS_MAIN(UpdateTest)
#include "tst_update.moc"
