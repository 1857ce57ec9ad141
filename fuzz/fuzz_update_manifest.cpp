// Feeds arbitrary bytes to the reading of the release manifest, as the update check receives them.
// Beyond "no crash, no leak, no UB" it checks that version comparison stays a strict order.
#include "NubraCore/Service/APIEnvelope.h"
#include "NubraCore/Update/Semver.h"
#include "NubraCore/Update/UpdateManifest.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray body(reinterpret_cast<const char*>(data), qsizetype(size));
    const DecodeResult<UpdateManifest> decoded = APIEnvelope::decodePayload<UpdateManifest>(body);
    if (!decoded)
        return 0;
    const UpdateManifest& manifest = decoded.value();
    (void)manifest.localizedNotes();
    const QString version = manifest.version.value_or(QString());
    const QString reference = QStringLiteral("1.2.3");
    if (Semver::isNewer(version, version) ||
        (Semver::isNewer(version, reference) && Semver::isNewer(reference, version)))
        std::abort();
    return 0;
}
