#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Support/Defaults.h"
#include "TestSupport/DebugLogCapture.h"
#include "TestSupport/FileMode.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

#include <thread>
#include <vector>

class DebugLogTest : public QObject {
    Q_OBJECT
private slots:
    void lineHasUtcStampMessageAndLineFeed() {
        const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(-1);
        const QByteArray line = DebugLog::formatLine(u"hotkey: FIRED"_qs);
        const QDateTime after = QDateTime::currentDateTimeUtc().addSecs(1);

        static const QRegularExpression shape(
            u"^(\\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2}) \\+0000 hotkey: FIRED\\n$"_qs);
        const auto match = shape.match(QString::fromUtf8(line));
        QVERIFY2(match.hasMatch(), line.constData());
        QDateTime stamp = QDateTime::fromString(match.captured(1), u"yyyy-MM-dd HH:mm:ss"_qs);
        stamp.setTimeSpec(Qt::UTC);
        QVERIFY(stamp >= before.addMSecs(-before.time().msec()) && stamp <= after);
    }

    void createsThenAppendsInUtf8() {
        DebugLogCapture log;
        QVERIFY(!QFile::exists(log.path()));
        nbDebug(u"first"_qs);
        QVERIFY(QFile::exists(log.path()));
        {
            QFile file(log.path()); // another process writes to the same log
            QVERIFY(file.open(QIODevice::Append));
            file.write("theirs\n");
        }
        nbDebug(u"选区 second"_qs);
        QCOMPARE(log.messages().first(), u"first"_qs);
        QVERIFY(log.raw().contains(" first\ntheirs\n"));
        QVERIFY(log.raw().endsWith(" \xe9\x80\x89\xe5\x8c\xba second\n"));
    }

    void unwritableLocationIsIgnored() {
        DebugLogCapture log;
        DebugLog::setPath(u"/nonexistent-dir/for/sure/nb-debug.log"_qs);
        nbDebug(u"lost quietly"_qs); // must neither throw nor crash
        DebugLog::setPath(log.path());
        nbDebug(u"after"_qs);
        QCOMPARE(log.messages(), QStringList{u"after"_qs});
    }

    void controlCharactersAreEscapedOntoOneLine() {
        DebugLogCapture log;
        nbDebug(u"a\nb\r\x1b]0;title\x07 \x7f\u009b end"_qs);
        QCOMPARE(log.raw().count('\n'), 1);
        QCOMPARE(log.messages(), QStringList{uR"(a\nb\r\x1b]0;title\x07 \x7f\x9b end)"_qs});
    }

    // The log lives in a folder everybody may write to: it is created private, and nothing planted at
    // its path (a link, dangling or not, or a second name of another file) is written through.
    void freshLogIsPrivateAndPlantedPathsAreRefused() {
        DebugLogCapture log;
        nbDebug(u"fresh"_qs);
        QCOMPARE(fileMode(log.path()), 0600);

        QTemporaryDir dir;
        const QString target = dir.filePath(u"target"_qs);
        QVERIFY(QFile(target).open(QIODevice::WriteOnly));
        const auto at = [&](const char* name) {
            return QFile::encodeName(dir.filePath(QString::fromLatin1(name)));
        };
        QCOMPARE(::symlink(QFile::encodeName(target).constData(), at("link").constData()), 0);
        QCOMPARE(::symlink(at("absent").constData(), at("dangling").constData()), 0);
        QCOMPARE(::link(QFile::encodeName(target).constData(), at("second-name").constData()), 0);
        for (const char* planted : {"link", "dangling", "second-name"}) {
            DebugLog::setPath(QFile::decodeName(at(planted)));
            nbDebug(u"through the link"_qs);
            DebugLog::appendUnstamped(u"through the link"_qs);
            QCOMPARE(QFileInfo(target).size(), 0);
            QVERIFY(!QFileInfo::exists(dir.filePath(u"absent"_qs)));
        }
    }

    void concurrentWritersNeverInterleave() {
        DebugLogCapture log;
        nbDebug(u"start"_qs);
        std::vector<std::thread> writers;
        for (int t = 0; t < 4; ++t)
            writers.emplace_back([t] {
                for (int i = 0; i < 100; ++i)
                    nbDebug(u"writer %1 line %2"_qs.arg(t).arg(i));
            });
        for (auto& writer : writers)
            writer.join();
        const QStringList messages = log.messages();
        QCOMPARE(messages.size(), 401);
        static const QRegularExpression whole(u"^(start|writer \\d line \\d+)$"_qs);
        for (const QString& message : messages)
            QVERIFY2(whole.match(message).hasMatch(), qPrintable(message));
    }
};

class DefaultsTest : public QObject {
    Q_OBJECT
private:
    // The same reading rules must hold for memory and for a settings file read back from disk, where
    // everything comes back as text.
    static void write(Defaults& writer) {
        writer.setValue(u"contextRadius"_qs, 350);
        writer.setValue(u"recordHistory"_qs, false);
        writer.setValue(u"style"_qs, u"academic"_qs);
        writer.setValue(u"excludedApps"_qs, QStringList{u"com.agilebits.onepassword"_qs, u"1Password"_qs});
        writer.setValue(u"garbage"_qs, u"not a number"_qs);
    }

    void checkTypedReads(Defaults& reader) {
        QCOMPARE(reader.integer(u"contextRadius"_qs), 350);
        QCOMPARE(reader.boolean(u"recordHistory"_qs), false);
        QCOMPARE(reader.string(u"style"_qs), u"academic"_qs);
        QCOMPARE(reader.stringList(u"excludedApps"_qs),
                 (QStringList{u"com.agilebits.onepassword"_qs, u"1Password"_qs}));
        QCOMPARE(reader.integer(u"garbage"_qs), std::nullopt);
        QCOMPARE(reader.boolean(u"garbage"_qs), std::nullopt);
        QCOMPARE(reader.integer(u"absent"_qs), std::nullopt);
        QCOMPARE(reader.string(u"absent"_qs), std::nullopt);
        QVERIFY(reader.contains(u"style"_qs));
        reader.remove(u"style"_qs);
        QVERIFY(!reader.contains(u"style"_qs));
        QCOMPARE(reader.string(u"style"_qs), std::nullopt);
    }

private slots:
    void inMemoryReadsTyped() {
        InMemoryDefaults defaults;
        write(defaults);
        checkTypedReads(defaults);
    }

    void settingsFileReadsTypedAfterReopening() {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"Nubra.conf"_qs);
        {
            SettingsDefaults writer(path);
            write(writer);
            writer.sync();
        }
        SettingsDefaults reopened(path);
        checkTypedReads(reopened);
    }
};

int main(int argc, char** argv) {
    int status = 0;
    DebugLogTest log;
    status |= QTest::qExec(&log, argc, argv);
    DefaultsTest defaults;
    status |= QTest::qExec(&defaults, argc, argv);
    return status;
}

#include "tst_support.moc"
