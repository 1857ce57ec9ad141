// Feeds arbitrary bytes to the reading of requests on the single-instance socket, which any process
// of the user may send. Beyond "no crash, no leak, no UB" it checks that an accepted request reads
// back the same after encoding and that no shorter part of it was already taken as complete.
#include "NubraApp/Shell/LaunchMessage.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const LaunchMessage::Decoded decoded = LaunchMessage::decode(bytes);
    if (decoded.status != LaunchMessage::Decoded::Status::complete)
        return 0;
    if (!decoded.request || bytes.size() > LaunchMessage::maxFrame)
        std::abort();
    if (LaunchMessage::decode(bytes.first(bytes.size() - 1)).status ==
        LaunchMessage::Decoded::Status::complete)
        std::abort();
    const LaunchMessage::Decoded again = LaunchMessage::decode(LaunchMessage::encode(*decoded.request));
    if (again.status != LaunchMessage::Decoded::Status::complete || again.request != decoded.request)
        std::abort();
    return 0;
}
