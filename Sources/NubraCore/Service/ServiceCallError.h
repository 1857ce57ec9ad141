#pragma once

#include "NubraCore/Service/DecodingError.h"
#include "NubraCore/Service/GlossAPIError.h"

#include <QString>

#include <variant>

// The transfer of a whole-body request failed (no connection, timeout, TLS, cancellation).
struct TransportError {
    QString description;
    friend bool operator==(const TransportError&, const TransportError&) = default;
};

// Why a whole-body call to the service (token renewal, the release manifest) failed. Unlike a lookup's
// failures, transport and decoding errors are passed on as they are.
using ServiceCallError = std::variant<GlossAPIError, DecodingError, TransportError>;

// A short text for the debug log.
QString describe(const ServiceCallError& error);

// Either the call's value or why it failed.
template <typename T> using ServiceCallResult = std::variant<T, ServiceCallError>;
