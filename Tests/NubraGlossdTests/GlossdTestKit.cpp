#include "GlossdTestKit.h"

#include "NubraCore/Service/SSEDecoder.h"

#include <QJsonDocument>
#include <QTcpSocket>

#include <httplib.h>

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

std::string exchange(int port, const std::string& request) {
    QTcpSocket socket;
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
