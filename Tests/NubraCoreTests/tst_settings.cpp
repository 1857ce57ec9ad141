#include "NubraCore/History/HistoryFile.h"
#include "NubraCore/Settings/AppSettings.h"
#include "NubraCore/Settings/SettingsBindings.h"
#include "TestSupport/DebugLogCapture.h"
#include "TestSupport/FileMode.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

namespace {

// Remembers the order in which keys are written.
class RecordingDefaults final : public Defaults {
public:
    QVariant value(const QString& key) const override { return m_store.value(key); }
    void setValue(const QString& key, const QVariant& value) override {
        writes.append(key);
        m_store.setValue(key, value);
    }
    void remove(const QString& key) override { m_store.remove(key); }
    bool contains(const QString& key) const override { return m_store.contains(key); }

    QStringList writes;

private:
    InMemoryDefaults m_store;
};

// The setting stored under `key`, as the settings object holds it.
QVariant readBack(const AppSettings& settings, const QString& key) {
    if (key == u"style")
        return rawValue(settings.style());
    if (key == u"length")
        return rawValue(settings.length());
    if (key == u"contextRadius")
        return settings.contextRadius();
    if (key == u"modelTier")
        return rawValue(settings.modelTier());
    if (key == u"autoHide")
        return settings.autoHide();
    if (key == u"optionModifier")
        return rawValue(settings.optionModifier());
    return rawValue(settings.triggerMode());
}

} // namespace

class SettingsTest : public QObject {
    Q_OBJECT
private slots:
    // Values of the right key but the wrong shape (a wire value, another case) are ignored when read.
    void unusableValuesKeepDefaults_data() {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("stored");
        QTest::newRow("style wire value") << "style" << QVariant("language_learning");
        QTest::newRow("length in another case") << "length" << QVariant("Detailed");
        QTest::newRow("unknown length") << "length" << QVariant("huge");
        QTest::newRow("zero radius") << "contextRadius" << QVariant(0);
        QTest::newRow("negative radius") << "contextRadius" << QVariant(-5);
        QTest::newRow("text radius") << "contextRadius" << QVariant("wide");
        QTest::newRow("unknown tier") << "modelTier" << QVariant("turbo");
        QTest::newRow("unreadable switch") << "autoHide" << QVariant("maybe");
        QTest::newRow("unknown trigger") << "trigger" << QVariant("tripleClick");
        QTest::newRow("modifier by its key name") << "optionModifier" << QVariant("super");
    }

    void unusableValuesKeepDefaults() {
        QFETCH(QString, key);
        QFETCH(QVariant, stored);
        InMemoryDefaults defaults;
        const QVariant builtIn = readBack(AppSettings(defaults), key);
        defaults.setValue(key, stored);
        AppSettings settings(defaults);
        settings.loadPersisted();
        QCOMPARE(readBack(settings, key), builtIn);
    }

    // A new launch over the same settings file restores exactly the stored settings; the rest starts over.
    void persistRoundTripsThroughTheSettingsFile() {
        QTemporaryDir dir;
        const QString file = dir.filePath("Nubra.conf");
        {
            SettingsDefaults defaults(file);
            AppSettings settings(defaults);
            settings.setStyle(GlossStyle::languageLearning);
            settings.setLength(GlossLength::short_);
            settings.setContextRadius(80);
            settings.setModelTier(ModelTier::quality);
            settings.setAutoHide(false);
            settings.setRecordHistory(false);
            settings.setOutputLang("ja");
            settings.setTriggerMode(TriggerMode::doubleClick);
            settings.setOptionModifier(OptionModifier::command);
            settings.setRemoteDesktopCopy(true);
            settings.setAnkiDeck(" Japanese::Vocab ");
            settings.setAnkiNoteType("Basic (and reversed card)");
            settings.setPaused(true);
            settings.setHistoryLimit(5);
            settings.setExcludedApps({});
            settings.persist();
        }
        SettingsDefaults defaults(file);
        AppSettings next(defaults);
        next.loadPersisted();
        QCOMPARE(next.style(), GlossStyle::languageLearning);
        QCOMPARE(next.length(), GlossLength::short_);
        QCOMPARE(next.contextRadius(), 80);
        QCOMPARE(next.modelTier(), ModelTier::quality);
        QVERIFY(!next.autoHide());
        QVERIFY(!next.recordHistory());
        QCOMPARE(next.outputLang(), QStringLiteral("ja"));
        QCOMPARE(next.triggerMode(), TriggerMode::doubleClick);
        QCOMPARE(next.optionModifier(), OptionModifier::command);
        QVERIFY(next.remoteDesktopCopy());
        QCOMPARE(next.ankiDeck(), QStringLiteral("Japanese::Vocab"));
        QCOMPARE(next.ankiNoteType(), QStringLiteral("Basic (and reversed card)"));
        // A blank choice is the default again.
        next.setAnkiDeck(" ");
        QCOMPARE(next.ankiDeck(), QStringLiteral("Nubra"));
        QVERIFY(!next.paused());
        QCOMPARE(next.historyLimit(), 100);
        QCOMPARE(next.excludedApps(), SelectionGate::defaultExcludedApps());
    }

    void bindingsSelectAndSave() {
        RecordingDefaults defaults;
        AppSettings settings(defaults);
        auto coding = styleBinding(settings, GlossStyle::coding);
        auto plain = styleBinding(settings, GlossStyle::plain);
        QVERIFY(plain.get() && !coding.get());

        // Choosing a checked item turns it off, which does nothing.
        plain.set(!plain.get());
        QVERIFY(plain.get());
        QVERIFY(defaults.writes.isEmpty());
        coding.set(false);
        QCOMPARE(settings.style(), GlossStyle::plain);
        QVERIFY(defaults.writes.isEmpty());

        coding.set(true);
        QCOMPARE(settings.style(), GlossStyle::coding);
        QVERIFY(coding.get() && !plain.get());
        QCOMPARE(defaults.value("style"), QVariant("coding"));

        lengthBinding(settings, GlossLength::detailed).set(true);
        QCOMPARE(defaults.value("length"), QVariant("detailed"));
        modelTierBinding(settings, ModelTier::quality).set(true);
        QCOMPARE(defaults.value("modelTier"), QVariant("quality"));
        QVERIFY(modelTierBinding(settings, ModelTier::quality).get());

        auto english = outputLangBinding(settings, "en");
        QVERIFY(!english.get());
        QVERIFY(outputLangBinding(settings, "auto").get());
        english.set(true);
        QVERIFY(english.get());
        QCOMPARE(defaults.value("outputLang"), QVariant("en"));
    }

    // The history's folder is created private, and an existing one made so.
    void historyPathUnderDataHome() {
        QTemporaryDir dir;
        const QByteArray previous = qgetenv("XDG_DATA_HOME");
        qputenv("XDG_DATA_HOME", dir.path().toUtf8());
        const QString folder = dir.path() + "/Nubra";
        const QString path = HistoryFile::defaultPath();
        const int freshMode = fileMode(folder);
        const bool loosened = setFileMode(folder, 0755);
        const QString again = HistoryFile::defaultPath();
        qputenv("XDG_DATA_HOME", previous);
        QCOMPARE(path, folder + "/history.sqlite3");
        QCOMPARE(freshMode, 0700);
        QVERIFY(loosened);
        QCOMPARE(again, path);
        QCOMPARE(fileMode(folder), 0700);
    }

    // The settings may hold an older version's credentials: the file and the application's folder are
    // private when new, and become private when an older version left them readable.
    void settingsFilesAreForTheOwnerOnly() {
        QTemporaryDir dir;
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, dir.path());
        const QString folder = dir.filePath("Nubra");
        const QString file = dir.filePath("Nubra/Nubra.conf");
        for (const bool existing : {false, true}) {
            if (existing) {
                QVERIFY(setFileMode(folder, 0755));
                QVERIFY(setFileMode(file, 0644));
            }
            SettingsDefaults defaults;
            QCOMPARE(defaults.contains("style"), existing);
            defaults.setValue("style", "academic");
            defaults.sync();
            QCOMPARE(fileMode(folder), 0700);
            QCOMPARE(fileMode(file), 0600);
        }
    }

    void unopenableHistoryFallsBackToMemory() {
        DebugLogCapture log;
        QTemporaryDir dir;
        auto store = HistoryFile::openOrMemory(dir.filePath("no/such/folder/history.sqlite3"));
        QVERIFY(store);
        HistoryRecord record;
        record.createdAt = QDateTime::currentDateTimeUtc();
        record.selectedText = "still works";
        store->insert(record);
        QCOMPARE(store->count(), 1);
        QVERIFY(!QFileInfo::exists(dir.filePath("no")));
        // The failure is dropped: a log line would create the debug log that the start-up line checks.
        QCOMPARE(log.messages(), QStringList());

        auto onDisk = HistoryFile::openOrMemory(dir.filePath("history.sqlite3"));
        QVERIFY(onDisk);
        QVERIFY(QFileInfo::exists(dir.filePath("history.sqlite3")));
    }
};

QTEST_GUILESS_MAIN(SettingsTest)
#include "tst_settings.moc"
