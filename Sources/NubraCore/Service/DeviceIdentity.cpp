#include "NubraCore/Service/DeviceIdentity.h"

#include <QSysInfo>
#include <QUuid>

namespace {

QString canonical(const QUuid& uuid) {
    return uuid.toString(QUuid::WithoutBraces).toUpper();
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
        return canonical(uuid);
    return QStringLiteral("fallback-") + canonical(QUuid::createUuid());
}
