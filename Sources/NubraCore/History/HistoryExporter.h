#pragma once

#include "NubraCore/History/HistoryRecord.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QTimeZone>

#include <optional>

// What one JSON Lines line holds for a record; id and context are not exported.
struct ExportRecord {
    QDateTime createdAt;
    QString selectedText;
    QString gloss;
    QString contextualMeaning;
    QString sourceApp;
    QString style;
    QString length;
    QString model;
    std::int64_t creditsCost = 0;

    static ExportRecord from(const HistoryRecord& record);
    // Reads a line back; every key must be present with its type, the date as whole-second ISO 8601.
    static std::optional<ExportRecord> fromJson(const QJsonObject& object);

    friend bool operator==(const ExportRecord&, const ExportRecord&) = default;
};

// Local wall-clock time as "yyyy-MM-dd HH:mm:ss", in the time zone the system had when the formatter
// was first used, with fixed digits whatever the user's locale.
class DisplayDateFormatter {
public:
    explicit DisplayDateFormatter(QTimeZone zone) : m_zone(std::move(zone)) {}
    QString string(const QDateTime& time) const;
    const QTimeZone& timeZone() const { return m_zone; }

private:
    QTimeZone m_zone;
};

// Formats history records as export files (UTF-8 bytes). Pure formatting: no I/O, no database.
namespace HistoryExporter {

enum class Format { markdown, jsonl };

// The shared display formatter, created on first use.
const DisplayDateFormatter& displayFormatter();

// A Chinese report in list order, ending with exactly one line feed.
QByteArray markdown(const QList<HistoryRecord>& records, const QDateTime& exportedAt);
// One JSON object per record, keys sorted, no blanks, lines joined by a line feed with none after the
// last; empty for no records. A record that is not valid Unicode is left out.
QByteArray jsonl(const QList<HistoryRecord>& records);

// "Nubra-History-<display time with ':' as '-'>.md" or ".jsonl".
QString suggestedFileName(Format format, const QDateTime& now);

} // namespace HistoryExporter
