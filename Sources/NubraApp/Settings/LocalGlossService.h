#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <functional>

class QNetworkAccessManager;
class QProcess;

// The gloss service when it runs on this machine, as the systemd user unit the package installs:
// whether it answers, whether the unit is there to start it, and starting it. Only a service on a
// loopback address is looked after. Main thread; nothing here blocks.
class LocalGlossService final : public QObject {
    Q_OBJECT

public:
    static constexpr const char* unitName = "nubra-glossd.service";
    static constexpr int probeTimeoutMs = 1500;
    // A started unit is given this many probes, this far apart, to begin answering.
    static constexpr int startProbes = 20;
    static constexpr int startProbeIntervalMs = 250;

    enum class State {
        notLocal,     // the service is elsewhere: nothing to offer
        probing,      // asking whether it answers
        answering,    // it answers
        notAnswering, // nothing answers and no unit can start it
        startable,    // nothing answers, and its user unit can start it
        starting,     // the unit is being started
        startFailed,  // starting failed; failure() says why
    };
    Q_ENUM(State)

    LocalGlossService(const QUrl& baseURL, QNetworkAccessManager& network, QObject* parent = nullptr);
    ~LocalGlossService() override;

    static bool isLocal(const QUrl& baseURL);

    State state() const { return m_state; }
    QString failure() const { return m_failure; }

    // Asks again whether the service answers, and if not, whether its unit is there.
    void refresh();
    // systemctl --user start, then a new probe.
    void start();

signals:
    void stateChanged(LocalGlossService::State state);

private:
    void setState(State state);
    void probe();
    void probeAnswered(bool answers);
    void runSystemctl(const QStringList& arguments,
                      std::function<void(int exitCode, const QString& output)> done);

    QUrl m_baseURL;
    QNetworkAccessManager& m_network;
    State m_state;
    QString m_failure;
    quint64 m_generation = 0;
    int m_startProbesLeft = 0;
    QPointer<QProcess> m_process;
};
