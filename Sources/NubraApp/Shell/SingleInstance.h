#pragma once

#include "NubraApp/Shell/CommandLine.h"

#include <QObject>
#include <QString>

#include <chrono>
#include <optional>

class QLocalServer;
class QLocalSocket;

// One Nubra per desktop session. The running instance listens on a local socket; a later `nubra`
// hands its request over and exits. This is also how a plain second launch reopens Nubra, and the
// only way into Nubra on desktops without a tray.
//
// The socket lives in the user's runtime directory ($XDG_RUNTIME_DIR, or a private 0700 directory
// under /tmp when that is unset) and is named after the X display, because a Nubra can only capture
// from the display it runs on: a second session of the same user on another display gets its own.
// Without DISPLAY (a shell over ssh) the name is "nubra-default.socket", which no desktop's Nubra uses.
//
// Meant for start-up, before the event loop runs. A QCoreApplication must exist, but it need not be
// the GUI one, so that `nubra --quit` works without a display:
//
//     const CommandLine::Parsed parsed = CommandLine::parse(arguments);
//     if (parsed.exit)
//         return CommandLine::report(*parsed.exit);
//     if (!parsed.request.replace) {
//         const auto sent = SingleInstance::forward(parsed.request);
//         if (sent.delivery == SingleInstance::Delivery::delivered)
//             return 0;
//         if (sent.delivery == SingleInstance::Delivery::failed)
//             -> print "nubra: " + sent.error, return 1
//         if (!parsed.request.startsInstance())
//             return 0; // --quit with nothing running
//     }
//     SingleInstance instance;   // lives as long as the application
//     switch (parsed.request.replace ? instance.listenReplacing() : instance.listen()):
//         listening: connect requestReceived, then perform parsed.request itself;
//         anotherInstance: a launch at the same moment won; forward to it as above and exit;
//         failed: log errorString() and run all the same, without a single instance.
//
class SingleInstance : public QObject {
    Q_OBJECT

public:
    enum class Delivery {
        // The running instance accepted the request.
        delivered,
        // Nobody is listening (no socket, or a stale one left by a crash).
        noInstance,
        // An instance may be there but did not take the request; see the error text.
        failed,
    };
    struct ForwardResult {
        Delivery delivery = Delivery::failed;
        // One line for the user when failed.
        QString error;
    };

    enum class ListenResult { listening, anotherInstance, failed };

    static constexpr std::chrono::milliseconds defaultTimeout{2000};
    static constexpr std::chrono::milliseconds defaultReplaceTimeout{10000};

    // Hands `request` to the running instance and waits for its answer, at most `timeout` in all.
    // Blocks the calling thread; never call it on a thread whose event loop serves the instance.
    static ForwardResult forward(const LaunchRequest& request,
                                 std::chrono::milliseconds timeout = defaultTimeout);

    // The socket's path for this user and display; nothing when no private runtime directory can be
    // had (then there is no single instance: forward() fails and listen() refuses).
    static std::optional<QString> socketPath();

    explicit SingleInstance(QObject* parent = nullptr);
    // Stops listening and removes the socket, so that a successor can take over.
    ~SingleInstance() override;

    // Becomes the instance: removes a socket left behind by a crashed instance (only when nobody
    // answers on it), then listens. Refuses while another instance answers.
    ListenResult listen();
    // For the application's own restart: waits until the old instance has released the socket, then
    // listens. Gives up after `timeout` with anotherInstance (the old one is still there).
    ListenResult listenReplacing(std::chrono::milliseconds timeout = defaultReplaceTimeout);
    bool isListening() const;
    QString errorString() const { return m_error; }

    // How long a connected peer may take to send its whole request. Tests shorten it.
    void setPeerTimeout(std::chrono::milliseconds timeout) { m_peerTimeout = timeout; }

signals:
    // A request from a later `nubra`, on this object's thread. The peer has been told it was accepted
    // before this is emitted, so a receiver may quit at once (--quit) and the peer still ends cleanly.
    void requestReceived(const LaunchRequest& request);

private:
    void acceptConnections();
    void readFrom(QLocalSocket* socket);
    void finish(QLocalSocket* socket, quint8 status);

    QLocalServer* m_server = nullptr;
    QString m_path;
    QString m_error;
    std::chrono::milliseconds m_peerTimeout = defaultTimeout;
};
