#include "NubraPlatform/wayland/CompositorWindows.h"

#include "NubraPlatform/wayland/KWinWindows.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtEndian>

#include <cerrno>
#include <chrono>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

// A local stream socket with a deadline for everything done on it.
class IpcSocket {
public:
    explicit IpcSocket(const QString& path)
        : m_deadline(Clock::now() + std::chrono::milliseconds(CompositorWindows::timeoutMs)) {
        const QByteArray name = path.toLocal8Bit();
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (name.isEmpty() || size_t(name.size()) >= sizeof address.sun_path)
            return;
        memcpy(address.sun_path, name.constData(), size_t(name.size()));
        m_fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (m_fd >= 0 && ::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 &&
            !(errno == EINPROGRESS && wait(POLLOUT))) {
            close(m_fd);
            m_fd = -1;
        }
    }
    ~IpcSocket() {
        if (m_fd >= 0)
            close(m_fd);
    }

    bool send(const QByteArray& bytes) {
        qsizetype sent = 0;
        while (m_fd >= 0 && sent < bytes.size()) {
            const ssize_t n =
                ::send(m_fd, bytes.constData() + sent, size_t(bytes.size() - sent), MSG_NOSIGNAL);
            if (n > 0)
                sent += n;
            else if (!(n < 0 && errno == EAGAIN && wait(POLLOUT)))
                return false;
        }
        return m_fd >= 0;
    }

    // Up to `count` bytes, or up to the end of the stream when `count` is negative (at most `limit`).
    std::optional<QByteArray> receive(qsizetype count, qsizetype limit) {
        QByteArray bytes;
        char chunk[16384];
        while (m_fd >= 0 && (count < 0 || bytes.size() < count)) {
            const size_t want =
                count < 0 ? sizeof chunk : std::min<size_t>(sizeof chunk, size_t(count - bytes.size()));
            const ssize_t n = recv(m_fd, chunk, want, 0);
            if (n == 0)
                return count < 0 ? std::optional(bytes) : std::nullopt;
            if (n < 0) {
                if (errno == EAGAIN && wait(POLLIN))
                    continue;
                return std::nullopt;
            }
            bytes.append(chunk, n);
            if (bytes.size() > limit)
                return std::nullopt;
        }
        return m_fd >= 0 ? std::optional(bytes) : std::nullopt;
    }

private:
    bool wait(short events) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(m_deadline - Clock::now()).count();
        pollfd ready{m_fd, events, 0};
        return left > 0 && poll(&ready, 1, int(left)) > 0;
    }

    Clock::time_point m_deadline;
    int m_fd = -1;
};

constexpr char swayMagic[] = "i3-ipc";
constexpr quint32 swayGetTree = 4;
constexpr qsizetype swayHeaderBytes = 6 + 4 + 4;

QRect rectOf(const QJsonValue& value) {
    const QJsonObject rect = value.toObject();
    return QRect(rect.value(u"x").toInt(), rect.value(u"y").toInt(), rect.value(u"width").toInt(),
                 rect.value(u"height").toInt());
}

std::optional<QJsonObject> focusedNode(const QJsonObject& node, int depth) {
    if (node.value(u"focused").toBool())
        return node;
    if (depth > 64) // deeper than any real tree
        return std::nullopt;
    for (const QString& key : {QStringLiteral("nodes"), QStringLiteral("floating_nodes")}) {
        const QJsonArray children = node.value(key).toArray();
        for (const QJsonValue child : children) {
            if (std::optional<QJsonObject> found = focusedNode(child.toObject(), depth + 1))
                return found;
        }
    }
    return std::nullopt;
}

} // namespace

CompositorWindows::CompositorWindows() {
    const bool plasma = qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(u':').contains(u"KDE");
    if (plasma && !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        m_kwin = std::make_unique<KWinWindows>();
}

CompositorWindows::~CompositorWindows() = default;

std::optional<CompositorWindows::Window> CompositorWindows::parseSwayTree(const QByteArray& reply) {
    const QJsonDocument document = QJsonDocument::fromJson(reply);
    if (!document.isObject())
        return std::nullopt;
    const std::optional<QJsonObject> node = focusedNode(document.object(), 0);
    // A window has a pid (sway) or an X11 window id (i3); a focused workspace (an empty desktop) or a
    // focused split has neither.
    if (!node || !(node->contains(u"pid") || node->value(u"window").isDouble()))
        return std::nullopt;
    const QRect outer = rectOf(node->value(u"rect"));
    const QRect content = rectOf(node->value(u"window_rect"));
    if (content.isEmpty())
        return std::nullopt;
    const QString appId = node->value(u"app_id").toString();
    return Window{content.translated(outer.topLeft()), node->value(u"pid").toInteger(),
                  appId.isEmpty() ? node->value(u"window_properties").toObject().value(u"class").toString()
                                  : appId};
}

std::optional<CompositorWindows::Window>
CompositorWindows::parseHyprlandActiveWindow(const QByteArray& reply) {
    const QJsonObject window = QJsonDocument::fromJson(reply).object();
    const QJsonArray at = window.value(u"at").toArray();
    const QJsonArray size = window.value(u"size").toArray();
    if (at.size() != 2 || size.size() != 2)
        return std::nullopt;
    const QRect rect(at.at(0).toInt(), at.at(1).toInt(), size.at(0).toInt(), size.at(1).toInt());
    if (rect.isEmpty())
        return std::nullopt;
    return Window{rect, window.value(u"pid").toInteger(), window.value(u"class").toString()};
}

std::optional<QByteArray> CompositorWindows::askSway(const QString& socketPath, quint32 type,
                                                     const QByteArray& payload) {
    IpcSocket socket(socketPath);
    QByteArray request(swayMagic, 6);
    quint32 header[2] = {qToLittleEndian(quint32(payload.size())), qToLittleEndian(type)};
    request.append(reinterpret_cast<const char*>(header), sizeof header);
    request.append(payload);
    if (!socket.send(request))
        return std::nullopt;
    const std::optional<QByteArray> head = socket.receive(swayHeaderBytes, swayHeaderBytes);
    if (!head || !head->startsWith(swayMagic))
        return std::nullopt;
    // i3's IPC speaks the machine's byte order; so does sway.
    const quint32 length = qFromUnaligned<quint32>(head->constData() + 6);
    if (length > quint32(maxReplyBytes))
        return std::nullopt;
    return socket.receive(qsizetype(length), maxReplyBytes);
}

std::optional<QByteArray> CompositorWindows::askHyprland(const QString& socketPath,
                                                         const QByteArray& request) {
    IpcSocket socket(socketPath);
    if (!socket.send(request))
        return std::nullopt;
    return socket.receive(-1, maxReplyBytes);
}

std::optional<CompositorWindows::Window> CompositorWindows::focusedWindow() const {
    for (const char* variable : {"SWAYSOCK", "I3SOCK"}) {
        const QString path = qEnvironmentVariable(variable);
        if (!path.isEmpty()) {
            const std::optional<QByteArray> reply = askSway(path, swayGetTree);
            return reply ? parseSwayTree(*reply) : std::nullopt;
        }
    }
    const QString hyprland = hyprlandSocket();
    if (!hyprland.isEmpty()) {
        const std::optional<QByteArray> reply = askHyprland(hyprland, QByteArrayLiteral("j/activewindow"));
        return reply ? parseHyprlandActiveWindow(*reply) : std::nullopt;
    }
    return m_kwin ? m_kwin->activeWindow() : std::nullopt;
}

QString CompositorWindows::hyprlandSocket() {
    const QString signature = qEnvironmentVariable("HYPRLAND_INSTANCE_SIGNATURE");
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (signature.isEmpty() || runtime.isEmpty() || signature.contains(u'/'))
        return {};
    return runtime + QStringLiteral("/hypr/") + signature + QStringLiteral("/.socket.sock");
}

std::optional<QRect> CompositorWindows::focusedWindowRect() const {
    const std::optional<Window> window = focusedWindow();
    return window ? std::optional(window->rect) : std::nullopt;
}
