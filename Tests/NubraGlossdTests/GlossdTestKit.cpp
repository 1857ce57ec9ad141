#include "GlossdTestKit.h"

#include "NubraCore/Service/SSEDecoder.h"

#include <QHostAddress>
#include <QJsonDocument>
#include <QTcpSocket>

#include <httplib.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <utility>

RunningServer::RunningServer(ServerSetup setup) : m_server(std::move(setup)) {
    m_port = m_server.bind("127.0.0.1", 0).value_or(0);
    m_thread = std::thread([this] { m_server.run(); });
    while (!m_server.isRunning())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

RunningServer::~RunningServer() {
    stop();
}

void RunningServer::stop() {
    if (!m_thread.joinable())
        return;
    m_server.stop();
    m_thread.join();
}

std::unique_ptr<httplib::Client> RunningServer::client() const {
    auto client = std::make_unique<httplib::Client>("127.0.0.1", m_port);
    client->set_read_timeout(std::chrono::seconds(10));
    return client;
}

std::string exchange(int port, const std::string& request, const std::string& from) {
    QTcpSocket socket;
    if (!socket.bind(QHostAddress(QString::fromStdString(from))))
        return {};
    socket.connectToHost(QStringLiteral("127.0.0.1"), quint16(port));
    if (!socket.waitForConnected(10000))
        return {};
    socket.write(request.data(), qint64(request.size()));
    socket.waitForBytesWritten(10000);
    QByteArray answer;
    while (socket.state() == QAbstractSocket::ConnectedState && socket.waitForReadyRead(10000))
        answer += socket.readAll();
    answer += socket.readAll();
    return answer.toStdString();
}

SlowClients::SlowClients(int port, const std::vector<std::string>& from, std::chrono::milliseconds interval)
    : m_port(port), m_interval(interval) {
    for (const std::string& address : from)
        m_threads.emplace_back([this, address] { run(address); });
}

SlowClients::~SlowClients() {
    m_stop = true;
    for (auto& thread : m_threads)
        thread.join();
}

bool SlowClients::waitUntilConnected() const {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (m_connected < int(m_threads.size()) && std::chrono::steady_clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return m_connected == int(m_threads.size());
}

void SlowClients::run(const std::string& from) {
    bool counted = false;
    while (!m_stop) {
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        inet_pton(AF_INET, from.c_str(), &local.sin_addr);
        sockaddr_in server{};
        server.sin_family = AF_INET;
        server.sin_port = htons(quint16(m_port));
        inet_pton(AF_INET, "127.0.0.1", &server.sin_addr);
        const auto send = [fd](const char* text) {
            return ::send(fd, text, std::strlen(text), MSG_NOSIGNAL) == ssize_t(std::strlen(text));
        };
        if (::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) == 0 &&
            ::connect(fd, reinterpret_cast<sockaddr*>(&server), sizeof server) == 0 &&
            send("POST /v1/gloss HTTP/1.1\r\nHost: x\r\n")) {
            if (!std::exchange(counted, true))
                ++m_connected;
            // The pace of the lines; an answer, or the end of the connection, ends the wait early.
            pollfd entry{fd, POLLIN, 0};
            while (!m_stop && ::poll(&entry, 1, int(m_interval.count())) == 0 && send("X-Slow: 1\r\n"))
                continue;
            if (!m_stop)
                ++m_cut;
        } else {
            std::this_thread::sleep_for(m_interval); // the service is not there (yet); try again
        }
        ::close(fd);
    }
}

std::vector<std::string> loopbackAddresses(int count) {
    std::vector<std::string> addresses;
    for (int i = 0; i < count; ++i)
        addresses.push_back("127.0.0." + std::to_string(10 + i));
    return addresses;
}

std::vector<SSEEvent> decodeEvents(const std::string& body) {
    SSEDecoder decoder;
    std::vector<SSEEvent> events = decoder.push(QByteArray::fromStdString(body));
    for (SSEEvent& event : decoder.finish())
        events.push_back(std::move(event));
    return events;
}

std::string glossBody(const QString& key, const QJsonValue& value, const QString& text) {
    // As the app's client writes it.
    QJsonObject body = GlossRequest(text, {}, {}, std::nullopt, GlossStyle::plain, GlossLength::short_,
                                    QStringLiteral("en"), ModelTier::fast)
                           .toJson();
    if (!key.isEmpty()) {
        if (value.isUndefined())
            body.remove(key);
        else
            body.insert(key, value);
    }
    return QJsonDocument(body).toJson(QJsonDocument::Compact).toStdString();
}
