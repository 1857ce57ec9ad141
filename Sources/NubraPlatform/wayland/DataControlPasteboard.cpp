#include "NubraPlatform/wayland/DataControlPasteboard.h"

#include "NubraPlatform/wayland/SelectionReader.h"
#include "NubraPlatform/wayland/WaylandConnection.h"

using Selection = DataControlDevice::Selection;

QStringList DataControlPasteboard::types() const {
    return m_connection
        .call(
            [](WaylandConnection::Objects& objects) {
                return objects.dataControl ? objects.dataControl->types(Selection::clipboard) : QStringList();
            },
            timeoutMs)
        .value_or(QStringList());
}

std::optional<QByteArray> DataControlPasteboard::data(const QString& type) const {
    return readSelection(m_connection, Selection::clipboard, {type}, maxFormatBytes, timeoutMs);
}

qint64 DataControlPasteboard::changeCount() const {
    return m_connection
        .call(
            [](WaylandConnection::Objects& objects) {
                return objects.dataControl ? objects.dataControl->changes(Selection::clipboard) : qint64(0);
            },
            timeoutMs)
        .value_or(0);
}

void DataControlPasteboard::clearContents() {
    own({});
}

bool DataControlPasteboard::setData(const QByteArray& data, const QString& type) {
    QList<std::pair<QString, QByteArray>> items;
    {
        std::lock_guard guard(m_ownedLock);
        for (const auto& item : m_owned) {
            if (item.first != type)
                items << item;
        }
    }
    items.append({type, data});
    return own(items);
}

void DataControlPasteboard::replaceContents(const QList<std::pair<QString, QByteArray>>& items) {
    own(items);
}

bool DataControlPasteboard::own(const QList<std::pair<QString, QByteArray>>& items) {
    {
        std::lock_guard guard(m_ownedLock);
        m_owned = items;
    }
    return m_connection
        .call(
            [items](WaylandConnection::Objects& objects) {
                if (!objects.dataControl || !objects.dataControl->usable())
                    return false;
                objects.dataControl->own(items);
                return true;
            },
            timeoutMs)
        .value_or(false);
}
