#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

// What the history store throws. The message is SQLite's own (English) text, shown unchanged.
class HistoryStoreError : public std::exception {
public:
    enum class Kind { openFailed, execFailed };

    static HistoryStoreError openFailed(const QString& message) { return {Kind::openFailed, message}; }
    static HistoryStoreError execFailed(const QString& message) { return {Kind::execFailed, message}; }

    Kind kind() const { return m_kind; }
    const QString& message() const { return m_message; }
    // The text a user sees: the carried message, without prefix or translation.
    QString localizedDescription() const { return m_message; }
    const char* what() const noexcept override { return m_utf8.constData(); }

private:
    HistoryStoreError(Kind kind, const QString& message)
        : m_kind(kind), m_message(message), m_utf8(message.toUtf8()) {}

    Kind m_kind;
    QString m_message;
    QByteArray m_utf8;
};
