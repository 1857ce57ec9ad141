#include "NubraCore/Vocabulary/Models.h"

#include "NubraCore/Support/JsonNumber.h"

#include <QJsonValue>
#include <QUuid>

QString wireValue(GlossStyle style) {
    return style == GlossStyle::languageLearning ? QStringLiteral("language_learning") : rawValue(style);
}

GlossRequest::GlossRequest(QString selectedText, QString contextBefore, QString contextAfter,
                           std::optional<QString> sourceApp, GlossStyle style, GlossLength length,
                           QString lang, ModelTier modelTier, QString requestId)
    : m_selectedText(std::move(selectedText)), m_contextBefore(std::move(contextBefore)),
      m_contextAfter(std::move(contextAfter)), m_sourceApp(std::move(sourceApp)), m_style(wireValue(style)),
      m_length(rawValue(length)), m_lang(std::move(lang)), m_modelTier(rawValue(modelTier)),
      m_requestId(std::move(requestId)) {}

QString GlossRequest::newRequestId() {
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

QJsonObject GlossRequest::toJson() const {
    QJsonObject object{
        {QStringLiteral("selected_text"), m_selectedText},
        {QStringLiteral("context_before"), m_contextBefore},
        {QStringLiteral("context_after"), m_contextAfter},
        {QStringLiteral("style"), m_style},
        {QStringLiteral("length"), m_length},
        {QStringLiteral("lang"), m_lang},
        {QStringLiteral("model_tier"), m_modelTier},
        {QStringLiteral("request_id"), m_requestId},
    };
    if (m_sourceApp)
        object.insert(QStringLiteral("source_app"), *m_sourceApp);
    return object;
}

std::optional<GlossResult> GlossResult::fromJson(const QJsonObject& object) {
    const QJsonValue gloss = object.value(u"gloss");
    const QJsonValue meaning = object.value(u"contextual_meaning");
    const QJsonValue cached = object.value(u"cached");
    const auto cost = jsonWholeNumber(object.value(u"credits_cost"));
    const auto remaining = jsonWholeNumber(object.value(u"credits_remaining"));
    if (!gloss.isString() || !meaning.isString() || !cached.isBool() || !cost || !remaining)
        return std::nullopt;

    GlossResult result;
    result.gloss = gloss.toString();
    result.contextualMeaning = meaning.toString();
    result.creditsCost = *cost;
    result.creditsRemaining = *remaining;
    result.cached = cached.toBool();

    const QJsonValue language = object.value(u"language");
    if (language.isString())
        result.language = language.toString();
    else if (!language.isUndefined() && !language.isNull())
        return std::nullopt;
    return result;
}

QJsonObject GlossResult::toJson() const {
    QJsonObject object{
        {QStringLiteral("gloss"), gloss},
        {QStringLiteral("contextual_meaning"), contextualMeaning},
        {QStringLiteral("credits_cost"), qint64(creditsCost)},
        {QStringLiteral("credits_remaining"), qint64(creditsRemaining)},
        {QStringLiteral("cached"), cached},
    };
    if (language)
        object.insert(QStringLiteral("language"), *language);
    return object;
}
