#include "NubraGlossd/RequestValidator.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

namespace RequestValidator {

namespace {

std::variant<QJsonObject, QString> parseObject(std::string_view body) {
    if (body.size() > MaxBodyBytes)
        return QStringLiteral("The request body is larger than %1 bytes.").arg(MaxBodyBytes);
    QJsonParseError error{};
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray(body.data(), qsizetype(body.size())), &error);
    if (error.error != QJsonParseError::NoError)
        return QStringLiteral("The request body is not valid JSON: %1.").arg(error.errorString());
    if (!document.isObject())
        return QStringLiteral("The request body must be a JSON object.");
    return document.object();
}

// Reads one required string member; on failure `problem` says which and why.
QString member(const QJsonObject& object, const char* key, QString& problem) {
    const QJsonValue value = object.value(QLatin1String(key));
    if (problem.isEmpty() && value.isUndefined())
        problem = QStringLiteral("The member \"%1\" is missing.").arg(QLatin1String(key));
    else if (problem.isEmpty() && !value.isString())
        problem = QStringLiteral("The member \"%1\" must be a string.").arg(QLatin1String(key));
    return value.toString();
}

QString unknownValue(const char* key, const QString& value, const QStringList& allowed) {
    return QStringLiteral("Unknown %1 \"%2\"; expected one of: %3.")
        .arg(QLatin1String(key), value, allowed.join(QStringLiteral(", ")));
}

} // namespace

std::variant<GlossRequest, QString> glossRequest(std::string_view body) {
    auto parsed = parseObject(body);
    if (auto* problem = std::get_if<QString>(&parsed))
        return *problem;
    const QJsonObject object = std::get<QJsonObject>(parsed);

    QString problem;
    const QString selected = member(object, "selected_text", problem);
    const QString before = member(object, "context_before", problem);
    const QString after = member(object, "context_after", problem);
    const QString style = member(object, "style", problem);
    const QString length = member(object, "length", problem);
    const QString lang = member(object, "lang", problem);
    const QString tier = member(object, "model_tier", problem);
    const QString requestId = member(object, "request_id", problem);
    std::optional<QString> sourceApp;
    if (object.contains(u"source_app")) {
        if (!object.value(u"source_app").isString() && problem.isEmpty())
            problem = QStringLiteral("The member \"source_app\" must be a string.");
        sourceApp = object.value(u"source_app").toString();
    }
    if (!problem.isEmpty())
        return problem;
    if (selected.trimmed().isEmpty())
        return QStringLiteral("The member \"selected_text\" is empty.");

    std::optional<GlossStyle> glossStyle;
    QStringList styles;
    for (GlossStyle candidate : allCases<GlossStyle>()) {
        styles << wireValue(candidate);
        if (wireValue(candidate) == style)
            glossStyle = candidate;
    }
    if (!glossStyle)
        return unknownValue("style", style, styles);
    const auto glossLength = fromRawValue<GlossLength>(length);
    if (!glossLength)
        return unknownValue("length", length,
                            {QStringLiteral("short"), QStringLiteral("medium"), QStringLiteral("detailed")});
    const auto modelTier = fromRawValue<ModelTier>(tier);
    if (!modelTier)
        return unknownValue("model_tier", tier, {QStringLiteral("fast"), QStringLiteral("quality")});

    return GlossRequest(selected, before, after, sourceApp, *glossStyle, *glossLength, lang, *modelTier,
                        requestId);
}

std::variant<RefreshRequest, QString> refreshRequest(std::string_view body) {
    auto parsed = parseObject(body);
    if (auto* problem = std::get_if<QString>(&parsed))
        return *problem;
    const QJsonObject object = std::get<QJsonObject>(parsed);
    QString problem;
    RefreshRequest request{member(object, "refresh_token", problem), member(object, "device_id", problem)};
    if (!problem.isEmpty())
        return problem;
    return request;
}

} // namespace RequestValidator
