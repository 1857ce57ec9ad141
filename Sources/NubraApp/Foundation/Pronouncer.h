#pragma once

#include <QList>
#include <QLocale>
#include <QObject>
#include <QString>
#include <QTimer>

class QThread;
class SpeechEngineHost;

// Reads looked-up texts aloud, one at a time for the whole application, in a voice of the text's
// language. The speech engine (Qt TextToSpeech, on Linux through speech-dispatcher) is started on a
// thread of its own when first needed: connecting may spawn speech-dispatcher and block for over a
// second. Until it has answered, and when it cannot speak, isAvailable() is false and the read-aloud
// buttons stay hidden. Main thread only.
class Pronouncer : public QObject {
    Q_OBJECT
public:
    enum class Availability { unknown, checking, available, unavailable };
    // The engine's own state, as far as this object has been told.
    enum class EngineState { ready, speaking, error };

    // `engine` names the TextToSpeech plug-in; empty picks the system's default one.
    explicit Pronouncer(QString engine = {}, QObject* parent = nullptr);
    ~Pronouncer() override;

    // The application's pronouncer, or none (tests of views without speech, before start-up).
    static Pronouncer* installed();
    static void install(Pronouncer* pronouncer);

    // Starts the engine in the background, once; availabilityChanged() tells the outcome.
    void prepare();
    Availability availability() const { return m_availability; }
    bool isAvailable() const { return m_availability == Availability::available; }
    // Why nothing can be read aloud, in the interface language; empty while available or unchecked.
    QString unavailableReason() const;

    // Reads `text` aloud, or stops when it is the text being read.
    void toggle(const QString& text);
    void stop();
    // The text being read aloud; empty when quiet.
    const QString& speakingText() const { return m_speakingText; }
    EngineState engineState() const { return m_engineState; }
    // The locale the engine was given for the last text; the engine's default when none fitted.
    const QLocale& lastLocale() const { return m_lastLocale; }

signals:
    void availabilityChanged();
    void speakingChanged();
    void engineStateChanged();

private:
    enum class Failure { none, noPlugin, noConnection, noVoices };

    void onReady(Failure failure, const QList<QLocale>& locales, const QLocale& defaultLocale);
    void onEngineState(EngineState state);
    void setSpeakingText(const QString& text);

    QString m_engineName;
    QThread* m_thread = nullptr;
    SpeechEngineHost* m_host = nullptr;
    Availability m_availability = Availability::unknown;
    Failure m_failure = Failure::none;
    QList<QLocale> m_locales;
    QLocale m_defaultLocale;
    QLocale m_lastLocale;
    QString m_speakingText;
    EngineState m_engineState = EngineState::ready;
    // A new text was sent and has not begun: the engine's "ready" for the text it cut off is not the end.
    bool m_awaitingStart = false;
    // A text the engine never begins must not leave the buttons showing "stop".
    QTimer m_startTimeout;
};
