#include "NubraPlatform/wayland/CompositorWindows.h"

#include <QTemporaryDir>
#include <QTest>

#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

// A sway tree cut down to what matters: an output, a workspace, a tiled split and a floating window.
// Container rects include the title bar and borders; window_rect is the content, relative to rect.
QByteArray swayTree(bool focusTiled, bool focusFloating) {
    return QStringLiteral(R"({"id":1,"type":"root","rect":{"x":0,"y":0,"width":1280,"height":800},"nodes":[
      {"id":3,"type":"output","name":"HEADLESS-1","rect":{"x":0,"y":0,"width":1280,"height":800},"nodes":[
        {"id":4,"type":"workspace","name":"1","focused":%3,"rect":{"x":0,"y":0,"width":1280,"height":800},
         "nodes":[
           {"id":5,"type":"con","focused":false,"pid":100,"rect":{"x":0,"y":0,"width":640,"height":800},
            "window_rect":{"x":2,"y":25,"width":636,"height":773},"nodes":[]},
           {"id":6,"type":"con","layout":"splitv","rect":{"x":640,"y":0,"width":640,"height":800},"nodes":[
             {"id":7,"type":"con","focused":%1,"pid":200,"app_id":"foot","rect":{"x":640,"y":400,"width":640,"height":400},
              "window_rect":{"x":2,"y":25,"width":636,"height":373},"nodes":[]}]}],
         "floating_nodes":[
           {"id":8,"type":"floating_con","focused":%2,"pid":300,"app_id":null,
            "window_properties":{"class":"XTerm","instance":"xterm"},"rect":{"x":100,"y":120,"width":500,"height":300},
            "window_rect":{"x":0,"y":0,"width":500,"height":300},"nodes":[]}]}]}]})")
        .arg(focusTiled ? u"true" : u"false", focusFloating ? u"true" : u"false",
             !focusTiled && !focusFloating ? u"true" : u"false")
        .toUtf8();
}

// Serves one connection on a Unix socket with `reply` (nothing when empty: a compositor that hangs).
class FakeIpc {
public:
    explicit FakeIpc(QByteArray reply) {
        m_path = m_dir.filePath(QStringLiteral("ipc.sock")).toLocal8Bit();
        m_listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path, m_path.constData(), size_t(m_path.size()));
        bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
        listen(m_listener, 1);
        m_thread = std::thread([this, reply] {
            const int client = accept(m_listener, nullptr, nullptr);
            char request[64];
            if (read(client, request, sizeof request) > 0 && !reply.isEmpty()) [[maybe_unused]]
                const ssize_t sent = write(client, reply.constData(), size_t(reply.size()));
            char end;
            [[maybe_unused]] const ssize_t closed = read(client, &end, 1); // until the reader hangs up
            close(client);
        });
    }
    ~FakeIpc() {
        m_thread.join();
        close(m_listener);
    }
    QByteArray path() const { return m_path; }

private:
    QTemporaryDir m_dir;
    QByteArray m_path;
    int m_listener = -1;
    std::thread m_thread;
};

QByteArray swayMessage(const QByteArray& payload, quint32 length) {
    QByteArray message("i3-ipc");
    const quint32 header[2] = {length, 4};
    message.append(reinterpret_cast<const char*>(header), sizeof header);
    return message + payload;
}

} // namespace

class WaylandWindowsTest : public QObject {
    Q_OBJECT

private slots:
    void swayTreeGivesTheFocusedWindowsContent() {
        const auto tiled = CompositorWindows::parseSwayTree(swayTree(true, false));
        QVERIFY(tiled);
        QCOMPARE(tiled->rect, QRect(642, 425, 636, 373));
        QCOMPARE(tiled->pid, 200);
        QCOMPARE(tiled->appId, u"foot");
        const auto floating = CompositorWindows::parseSwayTree(swayTree(false, true));
        QVERIFY(floating);
        QCOMPARE(floating->rect, QRect(100, 120, 500, 300));
        QCOMPARE(floating->pid, 300);
        QCOMPARE(floating->appId, u"XTerm"); // an XWayland window has a class instead
        // i3 names the X11 window instead of a pid.
        const auto i3 = CompositorWindows::parseSwayTree(
            swayTree(true, false).replace(R"("pid":200)", R"("window":8388611)"));
        QVERIFY(i3);
        QCOMPARE(i3->rect, QRect(642, 425, 636, 373));
        QCOMPARE(i3->pid, 0);
        // A focused empty workspace is no window; neither is a reply that is not a tree.
        QVERIFY(!CompositorWindows::parseSwayTree(swayTree(false, false)));
        QVERIFY(!CompositorWindows::parseSwayTree("[1,2"));
    }

    void hyprlandActiveWindow() {
        const auto window = CompositorWindows::parseHyprlandActiveWindow(
            R"({"address":"0x55d0","at":[12,40],"size":[800,600],"workspace":{"id":1},"class":"kitty","pid":4242})");
        QVERIFY(window);
        QCOMPARE(window->rect, QRect(12, 40, 800, 600));
        QCOMPARE(window->pid, 4242);
        QCOMPARE(window->appId, u"kitty");
        QVERIFY(!CompositorWindows::parseHyprlandActiveWindow("{}")); // no window has focus
    }

    void swaySocketIsAskedAndItsReplyBounded() {
        const QByteArray tree = swayTree(true, false);
        {
            FakeIpc sway(swayMessage(tree, quint32(tree.size())));
            qputenv("SWAYSOCK", sway.path());
            QCOMPARE(CompositorWindows().focusedWindowRect(), std::optional(QRect(642, 425, 636, 373)));
        }
        {
            FakeIpc liar(swayMessage(tree, quint32(CompositorWindows::maxReplyBytes + 1)));
            qputenv("SWAYSOCK", liar.path());
            QVERIFY(!CompositorWindows().focusedWindow());
        }
        {
            FakeIpc silent{QByteArray()};
            qputenv("SWAYSOCK", silent.path());
            QElapsedTimer timer;
            timer.start();
            QVERIFY(!CompositorWindows().focusedWindow());
            QVERIFY(timer.elapsed() < CompositorWindows::timeoutMs + 300);
        }
        qunsetenv("SWAYSOCK");
    }
};

QTEST_GUILESS_MAIN(WaylandWindowsTest)
#include "tst_waylandwindows.moc"
