#include "ScriptedUpstream.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace std::chrono_literals;
using Response = LocalHttpServer::Response;

namespace {

QByteArray chunk(const QString& content) {
    const QJsonObject choice{{QStringLiteral("delta"), QJsonObject{{QStringLiteral("content"), content}}}};
    const QJsonObject object{{QStringLiteral("choices"), QJsonArray{choice}}};
    return "data: " + QJsonDocument(object).toJson(QJsonDocument::Compact) + "\n\n";
}

} // namespace

ScriptedUpstream::ScriptedUpstream() {
    m_server.route("POST", "/v1/chat/completions", [](const LocalHttpServer::Request& request) {
        const QString model = QJsonDocument::fromJson(request.body).object().value(u"model").toString();
        if (model == u"fail")
            return Response::whole(500, R"({"error":{"message":"the model is overloaded"}})");
        if (model == u"stall") {
            Response stalled = Response::streamed({chunk(QStringLiteral("Thinking")), "data: [DONE]\n\n"});
            stalled.pieces[1].delay = 3s;
            return stalled;
        }
        QByteArray body = ": keep-alive comment\n\n";
        for (const char* piece :
             {"A bank is ", "sloping land.\n[[CON", "TEXT]]\n", "Here: ", "the river side."})
            body += chunk(QString::fromUtf8(piece));
        body += "data: [DONE]\n\n";
        // Cut at odd places so that lines arrive in several reads.
        QList<QByteArray> pieces;
        for (qsizetype at = 0; at < body.size(); at += 7)
            pieces.append(body.mid(at, 7));
        return Response::streamed(pieces);
    });
    m_server.start();
}

std::string ScriptedUpstream::baseUrl() const {
    return m_server.url().toString().toStdString() + "/v1";
}

QJsonObject ScriptedUpstream::lastRequest() const {
    const auto requests = m_server.requests();
    return requests.empty() ? QJsonObject() : QJsonDocument::fromJson(requests.back().body).object();
}

std::string ScriptedUpstream::lastAuthorization() const {
    const auto requests = m_server.requests();
    return requests.empty() ? std::string() : requests.back().header("authorization").toStdString();
}
