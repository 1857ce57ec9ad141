#include "NubraCore/Lookup/FriendlyError.h"

#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Vocabulary/L10n.h"

namespace FriendlyError {

QString message(const QString& code) {
    if (code == u"RATE_LIMITED")
        return L10n::t(QStringLiteral("Too fast — try again in a moment."),
                       QStringLiteral("太快了，稍后再试。"));
    if (code == u"NETWORK")
        return L10n::t(QStringLiteral("Network issue — try again."),
                       QStringLiteral("网络异常，请稍后重试。"));
    return L10n::t(QStringLiteral("Something went wrong — try again."),
                   QStringLiteral("出错了，请稍后重试。"));
}

QString apply(const QString& code, const QString& fallback) {
    nbDebug(QStringLiteral("gloss error code=") + code + QStringLiteral(" fallback=") + fallback);
    return message(code);
}

} // namespace FriendlyError
