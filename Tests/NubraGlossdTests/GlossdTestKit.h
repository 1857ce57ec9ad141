#pragma once

#include "NubraCore/Service/SSEEvent.h"
#include "NubraGlossd/GlossServer.h"

#include <QJsonObject>

#include <atomic>
#include <chrono>
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

// Sends `request` in one write over a fresh connection from the loopback address `from` and returns
// everything the service answers until it closes the connection (or 10 s pass without a byte).
std::string exchange(int port, const std::string& request, const std::string& from = "127.0.0.1");

// Clients that never finish a request: one per address in `from`, each sends a header line every
// `interval` and, when the service ends its connection, opens a new one at once.
class SlowClients {
public:
    SlowClients(int port, const std::vector<std::string>& from, std::chrono::milliseconds interval);
    ~SlowClients();

    // Whether every client has a connection open and a line sent, within 10 s.
    bool waitUntilConnected() const;
    // How many connections the service has ended so far.
    int cut() const { return m_cut; }

private:
    void run(const std::string& from);

    int m_port;
    std::chrono::milliseconds m_interval;
    std::atomic<bool> m_stop{false};
    std::atomic<int> m_connected{0};
    std::atomic<int> m_cut{0};
    std::vector<std::thread> m_threads;
};

// `count` distinct loopback addresses other than 127.0.0.1, so the service sees distinct clients.
std::vector<std::string> loopbackAddresses(int count);

// The events of a whole event-stream body as the app's client decodes them.
std::vector<SSEEvent> decodeEvents(const std::string& body);

// A well-formed lookup body with one member replaced (or removed when `value` is undefined).
std::string glossBody(const QString& key = {}, const QJsonValue& value = QJsonValue::Undefined,
                      const QString& text = QStringLiteral("word"));
