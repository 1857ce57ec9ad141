#pragma once

#include <QByteArrayView>

#include <array>
#include <optional>

// A JSON object of a few members whose values are all plain strings, such as the data of a streamed
// "delta" event: {"field":"gloss","text":"word "}. Reading that shape directly is several times faster
// than building a QJsonDocument. Only what the general parser would read the same way is accepted:
// escape sequences, control characters, other value types, invalid UTF-8 or anything unusual make
// read() give nothing, and the caller falls back to the general parser.
class PlainJsonObject {
public:
    static constexpr int MaxMembers = 8;

    static std::optional<PlainJsonObject> read(QByteArrayView json);

    // The UTF-8 value of the member named `key` (the last one when the key repeats, as QJsonObject
    // keeps it), or nothing.
    std::optional<QByteArrayView> value(QByteArrayView key) const;

private:
    struct Member {
        QByteArrayView key;
        QByteArrayView value;
    };

    std::array<Member, MaxMembers> m_members{};
    int m_count = 0;
};
