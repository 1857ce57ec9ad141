#include "NubraApp/Shell/SingleInstance.h"
#include "TestSupport/DebugLogCapture.h"

#include <QElapsedTimer>
#include <QLocalServer>
#include <QLocalSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Action = LaunchRequest::Action;
using Delivery = SingleInstance::Delivery;
using ListenResult = SingleInstance::ListenResult;

namespace {

LaunchRequest request(Action action, std::optional<SettingsTab> tab = std::nullopt) {
    LaunchRequest result;
    result.action = action;
    result.settingsTab = tab;
    return result;
}

// The client blocks until the instance answers, and the instance answers from this thread's event
// loop: the client runs on a thread of its own.
class ForwardingThread {
public:
    explicit ForwardingThread(const LaunchRequest& sent, std::chrono::milliseconds timeout = 2s)
        : m_thread(
              QThread::create([this, sent, timeout] { m_result = SingleInstance::forward(sent, timeout); })) {
        m_thread->start();
    }
    ~ForwardingThread() { m_thread->wait(); }

    // Serves this thread's events until the client is done.
    SingleInstance::ForwardResult result() {
        if (!QTest::qWaitFor([this] { return m_thread->isFinished(); }, 5000))
            qFatal("the forwarding client did not finish");
        return m_result;
    }

private:
    SingleInstance::ForwardResult m_result;
    std::unique_ptr<QThread> m_thread;
};

// A socket file with nobody behind it, as a crashed instance leaves it.
void makeStaleSocket(const QString& path) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    QVERIFY(fd >= 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray native = QFile::encodeName(path);
    std::memcpy(address.sun_path, native.constData(), size_t(native.size()));
    QCOMPARE(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ::close(fd);
    QVERIFY(QFileInfo::exists(path));
}

// Forwards `sent` and checks that `instance` received it, once.
void expectDelivered(SingleInstance& instance, const LaunchRequest& sent) {
    QSignalSpy received(&instance, &SingleInstance::requestReceived);
    ForwardingThread client(sent);
    QCOMPARE(client.result().delivery, Delivery::delivered);
    QCOMPARE(received.size(), 1);
    QCOMPARE(received.constFirst().constFirst().value<LaunchRequest>(), sent);
}

} // namespace

class SingleInstanceTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        QVERIFY(m_runtime.isValid());
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtime.path()));
        qputenv("DISPLAY", ":7.0");
        qRegisterMetaType<LaunchRequest>();
    }

    void socketIsPerDisplayAndPrivate() {
        QCOMPARE(SingleInstance::socketPath(), m_runtime.filePath(u"nubra-7.socket"_s));
        qputenv("DISPLAY", "unix:7");
        QCOMPARE(SingleInstance::socketPath(), m_runtime.filePath(u"nubra-7.socket"_s));
        qputenv("DISPLAY", "localhost:10.0");
        QCOMPARE(SingleInstance::socketPath(), m_runtime.filePath(u"nubra-localhost_10.socket"_s));
        qputenv("DISPLAY", ":7.0");

        SingleInstance instance;
        QCOMPARE(instance.listen(), ListenResult::listening);
        struct stat info {};
        QCOMPARE(::stat(QFile::encodeName(*SingleInstance::socketPath()).constData(), &info), 0);
        QVERIFY(S_ISSOCK(info.st_mode));
        QCOMPARE(info.st_mode & 077, 0u);
    }

    void withoutRuntimeDirectoryFallsBackToPrivateTmp() {
        qunsetenv("XDG_RUNTIME_DIR");
        const std::optional<QString> path = SingleInstance::socketPath();
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtime.path()));
        QVERIFY(path);
        const QString directory = QFileInfo(*path).path();
        QCOMPARE(QFileInfo(directory).path(), u"/tmp"_s);
        struct stat info {};
        QCOMPARE(::lstat(QFile::encodeName(directory).constData(), &info), 0);
        QVERIFY(S_ISDIR(info.st_mode));
        QCOMPARE(info.st_uid, ::getuid());
        QCOMPARE(info.st_mode & 077, 0u);
    }

    void quittingAtOnceStillAnswers() {
        auto instance = std::make_unique<SingleInstance>();
        QCOMPARE(instance->listen(), ListenResult::listening);
        // As the application does on --quit: the event loop ends and everything is torn down.
        connect(instance.get(), &SingleInstance::requestReceived, this, [&instance] {
            QMetaObject::invokeMethod(
                QCoreApplication::instance(), [&instance] { instance.reset(); }, Qt::QueuedConnection);
        });

        ForwardingThread client(request(Action::quit));
        QCOMPARE(client.result().delivery, Delivery::delivered);
        QTRY_VERIFY(!instance); // the reset queued behind the answer
        // The socket went with it, so the next launch starts afresh.
        QCOMPARE(SingleInstance::forward(request(Action::reopen)).delivery, Delivery::noInstance);
    }

    void staleSocketIsReplaced() {
        const QString path = *SingleInstance::socketPath();
        makeStaleSocket(path);
        QCOMPARE(SingleInstance::forward(request(Action::reopen)).delivery, Delivery::noInstance);

        SingleInstance instance;
        QCOMPARE(instance.listen(), ListenResult::listening);
        // Every action's encoding is tst_commandline's; here, that one request arrives whole.
        expectDelivered(instance, request(Action::settings, SettingsTab::privacy));
    }

    void liveInstanceIsNotReplaced() {
        SingleInstance first;
        QCOMPARE(first.listen(), ListenResult::listening);
        SingleInstance second;
        QCOMPARE(second.listen(), ListenResult::anotherInstance);
        QVERIFY(!second.isListening());
        // Giving up after its deadline, the restart leaves the running one alone.
        QCOMPARE(second.listenReplacing(300ms), ListenResult::anotherInstance);

        expectDelivered(first, request(Action::pause));
    }

    void restartWaitsForTheOldInstance() {
        // The old instance runs its own event loop, as the old process would, and goes after a while.
        QThread oldThread;
        oldThread.start();
        auto* old = new SingleInstance;
        old->moveToThread(&oldThread);
        ListenResult oldListens = ListenResult::failed;
        QMetaObject::invokeMethod(
            old,
            [&] {
                oldListens = old->listen();
                QTimer::singleShot(400ms, old, [old, &oldThread] {
                    delete old;
                    oldThread.quit();
                });
            },
            Qt::BlockingQueuedConnection);
        QCOMPARE(oldListens, ListenResult::listening);

        SingleInstance successor;
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(successor.listenReplacing(5s), ListenResult::listening);
        QVERIFY(clock.elapsed() >= 300);
        QVERIFY(oldThread.wait(5000));

        expectDelivered(successor, request(Action::reopen));
    }

    void refusesMalformedPeers_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("garbage") << QByteArray("GET / HTTP/1.0\r\n\r\n");
        QTest::newRow("oversized") << QByteArray("NBRQ\x01\xff\xff", 7) + QByteArray(70000, '{');
        QTest::newRow("other version") << QByteArray("NBRQ\x09\x00\x02{}", 9);
    }

    void refusesMalformedPeers() {
        QFETCH(QByteArray, bytes);
        SingleInstance instance;
        QCOMPARE(instance.listen(), ListenResult::listening);
        QSignalSpy received(&instance, &SingleInstance::requestReceived);

        QLocalSocket peer;
        QSignalSpy closed(&peer, &QLocalSocket::disconnected);
        peer.connectToServer(*SingleInstance::socketPath());
        QVERIFY(peer.waitForConnected(2000));
        peer.write(bytes);
        QVERIFY(closed.wait(2000));
        const QByteArray reply = peer.readAll();
        QVERIFY2(reply.startsWith("NBRA\x01") && reply.size() == 6 && reply.at(5) != 0,
                 reply.toHex().constData());
        QCOMPARE(received.size(), 0);
        QVERIFY(logged(u"single instance: refused"_s));
        expectDelivered(instance, request(Action::resume)); // it keeps serving well-formed requests
    }

    void silentPeersTimeOut() {
        SingleInstance instance;
        instance.setPeerTimeout(200ms);
        QCOMPARE(instance.listen(), ListenResult::listening);

        QLocalSocket silent;
        QSignalSpy closed(&silent, &QLocalSocket::disconnected);
        silent.connectToServer(*SingleInstance::socketPath());
        QVERIFY(silent.waitForConnected(2000));
        silent.write("NBRQ\x01"); // a header begun and never finished
        QVERIFY(closed.wait(3000));
        QVERIFY(logged(u"no whole request in time"_s));
    }

    void clientGivesUpOnASilentInstance() {
        // A hung instance still accepts connections but never answers.
        QLocalServer hung;
        QVERIFY(hung.listen(*SingleInstance::socketPath()));
        QElapsedTimer clock;
        clock.start();
        const SingleInstance::ForwardResult result = SingleInstance::forward(request(Action::quit), 300ms);
        QCOMPARE(result.delivery, Delivery::failed);
        QVERIFY(result.error.contains(u"did not answer"));
        QVERIFY(clock.elapsed() < 2000);
    }

private:
    bool logged(const QString& part) const { return m_log.messages().join(u'\n').contains(part); }

    QTemporaryDir m_runtime;
    DebugLogCapture m_log;
};

QTEST_GUILESS_MAIN(SingleInstanceTest)
#include "tst_singleinstance.moc"
