#pragma once

#include <QDateTime>
#include <QString>

#include <cstdint>

// One finished lookup as the history keeps it. `id` is 0 until the record has been stored.
struct HistoryRecord {
    std::int64_t id = 0;
    QDateTime createdAt;
    QString selectedText;
    QString contextBefore;
    QString contextAfter;
    QString gloss;
    QString contextualMeaning;
    QString sourceApp;
    QString style;  // the wire value of the style, e.g. "language_learning"
    QString length; // the raw value of the length
    QString model;
    // Reported by the service, only stored and shown. The database column is 32-bit, so a value
    // outside that range is clamped when stored.
    std::int64_t creditsCost = 0;

    friend bool operator==(const HistoryRecord&, const HistoryRecord&) = default;
};
