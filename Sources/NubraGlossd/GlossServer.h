#pragma once

#include "NubraGlossd/AccessLog.h"
#include "NubraGlossd/Backend.h"
#include "NubraGlossd/GuardedServer.h"
#include "NubraGlossd/RateLimiter.h"
#include "NubraGlossd/TokenRegistry.h"

#include <QJsonObject>

#include <atomic>
#include <memory>
#include <optional>
#include <string>

struct ServerSetup {
    std::unique_ptr<Backend> backend;
    std::unique_ptr<TokenRegistry> tokens; // none: no credential is required
    std::optional<QJsonObject> manifest;   // none: no update is offered
    // A folder of releases: its manifest.json, read at every request so a release published while the
    // service runs is offered at once, and its files under /releases/. Wins over `manifest`.
    std::optional<QString> releasesDir;
    int ratePerMinute = 0;     // lookups per device token, or per peer without tokens; 0: unlimited
    int refreshPerMinute = 10; // token refreshes per peer
    ConnectionLimits limits;
    std::FILE* accessLog = stderr;
};

// The HTTP side of the service: /v1/gloss, /v1/auth/refresh, /v1/updates/latest and, with a releases
// folder, the release files under /releases/.
class GlossServer {
public:
    explicit GlossServer(ServerSetup setup);
    ~GlossServer();

    // The port actually bound (port 0 picks a free one), or nothing.
    std::optional<int> bind(const std::string& host, int port);
    // Serves until stop(); returns once every open stream has ended.
    void run();
    bool isRunning() const;
    // Safe from any thread. Streams still open get an "error" event and end cleanly.
    void stop();

private:
    void installRoutes();

    ServerSetup m_setup;
    RateLimiter m_rateLimiter;
    RateLimiter m_refreshLimiter;
    AccessLog m_log;
    std::atomic<bool> m_stopping{false};
    std::unique_ptr<GuardedServer> m_server;
};
