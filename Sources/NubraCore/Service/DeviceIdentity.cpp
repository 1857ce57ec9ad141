#include "NubraCore/Service/DeviceIdentity.h"

#include <QSysInfo>
#include <QUuid>

namespace {

QString canonical(const QUuid& uuid) {
    return uuid.toString(QUuid::WithoutBraces).toUpper();
}

// machine-id(5) asks that the raw id never leave the machine: what Linux sends is a name-based UUID
// derived from it in Nubra's own namespace, stable across runs and useless to anybody else.
QUuid forThisApplication(const QUuid& machine) {
#ifdef Q_OS_MACOS
    return machine;
#else
    static const QUuid nubraNamespace(0x6a1c3e52, 0x9b07, 0x4d8e, 0xa4, 0x1f, 0x52, 0x0d, 0x7c, 0xe9, 0x3b,
                                      0x86);
    return QUuid::createUuidV5(nubraNamespace, machine.toRfc4122());
#endif
}

} // namespace

QString DeviceIdentity::platformUUID() {
    return platformUUIDFrom(QSysInfo::machineUniqueId());
}

QString DeviceIdentity::platformUUIDFrom(const QByteArray& machineId) {
    const QByteArray id = machineId.trimmed();
    // Linux keeps the id as 32 hex digits; macOS already gives a hyphenated UUID.
    QUuid uuid = QUuid::fromString(QLatin1StringView(id));
    if (uuid.isNull() && id.size() == 32) {
        const QByteArray hyphenated =
            id.left(8) + '-' + id.mid(8, 4) + '-' + id.mid(12, 4) + '-' + id.mid(16, 4) + '-' + id.mid(20);
        uuid = QUuid::fromString(QLatin1StringView(hyphenated));
    }
    if (!uuid.isNull())
        return canonical(forThisApplication(uuid));
    return QStringLiteral("fallback-") + canonical(QUuid::createUuid());
}
