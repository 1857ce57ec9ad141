#pragma once

#include "NubraCore/Vocabulary/Models.h"

#include <QString>

#include <variant>

// Where a backend sends text as it becomes ready.
class EventSink {
public:
    virtual ~EventSink() = default;
    // False once the client has gone or the server is stopping: the backend then gives up at once.
    virtual bool delta(const QString& field, const QString& text) = 0;
};

struct BackendError {
    QString code;
    QString message;
};

using BackendOutcome = std::variant<GlossResult, BackendError>;

// One way of explaining a selection. Called from the server's worker threads, concurrently.
class Backend {
public:
    virtual ~Backend() = default;
    virtual QString modelName(const GlossRequest& request) const = 0;
    // Streams the explanation through `sink` and returns the whole result, or why it failed.
    virtual BackendOutcome gloss(const GlossRequest& request, EventSink& sink) = 0;
    // The server is stopping: end running lookups promptly.
    virtual void shutdown() {}
};
