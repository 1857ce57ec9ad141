#pragma once

#include "NubraGlossd/Backend.h"

#include <QJsonObject>

#include <atomic>
#include <mutex>
#include <set>
#include <string>

namespace httplib {
class Client;
}

struct OpenAIConfig {
    std::string upstream; // e.g. https://api.openai.com/v1
    QString model;        // used for a tier without a model of its own
    QString fastModel;
    QString qualityModel;
    std::string apiKey; // never logged, only sent upstream
    int timeoutSeconds = 30;
};

// Any OpenAI-compatible chat-completions endpoint, streamed: each upstream token becomes a delta.
class OpenAIBackend : public Backend {
public:
    explicit OpenAIBackend(OpenAIConfig config);

    QString modelName(const GlossRequest& request) const override;
    BackendOutcome gloss(const GlossRequest& request, EventSink& sink) override;
    // Cuts every upstream transfer so that open lookups end now instead of at their timeout.
    void shutdown() override;

    static QJsonObject chatRequest(const GlossRequest& request, const QString& model);

private:
    OpenAIConfig m_config;
    std::string m_origin; // scheme, host and port of the upstream
    std::string m_path;   // the chat-completions path below it
    std::atomic<bool> m_stopping{false};
    std::mutex m_mutex;
    std::set<httplib::Client*> m_active;
};
