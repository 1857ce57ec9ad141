#include "NubraApp/Shell/CommandLine.h"
#include "NubraApp/Shell/LaunchMessage.h"

#include <QtTest>

using namespace Qt::StringLiterals;
using Action = LaunchRequest::Action;
using SettingsTab = SettingsTab;
using Status = LaunchMessage::Decoded::Status;

namespace {

LaunchRequest request(Action action, std::optional<SettingsTab> tab = std::nullopt, bool dev = false,
                      bool replace = false) {
    LaunchRequest result;
    result.action = action;
    result.settingsTab = tab;
    result.dev = dev;
    result.replace = replace;
    return result;
}

QByteArray frame(quint8 version, const QByteArray& payload) {
    QByteArray bytes("NBRQ");
    bytes.append(char(version));
    bytes.append(char(payload.size() >> 8));
    bytes.append(char(payload.size() & 0xff));
    return bytes + payload;
}

} // namespace

class CommandLineTest : public QObject {
    Q_OBJECT

private slots:
    void parsesRequests_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<LaunchRequest>("expected");

        QTest::newRow("plain launch") << QStringList{} << request(Action::reopen);
        QTest::newRow("history") << QStringList{u"--history"_s} << request(Action::history);
        QTest::newRow("settings") << QStringList{u"--settings"_s} << request(Action::settings);
        QTest::newRow("settings tab")
            << QStringList{u"--settings"_s, u"privacy"_s} << request(Action::settings, SettingsTab::privacy);
        QTest::newRow("settings=tab")
            << QStringList{u"--settings=about"_s} << request(Action::settings, SettingsTab::about);
        QTest::newRow("settings then flag")
            << QStringList{u"--settings"_s, u"--dev"_s} << request(Action::settings, std::nullopt, true);
        QTest::newRow("pause") << QStringList{u"--pause"_s} << request(Action::pause);
        QTest::newRow("lookup") << QStringList{u"--lookup"_s} << request(Action::lookup);
        QTest::newRow("ocr") << QStringList{u"--ocr"_s} << request(Action::ocr);
        QTest::newRow("quit") << QStringList{u"--quit"_s} << request(Action::quit);
        QTest::newRow("dev") << QStringList{u"--dev"_s} << request(Action::reopen, std::nullopt, true);
        // The restart repeats the old arguments after its own --replace, which may already be there.
        QTest::newRow("restart of a restart")
            << QStringList{u"--replace"_s, u"--replace"_s, u"--dev"_s, u"--settings"_s, u"gloss"_s}
            << request(Action::settings, SettingsTab::gloss, true, true);
        QTest::newRow("same action twice")
            << QStringList{u"--pause"_s, u"--pause"_s} << request(Action::pause);
    }

    void parsesRequests() {
        QFETCH(QStringList, arguments);
        QFETCH(LaunchRequest, expected);
        const CommandLine::Parsed parsed = CommandLine::parse(arguments);
        QVERIFY2(!parsed.exit, qPrintable(parsed.exit ? parsed.exit->text : QString()));
        QCOMPARE(parsed.request, expected);
    }

    void refusesBadLines_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("message");

        QTest::newRow("unknown option") << QStringList{u"--histroy"_s} << u"unknown option '--histroy'"_s;
        QTest::newRow("positional") << QStringList{u"hello"_s} << u"unexpected argument 'hello'"_s;
        QTest::newRow("unknown tab") << QStringList{u"--settings"_s, u"network"_s}
                                     << u"unknown settings tab 'network'"_s;
        QTest::newRow("empty tab") << QStringList{u"--settings="_s} << u"unknown settings tab ''"_s;
        QTest::newRow("two actions") << QStringList{u"--history"_s, u"--pause"_s}
                                     << u"choose one action, not both --history and --pause"_s;
        QTest::newRow("two tabs") << QStringList{u"--settings"_s, u"gloss"_s, u"--settings=about"_s}
                                  << u"not both --settings gloss and --settings about"_s;
        QTest::newRow("value on a switch") << QStringList{u"--pause=1"_s} << u"--pause takes no value"_s;
        QTest::newRow("two lookups") << QStringList{u"--lookup"_s, u"--ocr"_s}
                                     << u"choose one action, not both --lookup and --ocr"_s;
        QTest::newRow("replace and quit")
            << QStringList{u"--replace"_s, u"--quit"_s} << u"--replace cannot be combined with --quit"_s;
        QTest::newRow("error beats help") << QStringList{u"--help"_s, u"-x"_s} << u"unknown option '-x'"_s;
    }

    void refusesBadLines() {
        QFETCH(QStringList, arguments);
        QFETCH(QString, message);
        const CommandLine::Parsed parsed = CommandLine::parse(arguments);
        QVERIFY(parsed.exit);
        QCOMPARE(parsed.exit->code, CommandLine::usageExitCode);
        QVERIFY2(parsed.exit->text.startsWith(u"nubra: "), qPrintable(parsed.exit->text));
        QVERIFY2(parsed.exit->text.contains(message), qPrintable(parsed.exit->text));
        // One line, so a script's log stays readable.
        QCOMPARE(parsed.exit->text.count(u'\n'), 1);
        QVERIFY(parsed.exit->text.endsWith(u'\n'));
    }

    void helpAndVersionAreAnsweredLocally() {
        const auto help = CommandLine::parse({u"--dev"_s, u"--help"_s});
        QVERIFY(help.exit);
        QCOMPARE(help.exit->code, 0);
        for (const char* option :
             {"--history", "--settings [TAB]", "--pause", "--resume", "--ocr", "--quit", "--dev", "--replace",
              "--help", "--version", "general, gloss, privacy or about"})
            QVERIFY2(help.exit->text.contains(QLatin1String(option)), option);
        QCOMPARE(CommandLine::parse({u"-h"_s}).exit, help.exit);
        // --version: read by update_desktop.py from the installed release.
    }

    void messagesRoundTrip() {
        // dev and replace concern the starting process only, so they never travel.
        const QList<LaunchRequest> requests = {
            request(Action::reopen),
            request(Action::history),
            request(Action::settings),
            request(Action::settings, SettingsTab::general),
            request(Action::settings, SettingsTab::about),
            request(Action::pause),
            request(Action::resume),
            request(Action::ocr),
            request(Action::quit),
        };
        for (const LaunchRequest& sent : requests) {
            const QByteArray bytes = LaunchMessage::encode(sent);
            QVERIFY(bytes.size() <= LaunchMessage::maxFrame);
            const LaunchMessage::Decoded decoded = LaunchMessage::decode(bytes);
            QCOMPARE(decoded.status, Status::complete);
            QCOMPARE(decoded.request, sent);
            // Every strict prefix is only a request not yet whole.
            for (qsizetype n = 0; n < bytes.size(); ++n)
                QCOMPARE(LaunchMessage::decode(QByteArrayView(bytes).first(n)).status, Status::incomplete);
        }
    }

    void messagesRefuseMalformedInput_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<Status>("status");

        const QByteArray history = LaunchMessage::encode(request(Action::history));
        QTest::newRow("wrong magic at once") << QByteArray("GET ") << Status::invalid;
        QTest::newRow("other version") << frame(2, R"({"action":"history"})") << Status::unsupportedVersion;
        QTest::newRow("empty payload") << frame(1, {}) << Status::invalid;
        QTest::newRow("oversized length") << QByteArray("NBRQ\x01\x04\x01", 7) << Status::invalid;
        QTest::newRow("trailing bytes") << history + 'x' << Status::invalid;
        QTest::newRow("not json") << frame(1, "action=history") << Status::invalid;
        QTest::newRow("unknown action") << frame(1, R"({"action":"format"})") << Status::invalid;
        QTest::newRow("tab without settings")
            << frame(1, R"({"action":"pause","tab":"gloss"})") << Status::invalid;
        QTest::newRow("unknown key") << frame(1, R"({"action":"quit","path":"/"})") << Status::invalid;
        QTest::newRow("longest allowed")
            << frame(1, R"({"action":"quit"})" + QByteArray(1007, ' ')) << Status::complete;
    }

    void messagesRefuseMalformedInput() {
        QFETCH(QByteArray, bytes);
        QFETCH(Status, status);
        QCOMPARE(LaunchMessage::decode(bytes).status, status);
    }
};

QTEST_APPLESS_MAIN(CommandLineTest)
#include "tst_commandline.moc"
