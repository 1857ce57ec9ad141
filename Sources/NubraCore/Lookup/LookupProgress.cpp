#include "NubraCore/Lookup/LookupProgress.h"

#include "NubraCore/Lookup/FriendlyError.h"

void LookupProgress::start() {
    m_gloss.clear();
    m_contextualMeaning.clear();
    m_result.reset();
    m_errorMessage.reset();
    m_loading = true;
}

void LookupProgress::refuse(const QString& message) {
    m_gloss.clear();
    m_contextualMeaning.clear();
    m_result.reset();
    m_loading = false;
    m_errorMessage = message;
}

std::optional<GlossResult> LookupProgress::apply(const SSEEvent& event) {
    if (const auto* delta = event.as<SSEEvent::Delta>()) {
        // Any field but the explanation itself continues the contextual meaning.
        (delta->field == u"gloss" ? m_gloss : m_contextualMeaning) += delta->text;
    } else if (const auto* done = event.as<SSEEvent::Done>()) {
        m_gloss = done->result.gloss;
        m_contextualMeaning = done->result.contextualMeaning;
        m_loading = false;
        m_result = done->result;
        return done->result;
    } else if (const auto* error = event.as<SSEEvent::Error>()) {
        m_loading = false;
        m_errorMessage = FriendlyError::apply(error->code, error->message);
    }
    return std::nullopt;
}

void LookupProgress::fail(const GlossAPIError& error) {
    m_loading = false;
    m_errorMessage = FriendlyError::apply(QStringLiteral("NETWORK"), error.errorDescription());
}

void LookupProgress::end() {
    m_loading = false;
}
