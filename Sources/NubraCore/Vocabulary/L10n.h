#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// Chooses which half of a Chinese/English text pair the user sees. The choice follows the user's
// preferred languages in the operating system; a process-wide override wins when set.
namespace L10n {

// "zh" or "en" for the system's preferred languages, or the override when one is set. Resolved on
// every call, so a change of the system preference shows at the next read.
QString language();

bool isZh();

// The Chinese text when the interface language is "zh", the English text otherwise.
QString t(const QString& en, const QString& zh);

std::optional<QString> override();
void setOverride(std::optional<QString> value);

// The rule behind language(): the first tag that begins with "zh" or "en" decides; "en" otherwise.
QString languageFrom(const QStringList& preferredLanguages);

} // namespace L10n
