#pragma once

#include <QJsonObject>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace httplib {
class Server;
}

// An OpenAI-compatible chat-completions endpoint on loopback whose answer the request's model picks:
// "ok" streams a scripted answer in awkward pieces, "fail" answers 500, "stall" sends one piece and
// then nothing (for at most a few seconds, or until released).
class ScriptedUpstream {
public:
    ScriptedUpstream();
    ~ScriptedUpstream();

    std::string baseUrl() const; // with the /v1 prefix
    QJsonObject lastRequest() const;
    std::string lastAuthorization() const;

    static const char* const answerPieces[];

private:
    std::unique_ptr<httplib::Server> m_server;
    int m_port = 0;
    std::thread m_thread;
    std::atomic<bool> m_release{false};
    mutable std::mutex m_mutex;
    QJsonObject m_lastRequest;
    std::string m_lastAuthorization;
};
