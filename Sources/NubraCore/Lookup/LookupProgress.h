#pragma once

#include "NubraCore/Service/GlossAPIError.h"
#include "NubraCore/Service/SSEEvent.h"

#include <QString>

#include <optional>

// What the card shows of one lookup while its events arrive: the explanation and the contextual
// meaning as they grow, whether it is still loading, and the one message of a failure.
class LookupProgress {
public:
    const QString& gloss() const { return m_gloss; }
    const QString& contextualMeaning() const { return m_contextualMeaning; }
    bool isLoading() const { return m_loading; }
    const std::optional<QString>& errorMessage() const { return m_errorMessage; }
    // The final result, once a "done" event has arrived.
    const std::optional<GlossResult>& result() const { return m_result; }

    // A request has been sent: texts and message cleared, loading.
    void start();
    // A refused request (e.g. a selection over the limit): the message, not loading.
    void refuse(const QString& message);
    // Applies one event in arrival order. Returns the result of a "done" event, for the history.
    std::optional<GlossResult> apply(const SSEEvent& event);
    // The stream failed, however: loading ends with the network message.
    void fail(const GlossAPIError& error);
    // The stream ended normally, with or without a final event.
    void end();

private:
    QString m_gloss;
    QString m_contextualMeaning;
    bool m_loading = false;
    std::optional<QString> m_errorMessage;
    std::optional<GlossResult> m_result;
};
