#include "NubraGlossd/SSEWriter.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace SSEWriter {

namespace {

// Compact JSON never contains a raw line break, so one "data:" line always carries the whole object.
std::string block(const char* name, const QJsonObject& object) {
    const QByteArray json = QJsonDocument(object).toJson(QJsonDocument::Compact);
    std::string text = "event: ";
    text += name;
    text += "\ndata: ";
    text.append(json.constData(), std::size_t(json.size()));
    text += "\n\n";
    return text;
}

} // namespace

std::string meta(const QString& model, std::int64_t estimatedCost, std::int64_t creditsRemaining) {
    return block("meta", {{QStringLiteral("model"), model},
                          {QStringLiteral("estimated_cost"), qint64(estimatedCost)},
                          {QStringLiteral("credits_remaining"), qint64(creditsRemaining)}});
}

std::string delta(const QString& field, const QString& text) {
    return block("delta", {{QStringLiteral("field"), field}, {QStringLiteral("text"), text}});
}

std::string done(const GlossResult& result) {
    return block("done", result.toJson());
}

std::string error(const QString& code, const QString& message) {
    return block("error", {{QStringLiteral("code"), code}, {QStringLiteral("message"), message}});
}

} // namespace SSEWriter
