#include "NubraCore/Capture/Pasteboard.h"

QString Pasteboard::plainTextType() {
    return QStringLiteral("text/plain;charset=utf-8");
}

void Pasteboard::replaceContents(const QList<std::pair<QString, QByteArray>>& items) {
    clearContents();
    for (const auto& [type, data] : items)
        setData(data, type); // a refused write is ignored
}

std::optional<QString> Pasteboard::string() const {
    for (const QString& type : {plainTextType(), QStringLiteral("text/plain")}) {
        if (auto bytes = data(type))
            return QString::fromUtf8(*bytes);
    }
    return std::nullopt;
}

QStringList InMemoryPasteboard::types() const {
    std::lock_guard guard(m_lock);
    return m_order + m_unreadable;
}

std::optional<QByteArray> InMemoryPasteboard::data(const QString& type) const {
    std::lock_guard guard(m_lock);
    const auto found = m_items.constFind(type);
    if (found == m_items.constEnd())
        return std::nullopt;
    return *found;
}

qint64 InMemoryPasteboard::changeCount() const {
    std::lock_guard guard(m_lock);
    return m_changeCount;
}

void InMemoryPasteboard::clearContents() {
    std::lock_guard guard(m_lock);
    m_order.clear();
    m_items.clear();
    m_unreadable.clear();
    ++m_changeCount;
}

bool InMemoryPasteboard::setData(const QByteArray& data, const QString& type) {
    std::lock_guard guard(m_lock);
    if (m_refusesWrites)
        return false;
    if (!m_items.contains(type))
        m_order.append(type);
    m_items.insert(type, data);
    ++m_changeCount;
    return true;
}

void InMemoryPasteboard::addUnreadableType(const QString& type) {
    std::lock_guard guard(m_lock);
    m_unreadable.append(type);
}

void InMemoryPasteboard::setRefusesWrites(bool refuses) {
    std::lock_guard guard(m_lock);
    m_refusesWrites = refuses;
}
