#pragma once

#include <QString>

// The one short message a failed lookup shows. Codes and server texts are for the debug log only.
namespace FriendlyError {

// The localized message for a failure code: "RATE_LIMITED", "NETWORK" or anything else.
QString message(const QString& code);

// Logs "gloss error code=<code> fallback=<fallback>" and returns message(code); the fallback (the
// server's or the client's own text) is never shown.
QString apply(const QString& code, const QString& fallback);

} // namespace FriendlyError
