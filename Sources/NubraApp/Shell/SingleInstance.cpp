#include "NubraApp/Shell/SingleInstance.h"

#include "NubraApp/Shell/LaunchMessage.h"
#include "NubraCore/Support/DebugLog.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLockFile>
#include <QThread>
#include <QTimer>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

using namespace std::chrono_literals;

namespace {

// The answer to a request: "NBRA", the protocol version, one status byte.
constexpr char replyMagic[] = {'N', 'B', 'R', 'A'};
constexpr qsizetype replySize = sizeof replyMagic + 2;
enum ReplyStatus : quint8 { accepted = 0, refused = 1, unsupportedVersion = 2 };

// More connections than this at once is a runaway script, not a user; the rest are dropped.
constexpr qsizetype maxPeers = 16;
constexpr auto replacePollInterval = 100ms;
constexpr auto probeTimeout = 1000ms;
constexpr auto lockTimeout = 2000ms;

QByteArray replyFrame(quint8 status) {
    QByteArray frame(replyMagic, sizeof replyMagic);
    frame.append(char(LaunchMessage::version));
    frame.append(char(status));
    return frame;
}

int remaining(const QDeadlineTimer& deadline) {
    return int(std::max<qint64>(deadline.remainingTime(), 0));
}

// The XDG runtime directory, or else a private one of our own: the socket must not sit where other
// users could replace it.
std::optional<QString> runtimeDirectory() {
    const QString xdg = QFile::decodeName(qgetenv("XDG_RUNTIME_DIR"));
    if (!xdg.isEmpty()) {
        if (QFileInfo(xdg).isDir())
            return xdg;
        nbDebug(QStringLiteral("single instance: XDG_RUNTIME_DIR %1 is not a directory").arg(xdg));
    }
    const QString fallback = QStringLiteral("/tmp/nubra-runtime-%1").arg(::getuid());
    const QByteArray native = QFile::encodeName(fallback);
    if (::mkdir(native.constData(), 0700) != 0 && errno != EEXIST) {
        nbDebug(QStringLiteral("single instance: cannot create %1").arg(fallback));
        return std::nullopt;
    }
    // Someone else may have made it first: use it only if it is ours alone.
    struct stat info {};
    if (::lstat(native.constData(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != ::getuid() ||
        (info.st_mode & 077) != 0) {
        nbDebug(QStringLiteral("single instance: %1 is not a private directory").arg(fallback));
        return std::nullopt;
    }
    return fallback;
}

// ":0", ":0.0" and "unix:0" name the same display, and the screen number does not matter; other hosts
// (a forwarded "localhost:10") keep their name.
QString displayKey() {
    QString display = QString::fromLocal8Bit(qgetenv("DISPLAY"));
    const qsizetype colon = display.lastIndexOf(u':');
    if (colon < 0)
        return display.isEmpty() ? QStringLiteral("default") : display;
    QString host = display.left(colon);
    QString number = display.mid(colon + 1);
    number = number.left(number.indexOf(u'.'));
    if (host == u"unix")
        host.clear();
    QString key = host.isEmpty() ? number : host + u'_' + number;
    for (QChar& c : key) {
        if (!(c.isLetterOrNumber() && c.unicode() < 128) && c != u'-' && c != u'_' && c != u'.')
            c = u'_';
    }
    return key.isEmpty() ? QStringLiteral("default") : key;
}

enum class Probe { answers, nobody, unreachable };

// Whether an instance answers on `path`. A socket nobody listens on is refused at once; a hung instance
// still accepts connections, and a connection that cannot be made in time counts as alive too.
Probe probe(const QString& path, QString* error) {
    QLocalSocket socket;
    socket.connectToServer(path);
    if (socket.waitForConnected(int(probeTimeout.count()))) {
        socket.abort();
        return Probe::answers;
    }
    switch (socket.error()) {
    case QLocalSocket::ServerNotFoundError:
    case QLocalSocket::ConnectionRefusedError:
        return Probe::nobody;
    case QLocalSocket::SocketTimeoutError:
        return Probe::answers;
    default:
        *error = socket.errorString();
        return Probe::unreachable;
    }
}

} // namespace

std::optional<QString> SingleInstance::socketPath() {
    const std::optional<QString> directory = runtimeDirectory();
    if (!directory)
        return std::nullopt;
    return *directory + QStringLiteral("/nubra-") + displayKey() + QStringLiteral(".socket");
}

SingleInstance::ForwardResult SingleInstance::forward(const LaunchRequest& request,
                                                      std::chrono::milliseconds timeout) {
    const auto fail = [](const QString& error) {
        nbDebug(QStringLiteral("single instance: forwarding failed: ") + error);
        return ForwardResult{Delivery::failed, error};
    };
    const std::optional<QString> path = socketPath();
    if (!path)
        return fail(QStringLiteral("no private runtime directory for the instance socket"));

    const QDeadlineTimer deadline(timeout);
    QLocalSocket socket;
    socket.setReadBufferSize(replySize);
    socket.connectToServer(*path);
    if (!socket.waitForConnected(remaining(deadline))) {
        if (socket.error() == QLocalSocket::ServerNotFoundError ||
            socket.error() == QLocalSocket::ConnectionRefusedError)
            return {Delivery::noInstance, {}};
        return fail(QStringLiteral("cannot reach the running Nubra: ") + socket.errorString());
    }

    socket.write(LaunchMessage::encode(request));
    while (socket.bytesToWrite() > 0) {
        if (!socket.waitForBytesWritten(remaining(deadline)))
            return fail(QStringLiteral("the running Nubra did not take the request in time"));
    }

    QByteArray reply;
    while (reply.size() < replySize) {
        reply += socket.read(replySize - reply.size());
        if (reply.size() < replySize && !socket.waitForReadyRead(remaining(deadline))) {
            return fail(socket.state() == QLocalSocket::ConnectedState
                            ? QStringLiteral("the running Nubra did not answer in time")
                            : QStringLiteral("the running Nubra closed the connection"));
        }
    }
    if (!reply.startsWith(QByteArrayView(replyMagic, sizeof replyMagic)))
        return fail(QStringLiteral("the running Nubra gave an unreadable answer"));
    switch (quint8(reply.at(replySize - 1))) {
    case accepted:
        return {Delivery::delivered, {}};
    case unsupportedVersion:
        return fail(QStringLiteral("the running Nubra is a different version"));
    default:
        return fail(QStringLiteral("the running Nubra refused the request"));
    }
}

SingleInstance::SingleInstance(QObject* parent) : QObject(parent) {}

SingleInstance::~SingleInstance() {
    if (!m_server)
        return;
    // Closing shuts the socket, then removes its file. A successor waiting for the socket must not
    // find it refused and listen anew in between, or the old instance would remove the new one's file.
    QLockFile lock(m_path + QStringLiteral(".lock"));
    if (!lock.tryLock(int(lockTimeout.count())))
        nbDebug(QStringLiteral("single instance: closing without the lock"));
    // The peers still connected are dropped with the server.
    delete m_server;
}

bool SingleInstance::isListening() const {
    return m_server && m_server->isListening();
}

SingleInstance::ListenResult SingleInstance::listen() {
    if (isListening())
        return ListenResult::listening;
    const auto fail = [this](const QString& error) {
        m_error = error;
        nbDebug(QStringLiteral("single instance: cannot listen: ") + error);
        return ListenResult::failed;
    };
    const std::optional<QString> path = socketPath();
    if (!path)
        return fail(QStringLiteral("no private runtime directory for the instance socket"));

    // Two launches at once must not both find the socket stale and take turns replacing it.
    QLockFile lock(*path + QStringLiteral(".lock"));
    if (!lock.tryLock(int(lockTimeout.count())))
        return fail(QStringLiteral("cannot lock ") + lock.fileName());

    QString probeError;
    switch (probe(*path, &probeError)) {
    case Probe::answers:
        m_error = QStringLiteral("another Nubra is running");
        return ListenResult::anotherInstance;
    case Probe::unreachable:
        return fail(probeError);
    case Probe::nobody:
        break;
    }
    if (QFileInfo::exists(*path)) {
        nbDebug(QStringLiteral("single instance: removing the stale socket ") + *path);
        QLocalServer::removeServer(*path);
    }

    auto* server = new QLocalServer(this);
    server->setSocketOptions(QLocalServer::UserAccessOption);
    server->setMaxPendingConnections(int(maxPeers));
    if (!server->listen(*path)) {
        const QString error = server->errorString();
        delete server;
        return fail(error);
    }
    m_server = server;
    m_path = *path;
    m_error.clear();
    connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::acceptConnections);
    return ListenResult::listening;
}

SingleInstance::ListenResult SingleInstance::listenReplacing(std::chrono::milliseconds timeout) {
    const QDeadlineTimer deadline(timeout);
    for (;;) {
        const ListenResult result = listen();
        if (result != ListenResult::anotherInstance || deadline.hasExpired())
            return result;
        QThread::msleep(ulong(std::min<qint64>(replacePollInterval.count(), remaining(deadline))));
    }
}

void SingleInstance::acceptConnections() {
    while (QLocalSocket* socket = m_server->nextPendingConnection()) {
        if (m_server->findChildren<QLocalSocket*>(Qt::FindDirectChildrenOnly).size() > maxPeers) {
            nbDebug(QStringLiteral("single instance: too many connections; dropping one"));
            socket->abort();
            socket->deleteLater();
            continue;
        }
        // Bounds what a peer can make us hold; a whole request fits with one byte to spare, which is
        // how an oversized one shows.
        socket->setReadBufferSize(LaunchMessage::maxFrame + 1);
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readFrom(socket); });
        // Also the hard limit on how long a connection may live at all.
        QTimer::singleShot(m_peerTimeout, socket, [socket] {
            if (socket->state() == QLocalSocket::ConnectedState)
                nbDebug(QStringLiteral("single instance: a peer sent no whole request in time"));
            socket->abort();
            socket->deleteLater();
        });
    }
}

void SingleInstance::readFrom(QLocalSocket* socket) {
    const qint64 available = socket->bytesAvailable();
    const LaunchMessage::Decoded decoded =
        available > LaunchMessage::maxFrame
            ? LaunchMessage::Decoded{LaunchMessage::Decoded::Status::invalid, std::nullopt}
            : LaunchMessage::decode(socket->peek(available));
    switch (decoded.status) {
    case LaunchMessage::Decoded::Status::incomplete:
        return;
    case LaunchMessage::Decoded::Status::invalid:
        nbDebug(QStringLiteral("single instance: refused a malformed request"));
        finish(socket, refused);
        return;
    case LaunchMessage::Decoded::Status::unsupportedVersion:
        nbDebug(QStringLiteral("single instance: refused a request of another protocol version"));
        finish(socket, unsupportedVersion);
        return;
    case LaunchMessage::Decoded::Status::complete:
        // Answer first: the receiver may quit the application at once.
        finish(socket, accepted);
        emit requestReceived(*decoded.request);
        return;
    }
}

void SingleInstance::finish(QLocalSocket* socket, quint8 status) {
    disconnect(socket, &QLocalSocket::readyRead, this, nullptr);
    socket->write(replyFrame(status));
    // The answer is a few bytes: this hands it to the kernel now, without waiting for the peer.
    socket->flush();
    socket->disconnectFromServer();
}
