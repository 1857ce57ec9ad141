#pragma once

#include "NubraCore/History/HistoryRecord.h"
#include "NubraCore/Vocabulary/Models.h"

#include <QDateTime>

class HistoryStore;

// How a finished lookup is written into the history, the same for the card and the command line.
namespace LookupHistory {

// Of each context text only this many user-perceived characters are kept.
inline constexpr int ContextCharacters = 50;
// The model label every stored lookup carries.
inline constexpr const char* ModelLabel = "cloud";

// The record of a finished lookup (id 0): texts, style and length as sent, context cut, the result's
// explanation and cost.
HistoryRecord record(const GlossRequest& request, const GlossResult& result, const QDateTime& finishedAt);

enum class Outcome {
    skipped, // recording is off or there is no explanation: nothing attempted
    stored,
    failed, // the insert failed; the lookup is simply not in the history
};

// Inserts the record and trims the history to `historyLimit`. Store errors are logged, never thrown.
// Listeners of the history are told about every outcome but `skipped`.
Outcome persist(HistoryStore& store, bool recordHistory, int historyLimit, const GlossRequest& request,
                const GlossResult& result, const QDateTime& finishedAt);

} // namespace LookupHistory
