#include "NubraApp/Settings/LocalGlossService.h"

#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QHostAddress>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProcess>
#include <QTimer>

LocalGlossService::LocalGlossService(const QUrl& baseURL, QNetworkAccessManager& network, QObject* parent)
    : QObject(parent), m_baseURL(baseURL), m_network(network),
      m_state(isLocal(baseURL) ? State::probing : State::notLocal) {}

LocalGlossService::~LocalGlossService() {
    if (m_process) {
        m_process->disconnect(this);
        m_process->kill();
        m_process->waitForFinished(1000);
    }
}

bool LocalGlossService::isLocal(const QUrl& baseURL) {
    const QString host = baseURL.host();
    return host == u"localhost" || QHostAddress(host).isLoopback();
}

void LocalGlossService::setState(State state) {
    if (m_state == state)
        return;
    m_state = state;
    emit stateChanged(state);
}

void LocalGlossService::refresh() {
    if (m_state == State::notLocal || m_state == State::starting)
        return;
    setState(State::probing);
    probe();
}

void LocalGlossService::probe() {
    const quint64 generation = ++m_generation;
    QUrl url = m_baseURL;
    url.setPath(url.path().chopped(url.path().endsWith(u'/') ? 1 : 0) + QStringLiteral("/v1/updates/latest"));
    QNetworkRequest request(url);
    request.setTransferTimeout(probeTimeoutMs);
    QNetworkReply* reply = m_network.get(request);
    connect(reply, &QNetworkReply::finished, this, [this, reply, generation]() {
        reply->deleteLater();
        if (generation != m_generation)
            return;
        // Any HTTP answer means a service listens there, whatever it thinks of the request.
        probeAnswered(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid());
    });
}

void LocalGlossService::probeAnswered(bool answers) {
    if (answers) {
        m_startProbesLeft = 0;
        setState(State::answering);
        return;
    }
    if (m_state == State::starting) {
        if (m_startProbesLeft-- > 0) {
            QTimer::singleShot(startProbeIntervalMs, this, [this]() {
                if (m_state == State::starting)
                    probe();
            });
            return;
        }
        m_failure = L10n::t(QStringLiteral("%1 started, but nothing answers at %2"),
                            QStringLiteral("%1 已启动，但 %2 没有应答"))
                        .arg(QString::fromLatin1(unitName), m_baseURL.toString());
        setState(State::startFailed);
        return;
    }
    const quint64 generation = m_generation;
    runSystemctl({QStringLiteral("--user"), QStringLiteral("show"), QStringLiteral("--property=LoadState"),
                  QStringLiteral("--value"), QString::fromLatin1(unitName)},
                 [this, generation](int exitCode, const QString& output) {
                     if (generation != m_generation || m_state != State::probing)
                         return;
                     setState(exitCode == 0 && output.trimmed() == u"loaded" ? State::startable
                                                                             : State::notAnswering);
                 });
}

void LocalGlossService::start() {
    if (m_state != State::startable && m_state != State::startFailed)
        return;
    m_failure.clear();
    setState(State::starting);
    nbDebug(QStringLiteral("service: systemctl --user start ") + QString::fromLatin1(unitName));
    runSystemctl({QStringLiteral("--user"), QStringLiteral("start"), QString::fromLatin1(unitName)},
                 [this](int exitCode, const QString& output) {
                     if (m_state != State::starting)
                         return;
                     if (exitCode != 0) {
                         m_failure = output.trimmed().section(u'\n', 0, 0);
                         nbDebug(QStringLiteral("service: start failed: ") + m_failure);
                         setState(State::startFailed);
                         return;
                     }
                     m_startProbesLeft = startProbes;
                     probe();
                 });
}

void LocalGlossService::runSystemctl(const QStringList& arguments,
                                     std::function<void(int exitCode, const QString& output)> done) {
    if (m_process) {
        m_process->disconnect(this);
        m_process->kill();
        m_process->deleteLater();
    }
    auto* process = new QProcess(this);
    m_process = process;
    process->setProcessChannelMode(QProcess::MergedChannels);
    connect(process, &QProcess::finished, this, [process, done](int exitCode, QProcess::ExitStatus status) {
        process->deleteLater();
        // Output is short; a unit that floods it is cut off.
        done(status == QProcess::NormalExit ? exitCode : -1, QString::fromLocal8Bit(process->read(4096)));
    });
    connect(process, &QProcess::errorOccurred, this, [process, done](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart)
            return;
        process->deleteLater();
        done(-1, QStringLiteral("systemctl: ") + process->errorString());
    });
    process->start(QStringLiteral("systemctl"), arguments);
}
