#include "NubraCore/Update/UpdateCheck.h"

#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Service/ServiceCallError.h"
#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Update/Semver.h"
#include "NubraCore/Vocabulary/L10n.h"

QString CheckResult::description() const {
    switch (kind) {
    case Kind::available:
        return QStringLiteral("available(") + info.version + u')';
    case Kind::failed:
        return QStringLiteral("failed(") + message + u')';
    case Kind::upToDate:
        break;
    }
    return QStringLiteral("upToDate");
}

namespace UpdateCheck {

CheckResult evaluate(const std::optional<UpdateManifest>& manifest, const QString& currentVersion) {
    if (!manifest)
        return CheckResult::failed(L10n::t(QStringLiteral("Could not reach the update service."),
                                           QStringLiteral("无法连接更新服务。")));
    if (!manifest->available || !manifest->version || !Semver::isNewer(*manifest->version, currentVersion))
        return CheckResult::upToDate();

    // A relative or scheme-less address cannot be downloaded from.
    const QUrl url(manifest->url.value_or(QString()), QUrl::StrictMode);
    if (!url.isValid() || url.scheme().isEmpty() || url.isRelative())
        return CheckResult::failed(L10n::t(QStringLiteral("Release has no downloadable asset."),
                                           QStringLiteral("该版本没有可下载的安装包。")));
    if (manifest->sha256.value_or(QString()).isEmpty())
        return CheckResult::failed(L10n::t(QStringLiteral("Release manifest is missing its checksum."),
                                           QStringLiteral("更新清单缺少校验值。")));

    return CheckResult::available({*manifest->version, manifest->localizedNotes().value_or(QString()), url,
                                   *manifest->sha256, manifest->signature.value_or(QString()),
                                   manifest->versionSignature.value_or(QString())});
}

void check(const GlossAPI& api, const QString& currentVersion, QObject* context,
           std::function<void(const CheckResult&)> done) {
    api.fetchLatestUpdate(
        context, [currentVersion, done = std::move(done)](ServiceCallResult<UpdateManifest> fetched) {
            if (const auto* error = std::get_if<ServiceCallError>(&fetched)) {
                nbDebug(QStringLiteral("updater: manifest fetch failed: ") + describe(*error));
                return done(evaluate(std::nullopt, currentVersion));
            }
            done(evaluate(std::get<UpdateManifest>(fetched), currentVersion));
        });
}

QString upToDateMessage(const QString& currentVersion) {
    return L10n::t(QStringLiteral("You're up to date! Nubra ") + currentVersion +
                       QStringLiteral(" is the latest."),
                   QStringLiteral("已是最新版本！Nubra ") + currentVersion + QStringLiteral(" 即最新。"));
}

} // namespace UpdateCheck
