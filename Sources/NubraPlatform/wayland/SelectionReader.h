#pragma once

#include "NubraPlatform/wayland/DataControlDevice.h"

#include <QByteArray>
#include <QStringList>

#include <optional>

class WaylandConnection;

// From any thread: the first of `types` that the selection offers, read through a pipe (see readPipe).
// Nothing when the selection is empty, offers none of them, or the owner is too slow or too wordy.
std::optional<QByteArray> readSelection(WaylandConnection& connection, DataControlDevice::Selection which,
                                        const QStringList& types, qsizetype maxBytes, int timeoutMs);
