#pragma once

#include "NubraGlossd/Backend.h"

// Streams the same short answer for every lookup. The load benchmark measures the server's own cost
// with it, beside the WordNet backend in the same run.
class FixedBackend : public Backend {
public:
    QString modelName(const GlossRequest& request) const override;
    BackendOutcome gloss(const GlossRequest& request, EventSink& sink) override;
};
