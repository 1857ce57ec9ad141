#pragma once

#include <QByteArray>
#include <QString>

// How the service tells this machine from others.
namespace DeviceIdentity {

// A canonical upper-case UUID that tells this machine apart, or "fallback-" and a fresh random UUID when
// the machine has none (made anew on every read, never stored). On macOS it is the platform UUID; on
// Linux a name-based UUID derived from machine-id(5) for Nubra alone, so the raw id never leaves.
QString platformUUID();

// The rule behind platformUUID(), for a given machine id (32 hex digits, or a UUID in any case).
QString platformUUIDFrom(const QByteArray& machineId);

} // namespace DeviceIdentity
