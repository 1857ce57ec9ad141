#include "GlossdTestKit.h"

#include <QJsonDocument>

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

std::vector<Event> parseEvents(const std::string& body) {
    std::vector<Event> events;
    std::size_t at = 0;
    while (at < body.size()) {
        const std::size_t end = body.find("\n\n", at);
        const std::string block = body.substr(at, end == std::string::npos ? std::string::npos : end - at);
        at = end == std::string::npos ? body.size() : end + 2;
        std::string name;
        std::string data;
        std::size_t lineStart = 0;
        while (lineStart <= block.size()) {
            const std::size_t lineEnd = std::min(block.find('\n', lineStart), block.size());
            const std::string line = block.substr(lineStart, lineEnd - lineStart);
            if (line.rfind("event: ", 0) == 0)
                name = line.substr(7);
            else if (line.rfind("data: ", 0) == 0)
                data += line.substr(6);
            lineStart = lineEnd + 1;
        }
        events.emplace_back(name, QJsonDocument::fromJson(QByteArray::fromStdString(data)).object());
    }
    return events;
}

std::string glossBody(const QString& key, const QJsonValue& value, const QString& text) {
    QJsonObject body{{QStringLiteral("selected_text"), text},
                     {QStringLiteral("context_before"), QString()},
                     {QStringLiteral("context_after"), QString()},
                     {QStringLiteral("style"), QStringLiteral("plain")},
                     {QStringLiteral("length"), QStringLiteral("short")},
                     {QStringLiteral("lang"), QStringLiteral("en")},
                     {QStringLiteral("model_tier"), QStringLiteral("fast")},
                     {QStringLiteral("request_id"), QStringLiteral("R-1")}};
    if (!key.isEmpty()) {
        if (value.isUndefined())
            body.remove(key);
        else
            body.insert(key, value);
    }
    return QJsonDocument(body).toJson(QJsonDocument::Compact).toStdString();
}
