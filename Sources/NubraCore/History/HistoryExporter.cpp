#include "NubraCore/History/HistoryExporter.h"

#include <QJsonValue>

namespace {

void appendUtf8(QByteArray& out, const QString& text) {
    out += text.toUtf8();
}

// Appends `text` as a JSON string: quotation mark, reverse solidus, solidus and control characters
// escaped, everything else as raw UTF-8. False when the text holds an unpaired surrogate, which has no
// UTF-8 form.
bool appendJsonString(QByteArray& out, const QString& text) {
    static constexpr char hex[] = "0123456789abcdef";
    out += '"';
    const char16_t* chars = reinterpret_cast<const char16_t*>(text.utf16());
    const qsizetype size = text.size();
    for (qsizetype i = 0; i < size; ++i) {
        const char16_t c = chars[i];
        if (c < 0x80) {
            switch (c) {
            case u'"':
                out += "\\\"";
                break;
            case u'\\':
                out += "\\\\";
                break;
            case u'/':
                out += "\\/";
                break;
            case u'\b':
                out += "\\b";
                break;
            case u'\f':
                out += "\\f";
                break;
            case u'\n':
                out += "\\n";
                break;
            case u'\r':
                out += "\\r";
                break;
            case u'\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    out += "\\u00";
                    out += hex[c >> 4];
                    out += hex[c & 0xF];
                } else {
                    out += char(c);
                }
            }
        } else if (c < 0x800) {
            out += char(0xC0 | (c >> 6));
            out += char(0x80 | (c & 0x3F));
        } else if (QChar::isHighSurrogate(c)) {
            if (i + 1 >= size || !QChar::isLowSurrogate(chars[i + 1]))
                return false;
            const char32_t u = QChar::surrogateToUcs4(c, chars[++i]);
            out += char(0xF0 | (u >> 18));
            out += char(0x80 | ((u >> 12) & 0x3F));
            out += char(0x80 | ((u >> 6) & 0x3F));
            out += char(0x80 | (u & 0x3F));
        } else if (QChar::isLowSurrogate(c)) {
            return false;
        } else {
            out += char(0xE0 | (c >> 12));
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        }
    }
    out += '"';
    return true;
}

// Whole seconds in UTC with "Z"; the fraction is dropped, not rounded.
QString isoSeconds(const QDateTime& time) {
    return time.toUTC().toString(Qt::ISODate);
}

bool appendJsonLine(QByteArray& out, const ExportRecord& r) {
    // Keys in sorted order.
    out += "{\"contextualMeaning\":";
    if (!appendJsonString(out, r.contextualMeaning))
        return false;
    out += ",\"createdAt\":";
    appendJsonString(out, isoSeconds(r.createdAt));
    out += ",\"creditsCost\":";
    out += QByteArray::number(qint64(r.creditsCost));
    out += ",\"gloss\":";
    if (!appendJsonString(out, r.gloss))
        return false;
    out += ",\"length\":";
    if (!appendJsonString(out, r.length))
        return false;
    out += ",\"model\":";
    if (!appendJsonString(out, r.model))
        return false;
    out += ",\"selectedText\":";
    if (!appendJsonString(out, r.selectedText))
        return false;
    out += ",\"sourceApp\":";
    if (!appendJsonString(out, r.sourceApp))
        return false;
    out += ",\"style\":";
    if (!appendJsonString(out, r.style))
        return false;
    out += '}';
    return true;
}

std::optional<QString> stringField(const QJsonObject& object, QLatin1StringView key) {
    const QJsonValue value = object.value(key);
    if (!value.isString())
        return std::nullopt;
    return value.toString();
}

} // namespace

ExportRecord ExportRecord::from(const HistoryRecord& record) {
    return {record.createdAt, record.selectedText, record.gloss, record.contextualMeaning, record.sourceApp,
            record.style,     record.length,       record.model, record.creditsCost};
}

std::optional<ExportRecord> ExportRecord::fromJson(const QJsonObject& object) {
    const auto created = stringField(object, QLatin1StringView("createdAt"));
    const auto selected = stringField(object, QLatin1StringView("selectedText"));
    const auto gloss = stringField(object, QLatin1StringView("gloss"));
    const auto meaning = stringField(object, QLatin1StringView("contextualMeaning"));
    const auto source = stringField(object, QLatin1StringView("sourceApp"));
    const auto style = stringField(object, QLatin1StringView("style"));
    const auto length = stringField(object, QLatin1StringView("length"));
    const auto model = stringField(object, QLatin1StringView("model"));
    const QJsonValue cost = object.value(QLatin1StringView("creditsCost"));
    if (!created || !selected || !gloss || !meaning || !source || !style || !length || !model ||
        !cost.isDouble())
        return std::nullopt;
    const double number = cost.toDouble();
    if (number != double(qint64(number)))
        return std::nullopt;
    const QDateTime date = QDateTime::fromString(*created, Qt::ISODate);
    if (!date.isValid() || !created->endsWith(u'Z'))
        return std::nullopt;
    return ExportRecord{date.toUTC(), *selected, *gloss, *meaning,      *source,
                        *style,       *length,   *model, qint64(number)};
}

QString DisplayDateFormatter::string(const QDateTime& time) const {
    return time.toTimeZone(m_zone).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

namespace HistoryExporter {

const DisplayDateFormatter& displayFormatter() {
    static const DisplayDateFormatter formatter(QTimeZone::systemTimeZone());
    return formatter;
}

QByteArray markdown(const QList<HistoryRecord>& records, const QDateTime& exportedAt) {
    const DisplayDateFormatter& dates = displayFormatter();
    QByteArray out;
    out.reserve(256 + records.size() * 512);
    // Every element of the document is followed by a line feed except the final, always empty one.
    out += "# Nubra 历史记录导出\n\n- 导出时间：";
    appendUtf8(out, dates.string(exportedAt));
    out += "\n- 共 " + QByteArray::number(records.size()) + " 条\n\n";

    qsizetype number = 0;
    for (const HistoryRecord& record : records) {
        out += "## " + QByteArray::number(++number) + ". ";
        QByteArray heading = record.selectedText.toUtf8();
        heading.replace('\n', ' ');
        out += heading;
        out += "\n\n- 时间：";
        appendUtf8(out, dates.string(record.createdAt));
        out += "\n- 来源：";
        if (record.sourceApp.isEmpty())
            out += "未知";
        else
            appendUtf8(out, record.sourceApp);
        out += "\n- 消耗：" + QByteArray::number(qint64(record.creditsCost)) + " 积分\n\n";
        appendUtf8(out, record.gloss);
        out += "\n\n";
    }
    out.chop(1);
    return out;
}

QByteArray jsonl(const QList<HistoryRecord>& records) {
    QByteArray out;
    out.reserve(records.size() * 512);
    for (const HistoryRecord& record : records) {
        const qsizetype lineStart = out.size();
        if (lineStart > 0)
            out += '\n';
        if (!appendJsonLine(out, ExportRecord::from(record)))
            out.truncate(lineStart); // skipped silently, separator included
    }
    return out;
}

QString suggestedFileName(Format format, const QDateTime& now) {
    QString stamp = displayFormatter().string(now);
    stamp.replace(u':', u'-');
    return QStringLiteral("Nubra-History-") + stamp + (format == Format::markdown ? u".md" : u".jsonl");
}

} // namespace HistoryExporter
