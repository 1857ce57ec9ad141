#include "NubraCore/Lookup/LookupHistory.h"

#include "NubraCore/History/HistoryStore.h"
#include "NubraCore/Lookup/SelectionLimit.h"
#include "NubraCore/Support/DebugLog.h"

namespace LookupHistory {

HistoryRecord record(const GlossRequest& request, const GlossResult& result, const QDateTime& finishedAt) {
    HistoryRecord record;
    record.createdAt = finishedAt;
    record.selectedText = request.selectedText();
    record.contextBefore = SelectionLimit::prefix(request.contextBefore(), ContextCharacters);
    record.contextAfter = SelectionLimit::prefix(request.contextAfter(), ContextCharacters);
    record.gloss = result.gloss;
    record.contextualMeaning = result.contextualMeaning;
    record.sourceApp = request.sourceApp().value_or(QString());
    record.style = request.style();
    record.length = request.length();
    record.model = QString::fromLatin1(ModelLabel);
    record.creditsCost = result.creditsCost;
    return record;
}

Outcome persist(HistoryStore& store, bool recordHistory, int historyLimit, const GlossRequest& request,
                const GlossResult& result, const QDateTime& finishedAt) {
    if (!recordHistory || result.gloss.isEmpty())
        return Outcome::skipped;
    Outcome outcome = Outcome::stored;
    try {
        store.insert(record(request, result, finishedAt));
    } catch (const HistoryStoreError& error) {
        nbDebug(QStringLiteral("history: insert failed: ") + error.message());
        outcome = Outcome::failed;
    }
    // Trimmed even after a failed insert: a lowered limit still takes effect.
    try {
        store.enforceLimit(historyLimit);
    } catch (const HistoryStoreError& error) {
        nbDebug(QStringLiteral("history: trim failed: ") + error.message());
    }
    return outcome;
}

} // namespace LookupHistory
