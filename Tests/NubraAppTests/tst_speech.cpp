// Reading aloud through a real speech-dispatcher with espeak-ng, started by the test in a private
// runtime folder. There is no sound card here: the module pipes espeak-ng into a player that plays into
// nothing at real speed and logs the voice it was given.

#include "AppTestKit.h"
#include "NubraApp/Foundation/Pronouncer.h"
#include "NubraApp/History/HistoryView.h"
#include "NubraApp/Overlay/CardView.h"
#include "NubraApp/Overlay/CardWindow.h"
#include "NubraApp/Overlay/SpeakerButton.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "OverlayTestKit.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QListView>
#include <QProcess>
#include <QStandardPaths>
#include <QTextToSpeech>

namespace {

const QString longText = u"Reading this sentence aloud takes a few seconds, long enough to be cut short."_qs;

// speech-dispatcher with one module: espeak-ng into the null player.
class SpeechServer {
public:
    // Why the server cannot run here; empty when it runs.
    QString start() {
        for (const char* program : {"speech-dispatcher", "espeak-ng"}) {
            if (QStandardPaths::findExecutable(QString::fromLatin1(program)).isEmpty())
                return QString::fromLatin1(program) + u" is not installed"_qs;
        }
        if (!QTextToSpeech::availableEngines().contains(u"speechd"_qs))
            return u"Qt's speechd plug-in is not installed"_qs;
        const QString socket = m_dir.filePath(u"speechd.sock"_qs);
        // The module pipes audio itself; speech-dispatcher still opens an output of its own, and only
        // libao's failure here (no sound card) is not fatal: pulse and alsa abort the start.
        write(u"speechd.conf"_qs, u"LogDir \"%1\"\n"
                                  u"AudioOutputMethod \"libao\"\n"
                                  u"AddModule \"espeak-ng-null\" \"sd_generic\" \"espeak-ng-null.conf\"\n"
                                  u"DefaultModule \"espeak-ng-null\"\n"_qs.arg(m_dir.path()));
        write(u"modules/espeak-ng-null.conf"_qs,
              u"GenericExecuteSynth \"printf %s \\'$DATA\\' | espeak-ng -v $VOICE --stdin --stdout | "
              u"%1 %2 %3 $VOICE\"\n"
              u"AddVoice \"en\" \"MALE1\" \"en-us\"\n"
              // As espeak-ng's own module reports Mandarin: a language code QLocale does not know.
              u"AddVoice \"cmn\" \"MALE1\" \"cmn\"\n"_qs.arg(
                  QString::fromUtf8(NUBRA_PYTHON), QString::fromUtf8(NUBRA_SPEECH_PLAYER), playedLog()));
        m_server.setProgram(u"speech-dispatcher"_qs);
        m_server.setArguments({u"--run-single"_qs, u"--timeout"_qs, u"0"_qs, u"--config-dir"_qs, m_dir.path(),
                               u"--socket-path"_qs, socket, u"--log-dir"_qs, m_dir.path(), u"--pid-file"_qs,
                               m_dir.filePath(u"speechd.pid"_qs)});
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"XDG_RUNTIME_DIR"_qs, m_dir.path());
        m_server.setProcessEnvironment(environment);
        m_server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_server.start();
        if (!m_server.waitForStarted(5000))
            return u"speech-dispatcher does not start: "_qs + m_server.errorString();
        QElapsedTimer waited;
        waited.start();
        while (!QFile::exists(socket) && waited.elapsed() < 10000 && m_server.state() == QProcess::Running)
            QTest::qWait(20);
        if (!QFile::exists(socket))
            return u"speech-dispatcher opened no socket"_qs;
        qputenv("SPEECHD_ADDRESS", "unix_socket:" + socket.toUtf8());
        return {};
    }

    ~SpeechServer() {
        if (m_server.state() != QProcess::NotRunning) {
            m_server.terminate();
            if (!m_server.waitForFinished(5000))
                m_server.kill();
            m_server.waitForFinished(2000);
        }
    }

    QString playedLog() const { return m_dir.filePath(u"played.log"_qs); }
    // "<voice> <seconds>" for every text the player finished.
    QStringList played() const {
        QFile log(playedLog());
        if (!log.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(log.readAll()).split(u'\n', Qt::SkipEmptyParts);
    }

private:
    void write(const QString& name, const QString& text) {
        QDir(m_dir.path()).mkpath(QFileInfo(m_dir.filePath(name)).path());
        QFile file(m_dir.filePath(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(text.toUtf8());
    }

    QTemporaryDir m_dir;
    QProcess m_server;
};

using EngineState = Pronouncer::EngineState;

} // namespace

class SpeechTest : public QObject {
    Q_OBJECT

    SpeechServer m_server;
    std::unique_ptr<Pronouncer> m_pronouncer;

    // A card showing an explanation of `text`.
    static SpeakerButton* showCard(OverlayTestKit& kit, const QString& text) {
        kit.answer({sse::done(u"Gloss"_qs, u"Meaning"_qs)});
        kit.trigger(text);
        [&] { QTRY_VERIFY_WITH_TIMEOUT(!kit.controller->isLoading(), 5000); }();
        return kit.controller->window()->view()->speakerButton();
    }

private slots:
    void initTestCase() {
        L10n::setOverride(u"en"_qs);
        if (const QString reason = m_server.start(); !reason.isEmpty())
            QSKIP(qPrintable(u"skipped: "_qs + reason));
        m_pronouncer = std::make_unique<Pronouncer>(u"speechd"_qs);
        Pronouncer::install(m_pronouncer.get());
        m_pronouncer->prepare();
        QTRY_VERIFY_WITH_TIMEOUT(m_pronouncer->availability() != Pronouncer::Availability::checking, 10000);
        QVERIFY2(m_pronouncer->isAvailable(), qPrintable(m_pronouncer->unavailableReason()));
        QCOMPARE(m_pronouncer->unavailableReason(), QString());
    }
    void cleanupTestCase() {
        Pronouncer::install(nullptr);
        m_pronouncer.reset();
        L10n::setOverride(std::nullopt);
    }

    void cardButtonSpeaksAndASecondPressStops() {
        OverlayTestKit kit;
        SpeakerButton* button = showCard(kit, longText);
        QVERIFY(button->isVisible());
        QVERIFY(button->focusPolicy() == Qt::NoFocus);
        QCOMPARE(button->toolTip(), u"Read Aloud (Ctrl+R)"_qs);

        QTest::mouseClick(button, Qt::LeftButton);
        QVERIFY(button->isSpeaking());
        QCOMPARE(button->toolTip(), u"Stop Reading (Ctrl+R)"_qs);
        QTRY_COMPARE_WITH_TIMEOUT(m_pronouncer->engineState(), EngineState::speaking, 10000);
        QElapsedTimer speaking;
        speaking.start();

        // The shortcut is the second press; the text would go on for seconds.
        const qsizetype finished = m_server.played().size();
        QTest::keyClick(kit.controller->window(), Qt::Key_R, Qt::ControlModifier);
        QVERIFY(!button->isSpeaking());
        QTRY_COMPARE_WITH_TIMEOUT(m_pronouncer->engineState(), EngineState::ready, 3000);
        QVERIFY2(speaking.elapsed() < 3000, "stopped only when the text had ended");
        QCOMPARE(m_server.played().size(), finished);
        QCOMPARE(m_pronouncer->lastLocale().language(), QLocale::English);
    }

    void aTextThatEndsGivesTheButtonBack() {
        OverlayTestKit kit;
        SpeakerButton* button = showCard(kit, u"Hi"_qs);
        const qsizetype finished = m_server.played().size();
        button->click();
        QTRY_COMPARE_WITH_TIMEOUT(m_pronouncer->engineState(), EngineState::speaking, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(m_pronouncer->engineState(), EngineState::ready, 10000);
        QVERIFY(!button->isSpeaking());
        QTRY_COMPARE(m_server.played().size(), finished + 1);
        QVERIFY(m_server.played().last().startsWith(u"en-us "_qs));
    }

    void chineseTextGetsTheChineseVoice() {
        OverlayTestKit kit;
        SpeakerButton* button = showCard(kit, u"你好"_qs);
        const qsizetype finished = m_server.played().size();
        button->click();
        QCOMPARE(m_pronouncer->lastLocale().language(), QLocale::Chinese);
        QTRY_COMPARE_WITH_TIMEOUT(m_server.played().size(), finished + 1, 10000);
        QVERIFY2(m_server.played().last().startsWith(u"cmn "_qs), qPrintable(m_server.played().last()));
        QTRY_VERIFY(!button->isSpeaking());
    }

    void closingTheCardStopsItsText() {
        OverlayTestKit kit;
        SpeakerButton* button = showCard(kit, longText);
        button->click();
        QTRY_COMPARE_WITH_TIMEOUT(m_pronouncer->engineState(), EngineState::speaking, 10000);
        QTest::keyClick(kit.controller->window(), Qt::Key_Escape);
        QCOMPARE(m_pronouncer->speakingText(), QString());
        QTRY_COMPARE_WITH_TIMEOUT(m_pronouncer->engineState(), EngineState::ready, 3000);
    }

    void historyRowReadsItsSelection() {
        AppTestKit kit;
        HistoryRecord record;
        record.createdAt = QDateTime::currentDateTimeUtc();
        record.selectedText = longText;
        record.gloss = u"g"_qs;
        kit.state->history().insert(record);
        HistoryView view(*kit.state);
        view.resize(640, 480);
        view.show();
        QWidget* viewport = child<QListView>(view, "recordList")->viewport();
        const QRect speak = view.linkRect(0, HistoryRowView::Link::speak);
        QVERIFY(!speak.isEmpty());
        QVERIFY(!speak.intersects(view.linkRect(0, HistoryRowView::Link::copy)));

        QTest::mouseClick(viewport, Qt::LeftButton, {}, speak.center());
        QCOMPARE(m_pronouncer->speakingText(), longText);
        QTRY_COMPARE_WITH_TIMEOUT(m_pronouncer->engineState(), EngineState::speaking, 10000);
        QTest::mouseClick(viewport, Qt::LeftButton, {}, speak.center());
        QCOMPARE(m_pronouncer->speakingText(), QString());
        QTRY_COMPARE_WITH_TIMEOUT(m_pronouncer->engineState(), EngineState::ready, 3000);
    }
};

// Without a usable engine nothing offers to read aloud, and the reason can be told. Needs no server.
class SpeechUnavailableTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { L10n::setOverride(u"en"_qs); }
    void cleanupTestCase() { L10n::setOverride(std::nullopt); }

    void buttonsStayHiddenAndTheReasonIsGiven() {
        Pronouncer pronouncer(u"no-such-engine"_qs);
        Pronouncer::install(&pronouncer);
        OverlayTestKit kit;
        kit.answer({sse::done(u"Gloss"_qs, u"Meaning"_qs)});
        kit.trigger(u"word"_qs);
        QTRY_COMPARE_WITH_TIMEOUT(pronouncer.availability(), Pronouncer::Availability::unavailable, 5000);
        QTRY_VERIFY_WITH_TIMEOUT(!kit.controller->isLoading(), 5000);
        CardView* card = kit.controller->window()->view();
        QVERIFY(!card->speakerButton()->isVisibleTo(card));
        QVERIFY(!card->readAloud());
        QTest::keyClick(kit.controller->window(), Qt::Key_R, Qt::ControlModifier);
        QCOMPARE(pronouncer.speakingText(), QString());
        QVERIFY(pronouncer.unavailableReason().contains(u"qt6-speech-speechd-plugin"_qs));
        L10n::setOverride(u"zh"_qs);
        QVERIFY(pronouncer.unavailableReason().contains(u"朗读引擎"_qs));
        L10n::setOverride(u"en"_qs);

        AppTestKit app;
        HistoryRecord record;
        record.createdAt = QDateTime::currentDateTimeUtc();
        record.selectedText = u"word"_qs;
        app.state->history().insert(record);
        HistoryView view(*app.state);
        view.resize(640, 480);
        view.show();
        QVERIFY(view.linkRect(0, HistoryRowView::Link::speak).isNull());
        Pronouncer::install(nullptr);
    }
};

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    int status = 0;
    SpeechUnavailableTest unavailable;
    status |= QTest::qExec(&unavailable, argc, argv);
    SpeechTest speech;
    status |= QTest::qExec(&speech, argc, argv);
    return status;
}

#include "tst_speech.moc"
