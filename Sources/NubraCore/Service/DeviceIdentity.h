#pragma once

#include <QByteArray>
#include <QString>

// How the service tells this machine from others.
namespace DeviceIdentity {

// The machine's unique id as a canonical upper-case UUID, or "fallback-" and a fresh random UUID when
// the machine has none (made anew on every read, never stored).
QString platformUUID();

// The rule behind platformUUID(), for a given machine id (32 hex digits, or a UUID in any case).
QString platformUUIDFrom(const QByteArray& machineId);

} // namespace DeviceIdentity
