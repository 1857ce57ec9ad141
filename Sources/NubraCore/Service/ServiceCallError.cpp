#include "NubraCore/Service/ServiceCallError.h"

QString describe(const ServiceCallError& error) {
    if (const auto* api = std::get_if<GlossAPIError>(&error))
        return api->errorDescription();
    if (const auto* decoding = std::get_if<DecodingError>(&error))
        return decoding->description();
    return std::get<TransportError>(error).description;
}
