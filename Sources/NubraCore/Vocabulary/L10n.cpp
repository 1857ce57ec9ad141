#include "NubraCore/Vocabulary/L10n.h"

#include <QLocale>

#include <mutex>

namespace {

struct OverrideSlot {
    std::mutex lock;
    std::optional<QString> value;
};

OverrideSlot& overrideSlot() {
    static OverrideSlot slot; // created once, on first use
    return slot;
}

} // namespace

namespace L10n {

QString languageFrom(const QStringList& preferredLanguages) {
    for (const QString& tag : preferredLanguages) {
        if (tag.startsWith(u"zh"))
            return QStringLiteral("zh");
        if (tag.startsWith(u"en"))
            return QStringLiteral("en");
    }
    return QStringLiteral("en");
}

QString language() {
    if (auto forced = override())
        return *forced;
    return languageFrom(QLocale::system().uiLanguages());
}

bool isZh() {
    return language() == u"zh";
}

QString t(const QString& en, const QString& zh) {
    return isZh() ? zh : en;
}

std::optional<QString> override() {
    auto& slot = overrideSlot();
    std::lock_guard guard(slot.lock);
    return slot.value;
}

void setOverride(std::optional<QString> value) {
    auto& slot = overrideSlot();
    std::lock_guard guard(slot.lock);
    slot.value = std::move(value);
}

} // namespace L10n
