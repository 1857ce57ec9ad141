#pragma once

// A card controller wired to a real AppState whose gloss service is a scripted local server.

#include "NubraApp/Foundation/AppState.h"
#include "NubraApp/Overlay/OverlayController.h"
#include "NubraCore/Service/SecretStore.h"
#include "NubraCore/Support/Defaults.h"
#include "NubraPlatform/fake/FakeDesktop.h"
#include "TestSupport/DebugLogCapture.h"
#include "TestSupport/LocalHttpServer.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QTemporaryDir>
#include <QThreadPool>

#include <deque>
#include <mutex>

namespace sse {

inline QByteArray block(const char* name, const QJsonObject& data) {
    return "event: " + QByteArray(name) + "\ndata: " + QJsonDocument(data).toJson(QJsonDocument::Compact) +
           "\n\n";
}
inline QByteArray meta() {
    return block("meta", {{u"model"_qs, u"m"_qs}, {u"estimated_cost"_qs, 1}, {u"credits_remaining"_qs, 9}});
}
inline QByteArray delta(const QString& field, const QString& text) {
    return block("delta", {{u"field"_qs, field}, {u"text"_qs, text}});
}
inline QByteArray done(const QString& gloss, const QString& meaning, int cost = 1) {
    return block("done", {{u"gloss"_qs, gloss},
                          {u"contextual_meaning"_qs, meaning},
                          {u"credits_cost"_qs, cost},
                          {u"credits_remaining"_qs, 8},
                          {u"cached"_qs, false}});
}
inline QByteArray error(const QString& code, const QString& message) {
    return block("error", {{u"code"_qs, code}, {u"message"_qs, message}});
}

} // namespace sse

class OverlayTestKit {
public:
    using Response = LocalHttpServer::Response;

    OverlayTestKit() {
        server.route("POST", "/v1/gloss", [this](const LocalHttpServer::Request&) {
            std::lock_guard lock(m_mutex);
            if (m_script.empty())
                return Response::whole(500, "{}");
            Response next = m_script.front();
            m_script.pop_front();
            return next;
        });
        server.start();
        state =
            std::make_unique<AppState>(defaults, secrets, server.url(), dir.filePath(u"history.sqlite3"_qs));
        controller = std::make_unique<OverlayController>(desktop.frontApplications, desktop.screen);
    }

    ~OverlayTestKit() {
        controller.reset();
        // The state's credential read runs on the pool and uses `secrets`.
        QThreadPool::globalInstance()->waitForDone();
        state.reset();
        // Idle keep-alive connections would hold the server's shutdown for a second.
        nubraDirectSession()->clearConnectionCache();
        server.stop();
    }

    // The answer to the next lookup.
    void answer(Response response) {
        std::lock_guard lock(m_mutex);
        m_script.push_back(std::move(response));
    }
    void answer(QList<QByteArray> pieces,
                LocalHttpServer::Ending ending = LocalHttpServer::Ending::complete) {
        answer(Response::streamed(std::move(pieces), ending));
    }

    SelectionSnapshot snapshot(const QString& text, QRectF bounds = {700, 500, 40, 16}) const {
        return {text, u"before "_qs, u" after"_qs, u"Editor"_qs, bounds};
    }

    // show + request, as the capture pipeline does.
    void trigger(const QString& text) {
        controller->show(snapshot(text));
        controller->request(*state);
    }

    DebugLogCapture log;
    QTemporaryDir dir;
    InMemoryDefaults defaults;
    InMemorySecretStore secrets;
    LocalHttpServer server;
    FakeDesktop desktop;
    std::unique_ptr<AppState> state;
    std::unique_ptr<OverlayController> controller;

private:
    std::mutex m_mutex;
    std::deque<Response> m_script;
};
