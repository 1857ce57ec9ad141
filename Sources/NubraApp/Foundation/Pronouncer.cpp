#include "NubraApp/Foundation/Pronouncer.h"

#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "NubraCore/Vocabulary/SpeechLanguage.h"

#include <QTextToSpeech>
#include <QThread>
#include <QVoice>

#include <algorithm>
#include <functional>
#include <optional>

namespace {
Pronouncer* installedPronouncer = nullptr;
// Longer than speech-dispatcher takes to start a module and begin speaking on a busy machine.
constexpr int startTimeoutMilliseconds = 10000;
} // namespace

// Owns the QTextToSpeech on the speech thread; every call into the engine, which may block on
// speech-dispatcher's socket, happens there. Answers go back to the pronouncer with queued calls, which
// Qt drops if the pronouncer is gone.
class SpeechEngineHost final : public QObject {
public:
    struct Outcome {
        bool pluginFound = false;
        bool connected = false;
        QList<QLocale> locales;
        QLocale defaultLocale;
    };

    SpeechEngineHost(Pronouncer* owner, std::function<void(const Outcome&)> onReady,
                     std::function<void(QTextToSpeech::State)> onState)
        : m_owner(owner), m_onReady(std::move(onReady)), m_onState(std::move(onState)) {}

    void start(const QString& engineName) {
        Outcome outcome;
        const QStringList engines = QTextToSpeech::availableEngines();
        outcome.pluginFound = engineName.isEmpty() ? !engines.isEmpty() : engines.contains(engineName);
        if (outcome.pluginFound) {
            m_speech = new QTextToSpeech(engineName, this);
            outcome.connected = m_speech->errorReason() != QTextToSpeech::ErrorReason::Initialization;
            if (outcome.connected) {
                outcome.locales = m_speech->availableLocales();
                outcome.defaultLocale = m_speech->locale();
                findMandarin(outcome.locales);
                connect(m_speech, &QTextToSpeech::stateChanged, this, [this](QTextToSpeech::State state) {
                    QMetaObject::invokeMethod(
                        m_owner, [report = m_onState, state] { report(state); }, Qt::QueuedConnection);
                });
            }
            nbDebug(QStringLiteral("speech: engine %1, %2, %3 locales")
                        .arg(m_speech->engine(), m_speech->errorString())
                        .arg(outcome.locales.size()));
        }
        QMetaObject::invokeMethod(
            m_owner, [report = m_onReady, outcome] { report(outcome); }, Qt::QueuedConnection);
    }

    void speak(const QString& text, const QLocale& locale) {
        if (!m_speech)
            return;
        const bool mandarin = m_mandarin && locale.language() == QLocale::Chinese;
        const QLocale engineLocale = mandarin ? QLocale::c() : locale;
        if (m_speech->locale() != engineLocale)
            m_speech->setLocale(engineLocale);
        if (mandarin)
            m_speech->setVoice(*m_mandarin);
        m_speech->say(text);
    }

    void stop() {
        if (m_speech)
            m_speech->stop();
    }

private:
    // espeak-ng calls Mandarin "cmn", a code QLocale does not know, so its voices come under the C
    // locale: found there by name, they stand for Chinese.
    void findMandarin(QList<QLocale>& locales) {
        const bool hasChinese = std::any_of(locales.begin(), locales.end(), [](const QLocale& locale) {
            return locale.language() == QLocale::Chinese;
        });
        if (hasChinese || !locales.contains(QLocale::c()))
            return;
        const QLocale before = m_speech->locale();
        m_speech->setLocale(QLocale::c());
        for (const QVoice& voice : m_speech->availableVoices()) {
            if (voice.name().contains(u"Mandarin") ||
                voice.name().compare(u"cmn", Qt::CaseInsensitive) == 0) {
                m_mandarin = voice;
                locales.append(QLocale(QLocale::Chinese, QLocale::SimplifiedHanScript, QLocale::China));
                break;
            }
        }
        m_speech->setLocale(before);
    }

    Pronouncer* m_owner;
    std::function<void(const Outcome&)> m_onReady;
    std::function<void(QTextToSpeech::State)> m_onState;
    QTextToSpeech* m_speech = nullptr;
    std::optional<QVoice> m_mandarin;
};

Pronouncer::Pronouncer(QString engine, QObject* parent) : QObject(parent), m_engineName(std::move(engine)) {
    m_startTimeout.setSingleShot(true);
    m_startTimeout.setInterval(startTimeoutMilliseconds);
    connect(&m_startTimeout, &QTimer::timeout, this, [this] {
        m_awaitingStart = false;
        setSpeakingText(QString());
    });
}

Pronouncer::~Pronouncer() {
    if (installedPronouncer == this)
        installedPronouncer = nullptr;
    if (m_thread) {
        // The engine goes with the thread's last deferred deletions and stops what it is saying.
        m_thread->quit();
        m_thread->wait();
    }
}

Pronouncer* Pronouncer::installed() {
    return installedPronouncer;
}

void Pronouncer::install(Pronouncer* pronouncer) {
    installedPronouncer = pronouncer;
}

void Pronouncer::prepare() {
    if (m_thread)
        return;
    m_availability = Availability::checking;
    emit availabilityChanged();

    m_thread = new QThread(this);
    m_thread->setObjectName(QStringLiteral("speech"));
    m_host = new SpeechEngineHost(
        this,
        [this](const SpeechEngineHost::Outcome& outcome) {
            const Failure failure = !outcome.pluginFound        ? Failure::noPlugin
                                    : !outcome.connected        ? Failure::noConnection
                                    : outcome.locales.isEmpty() ? Failure::noVoices
                                                                : Failure::none;
            onReady(failure, outcome.locales, outcome.defaultLocale);
        },
        [this](QTextToSpeech::State state) {
            onEngineState(state == QTextToSpeech::Speaking || state == QTextToSpeech::Paused
                              ? EngineState::speaking
                          : state == QTextToSpeech::Ready ? EngineState::ready
                                                          : EngineState::error);
        });
    m_host->moveToThread(m_thread);
    connect(m_thread, &QThread::finished, m_host, &QObject::deleteLater);
    m_thread->start(QThread::LowPriority);
    QMetaObject::invokeMethod(
        m_host, [host = m_host, name = m_engineName] { host->start(name); }, Qt::QueuedConnection);
}

void Pronouncer::onReady(Failure failure, const QList<QLocale>& locales, const QLocale& defaultLocale) {
    m_failure = failure;
    m_locales = locales;
    m_defaultLocale = defaultLocale;
    m_availability = failure == Failure::none ? Availability::available : Availability::unavailable;
    emit availabilityChanged();
}

QString Pronouncer::unavailableReason() const {
    switch (m_failure) {
    case Failure::none:
        return {};
    case Failure::noPlugin:
        return L10n::t(QStringLiteral("No speech engine is installed for Qt (qt6-speech-speechd-plugin)."),
                       QStringLiteral("没有为 Qt 安装朗读引擎（qt6-speech-speechd-plugin）。"));
    case Failure::noConnection:
        return L10n::t(QStringLiteral("Speech Dispatcher cannot be reached (install speech-dispatcher)."),
                       QStringLiteral("无法连接 Speech Dispatcher（请安装 speech-dispatcher）。"));
    case Failure::noVoices:
        return L10n::t(
            QStringLiteral("Speech Dispatcher has no voices (install speech-dispatcher-espeak-ng)."),
            QStringLiteral("Speech Dispatcher 没有可用的语音（请安装 speech-dispatcher-espeak-ng）。"));
    }
    return {};
}

void Pronouncer::toggle(const QString& text) {
    if (!isAvailable() || text.isEmpty())
        return;
    if (text == m_speakingText) {
        stop();
        return;
    }
    // A voice of the text's language, else the engine's default one (the first when it has none).
    const QLocale interface(L10n::isZh() ? QStringLiteral("zh_CN") : QStringLiteral("en_US"));
    const QLocale locale =
        SpeechLanguage::bestMatch(SpeechLanguage::forText(text, interface), m_locales)
            .value_or(m_locales.contains(m_defaultLocale) ? m_defaultLocale : m_locales.first());
    m_lastLocale = locale;
    m_awaitingStart = true;
    m_startTimeout.start();
    setSpeakingText(text);
    QMetaObject::invokeMethod(
        m_host, [host = m_host, text, locale] { host->speak(text, locale); }, Qt::QueuedConnection);
}

void Pronouncer::stop() {
    if (m_speakingText.isEmpty())
        return;
    m_awaitingStart = false;
    m_startTimeout.stop();
    // The buttons go back at once, even if the engine never reports the end.
    setSpeakingText(QString());
    QMetaObject::invokeMethod(
        m_host, [host = m_host] { host->stop(); }, Qt::QueuedConnection);
}

void Pronouncer::onEngineState(EngineState state) {
    if (state != m_engineState) {
        m_engineState = state;
        emit engineStateChanged();
    }
    if (state == EngineState::speaking) {
        m_awaitingStart = false;
        m_startTimeout.stop();
    } else if (!m_awaitingStart || state == EngineState::error) {
        m_awaitingStart = false;
        m_startTimeout.stop();
        setSpeakingText(QString());
    }
}

void Pronouncer::setSpeakingText(const QString& text) {
    if (text == m_speakingText)
        return;
    m_speakingText = text;
    emit speakingChanged();
}
