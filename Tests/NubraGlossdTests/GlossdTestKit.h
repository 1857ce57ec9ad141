#pragma once

#include "NubraCore/Service/SSEEvent.h"
#include "NubraGlossd/GlossServer.h"

#include <QJsonObject>

#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace httplib {
class Client;
}

// A service on a free loopback port, served from a thread of the test.
class RunningServer {
public:
    explicit RunningServer(ServerSetup setup);
    ~RunningServer();

    int port() const { return m_port; }
    std::unique_ptr<httplib::Client> client() const;
    void stop();

private:
    GlossServer m_server;
    int m_port = 0;
    std::thread m_thread;
};

// Sends `request` in one write over a fresh connection and returns everything the service answers
// until it closes the connection (or 10 s pass without a byte).
std::string exchange(int port, const std::string& request);

// The events of a whole event-stream body as the app's client decodes them.
std::vector<SSEEvent> decodeEvents(const std::string& body);

// A well-formed lookup body with one member replaced (or removed when `value` is undefined).
std::string glossBody(const QString& key = {}, const QJsonValue& value = QJsonValue::Undefined,
                      const QString& text = QStringLiteral("word"));
