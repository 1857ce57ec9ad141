#pragma once

#include "NubraApp/Shell/LaunchRequest.h"

#include <QByteArray>
#include <QByteArrayView>

#include <optional>

// The request as it travels over the single-instance socket: "NBRQ", a version byte, the payload's
// length in two bytes (big-endian, at most maxPayload) and a small JSON object naming the action and
// the tab. The running instance trusts none of it: anything malformed is refused as a whole.
namespace LaunchMessage {

inline constexpr quint8 version = 1;
inline constexpr qsizetype headerSize = 7;
inline constexpr qsizetype maxPayload = 1024;
inline constexpr qsizetype maxFrame = headerSize + maxPayload;

QByteArray encode(const LaunchRequest& request);

struct Decoded {
    enum class Status {
        // Well-formed so far; wait for more bytes.
        incomplete,
        complete,
        invalid,
        // Well-formed header of another protocol version.
        unsupportedVersion,
    };
    Status status = Status::incomplete;
    // Only with complete. Carries the action and tab; dev and replace never travel.
    std::optional<LaunchRequest> request;
};

// `bytes` is everything received on one connection so far.
Decoded decode(QByteArrayView bytes);

} // namespace LaunchMessage
