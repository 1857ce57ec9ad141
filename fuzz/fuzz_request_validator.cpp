// Feeds arbitrary bytes to the reference service's reading of request bodies. Beyond "no crash, no
// leak, no UB" it checks that a body is either accepted or refused with a reason.
#include "NubraGlossd/RequestValidator.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view body(reinterpret_cast<const char*>(data), size);
    const auto gloss = RequestValidator::glossRequest(body);
    if (const auto* refusal = std::get_if<QString>(&gloss); refusal && refusal->isEmpty())
        std::abort();
    if (const auto* request = std::get_if<GlossRequest>(&gloss);
        request && request->selectedText().trimmed().isEmpty())
        std::abort();
    const auto refresh = RequestValidator::refreshRequest(body);
    if (const auto* refusal = std::get_if<QString>(&refresh); refusal && refusal->isEmpty())
        std::abort();
    return 0;
}
