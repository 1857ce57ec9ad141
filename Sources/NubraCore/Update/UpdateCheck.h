#pragma once

#include "NubraCore/Update/UpdateManifest.h"

#include <QString>
#include <QUrl>

#include <functional>
#include <optional>

class GlossAPI;
class QObject;

// A newer release that can be installed.
struct UpdateInfo {
    QString version;          // as the manifest sent it
    QString notes;            // localized; empty when there are none
    QUrl downloadURL;         // the release archive
    QString sha256;           // as sent, never empty
    QString signature;        // as sent; empty when there is none
    QString versionSignature; // as sent; empty when there is none

    friend bool operator==(const UpdateInfo&, const UpdateInfo&) = default;
};

// The outcome of one update check.
struct CheckResult {
    enum class Kind { available, failed, upToDate };

    Kind kind = Kind::upToDate;
    UpdateInfo info; // available
    QString message; // failed: what the user is told, localized when the check ran

    static CheckResult available(UpdateInfo info) { return {Kind::available, std::move(info), {}}; }
    static CheckResult failed(QString message) { return {Kind::failed, {}, std::move(message)}; }
    static CheckResult upToDate() { return {}; }

    // For the debug log: "available(1.2.0)", "failed(<message>)" or "upToDate".
    QString description() const;

    friend bool operator==(const CheckResult&, const CheckResult&) = default;
};

namespace UpdateCheck {

// The version a check compares against when the running build reports none.
inline constexpr const char* FallbackVersion = "0.0.0";

// Decides the outcome from the fetched manifest (nothing when fetching or decoding failed, whatever
// the reason) and the running version.
CheckResult evaluate(const std::optional<UpdateManifest>& manifest, const QString& currentVersion);

// Fetches the release manifest with `api` and reports the outcome once, on the API's thread, unless
// `context` is destroyed first (which also stops the transfer). Why a fetch failed goes to the debug log.
void check(const GlossAPI& api, const QString& currentVersion, QObject* context,
           std::function<void(const CheckResult&)> done);

// What a manual check says when there is nothing to install.
QString upToDateMessage(const QString& currentVersion);

} // namespace UpdateCheck
