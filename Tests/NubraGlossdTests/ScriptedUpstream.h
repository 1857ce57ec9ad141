#pragma once

#include "TestSupport/LocalHttpServer.h"

#include <QJsonObject>

#include <string>

// An OpenAI-compatible chat-completions endpoint on loopback whose answer the request's model picks:
// "ok" streams a scripted answer in awkward pieces, "fail" answers 500, "stall" sends one piece and
// then nothing (for a few seconds, or until the upstream is destroyed).
class ScriptedUpstream {
public:
    ScriptedUpstream();

    std::string baseUrl() const; // with the /v1 prefix
    QJsonObject lastRequest() const;
    std::string lastAuthorization() const;

private:
    LocalHttpServer m_server;
};
