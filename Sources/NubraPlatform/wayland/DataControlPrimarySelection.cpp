#include "NubraPlatform/wayland/DataControlPrimarySelection.h"

#include "NubraPlatform/wayland/SelectionReader.h"
#include "NubraPlatform/wayland/WaylandConnection.h"

std::optional<QString> DataControlPrimarySelection::text() {
    static const QStringList textTypes{QStringLiteral("text/plain;charset=utf-8"),
                                       QStringLiteral("UTF8_STRING"), QStringLiteral("text/plain")};
    const std::optional<QByteArray> bytes = readSelection(m_connection, DataControlDevice::Selection::primary,
                                                          textTypes, maxBytes, readTimeoutMs);
    if (!bytes)
        return std::nullopt;
    return QString::fromUtf8(*bytes);
}

void DataControlPrimarySelection::setChangeListener(std::function<void(bool cleared)> listener) {
    m_connection.call(
        [listener = std::move(listener)](WaylandConnection::Objects& objects) {
            if (objects.dataControl)
                objects.dataControl->setPrimaryListener(listener);
            return true;
        },
        WaylandConnection::startTimeoutMs);
}
