#pragma once

#include <QString>

#include <utility>
#include <variant>

// Why a service answer could not be read as the value the caller expected. The description is for
// the debug log; users only ever see the caller's own short message.
struct DecodingError {
    enum class Kind { invalidJson, missingKey, typeMismatch };

    Kind kind = Kind::invalidJson;
    // Where the problem is, as dotted keys from the top ("data.available"); empty for the whole body.
    QString path;
    // The JSON type that was required (typeMismatch) or the parser's complaint (invalidJson).
    QString detail;

    static DecodingError invalidJson(QString parserMessage);
    static DecodingError missingKey(QString key);
    static DecodingError typeMismatch(QString key, QString expectedType);

    // The same error seen from one level further out, e.g. "available" inside "data".
    DecodingError within(const QString& parentKey) const;

    QString description() const;

    friend bool operator==(const DecodingError&, const DecodingError&) = default;
};

// Either a decoded value or the reason it could not be decoded.
template <typename T> class DecodeResult {
public:
    DecodeResult(T value) : m_state(std::move(value)) {}
    DecodeResult(DecodingError error) : m_state(std::move(error)) {}

    bool hasValue() const { return std::holds_alternative<T>(m_state); }
    explicit operator bool() const { return hasValue(); }

    // Only meaningful when hasValue() (respectively !hasValue()).
    const T& value() const { return std::get<T>(m_state); }
    const DecodingError& error() const { return std::get<DecodingError>(m_state); }

private:
    std::variant<T, DecodingError> m_state;
};
