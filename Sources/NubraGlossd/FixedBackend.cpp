#include "NubraGlossd/FixedBackend.h"

QString FixedBackend::modelName(const GlossRequest&) const {
    return QStringLiteral("fixed");
}

BackendOutcome FixedBackend::gloss(const GlossRequest& request, EventSink& sink) {
    GlossResult result;
    result.gloss = request.selectedText() + QStringLiteral(": a fixed answer.");
    result.contextualMeaning = QStringLiteral("The same in every context.");
    result.language = QStringLiteral("en");
    if (!sink.delta(QStringLiteral("gloss"), result.gloss) ||
        !sink.delta(QStringLiteral("contextual_meaning"), result.contextualMeaning))
        return BackendError{QStringLiteral("CANCELLED"), QStringLiteral("The lookup was cancelled.")};
    return result;
}
