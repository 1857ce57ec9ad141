#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <mutex>
#include <optional>
#include <utility>

// The general pasteboard (clipboard) as the selection reader sees it: typed data buffers under
// type identifiers (MIME types on Linux) and a counter that grows with every change.
class Pasteboard {
public:
    virtual ~Pasteboard() = default;

    virtual QStringList types() const = 0;
    virtual std::optional<QByteArray> data(const QString& type) const = 0;
    virtual qint64 changeCount() const = 0;
    virtual void clearContents() = 0;
    virtual bool setData(const QByteArray& data, const QString& type) = 0;
    // Replaces the whole contents with these (type, data) pairs, in order. The default clears and writes
    // them one by one; a platform where every write is a change of owner does it in one.
    virtual void replaceContents(const QList<std::pair<QString, QByteArray>>& items);

    // The plain-text content, when there is some.
    virtual std::optional<QString> string() const;

    static QString plainTextType();
};

// A pasteboard held in memory. Safe to use from several threads.
class InMemoryPasteboard final : public Pasteboard {
public:
    QStringList types() const override;
    std::optional<QByteArray> data(const QString& type) const override;
    qint64 changeCount() const override;
    void clearContents() override;
    bool setData(const QByteArray& data, const QString& type) override;

    // Types listed by types() whose data cannot be read, as some clipboard owners do.
    void addUnreadableType(const QString& type);
    // Makes setData() refuse every write, as a pasteboard owned by a dead process would.
    void setRefusesWrites(bool refuses);

private:
    mutable std::mutex m_lock;
    QStringList m_order;
    QHash<QString, QByteArray> m_items;
    QStringList m_unreadable;
    qint64 m_changeCount = 0;
    bool m_refusesWrites = false;
};
