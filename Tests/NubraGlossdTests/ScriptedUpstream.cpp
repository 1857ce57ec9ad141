#include "ScriptedUpstream.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <httplib.h>

const char* const ScriptedUpstream::answerPieces[] = {"A bank is ", "sloping land.\n[[CON", "TEXT]]\n",
                                                      "Here: ",     "the river side.",      nullptr};

namespace {

std::string chunk(const std::string& content) {
    const QJsonObject delta{{QStringLiteral("content"), QString::fromStdString(content)}};
    const QJsonObject choice{{QStringLiteral("delta"), delta}};
    const QJsonObject object{{QStringLiteral("choices"), QJsonArray{choice}}};
    return "data: " + QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString() + "\n\n";
}

} // namespace

ScriptedUpstream::ScriptedUpstream() : m_server(std::make_unique<httplib::Server>()) {
    m_server->Post("/v1/chat/completions", [this](const httplib::Request& req, httplib::Response& res) {
        const QJsonObject body = QJsonDocument::fromJson(QByteArray::fromStdString(req.body)).object();
        {
            std::lock_guard lock(m_mutex);
            m_lastRequest = body;
            m_lastAuthorization = req.get_header_value("Authorization");
        }
        const QString model = body.value(u"model").toString();
        if (model == u"fail") {
            res.status = 500;
            res.set_content(R"({"error":{"message":"the model is overloaded"}})", "application/json");
            return;
        }
        const bool stall = model == u"stall";
        res.set_chunked_content_provider(
            "text/event-stream", [this, stall](std::size_t, httplib::DataSink& sink) {
                if (stall) {
                    const std::string first = chunk("Thinking");
                    sink.write(first.data(), first.size());
                    for (int i = 0; i < 300 && !m_release; ++i)
                        std::this_thread::sleep_for(std::chrono::milliseconds(10));
                    sink.done();
                    return true;
                }
                std::string body = ": keep-alive comment\n\n";
                for (const char* const* piece = answerPieces; *piece; ++piece)
                    body += chunk(*piece);
                body += "data: [DONE]\n\n";
                // Cut at odd places so that lines arrive in several reads.
                for (std::size_t at = 0; at < body.size(); at += 7)
                    sink.write(body.data() + at, std::min<std::size_t>(7, body.size() - at));
                sink.done();
                return true;
            });
    });
    m_port = m_server->bind_to_any_port("127.0.0.1");
    m_thread = std::thread([this] { m_server->listen_after_bind(); });
    // Stopping a server that has not started listening yet would leave its thread waiting forever.
    while (!m_server->is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

ScriptedUpstream::~ScriptedUpstream() {
    m_release = true;
    m_server->stop();
    m_thread.join();
}

std::string ScriptedUpstream::baseUrl() const {
    return "http://127.0.0.1:" + std::to_string(m_port) + "/v1";
}

QJsonObject ScriptedUpstream::lastRequest() const {
    std::lock_guard lock(m_mutex);
    return m_lastRequest;
}

std::string ScriptedUpstream::lastAuthorization() const {
    std::lock_guard lock(m_mutex);
    return m_lastAuthorization;
}
