#include "NubraCore/Update/UpdateManifest.h"

#include "NubraCore/Vocabulary/L10n.h"

#include <QJsonDocument>

#include <string_view>
#include <utility>

namespace {

// The optional text members, in their order on the wire.
constexpr std::pair<std::u16string_view, std::optional<QString> UpdateManifest::*> optionalTexts[] = {
    {u"version", &UpdateManifest::version},
    {u"notes", &UpdateManifest::notes},
    {u"url", &UpdateManifest::url},
    {u"sha256", &UpdateManifest::sha256},
    {u"signature", &UpdateManifest::signature},
    {u"version_signature", &UpdateManifest::versionSignature},
};

// The notes as a language-to-text table, when they are one: a JSON object whose values are all texts.
std::optional<QJsonObject> notesTable(const QString& notes) {
    const QJsonDocument document = QJsonDocument::fromJson(notes.toUtf8());
    if (!document.isObject())
        return std::nullopt;
    const QJsonObject table = document.object();
    for (const QJsonValue& value : table)
        if (!value.isString())
            return std::nullopt;
    return table;
}

} // namespace

DecodeResult<UpdateManifest> UpdateManifest::fromJson(const QJsonObject& object) {
    const QJsonValue available = object.value(u"available");
    if (available.isUndefined())
        return DecodingError::missingKey(QStringLiteral("available"));
    if (!available.isBool())
        return DecodingError::typeMismatch(QStringLiteral("available"), QStringLiteral("a boolean"));

    UpdateManifest manifest;
    manifest.available = available.toBool();
    for (const auto& [key, member] : optionalTexts) {
        const QString name = QString::fromUtf16(key.data(), qsizetype(key.size()));
        const QJsonValue value = object.value(name);
        if (value.isUndefined() || value.isNull())
            continue; // null reads as absent, like a missing member
        if (!value.isString())
            return DecodingError::typeMismatch(name, QStringLiteral("a string"));
        manifest.*member = value.toString();
    }
    return manifest;
}

std::optional<QString> UpdateManifest::localizedNotes() const {
    if (!notes)
        return std::nullopt;
    const std::optional<QJsonObject> table = notesTable(*notes);
    if (!table)
        return notes;
    const QString language = L10n::language();
    if (table->contains(language))
        return table->value(language).toString();
    if (table->contains(u"en"))
        return table->value(u"en").toString();
    return notes;
}
