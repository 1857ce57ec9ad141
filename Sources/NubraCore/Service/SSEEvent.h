#pragma once

#include "NubraCore/Vocabulary/Models.h"

#include <QMetaType>
#include <QString>

#include <cstdint>
#include <variant>

// One decoded event of the gloss service's event stream. Two events are equal when they are the same
// case with equal payloads.
struct SSEEvent {
    struct Meta {
        QString model;
        std::int64_t estimatedCost = 0;
        std::int64_t creditsRemaining = 0;
        friend bool operator==(const Meta&, const Meta&) = default;
    };
    struct Delta {
        QString field; // which result field the text continues
        QString text;
        friend bool operator==(const Delta&, const Delta&) = default;
    };
    struct Done {
        GlossResult result;
        friend bool operator==(const Done&, const Done&) = default;
    };
    struct Error {
        QString code;
        QString message;
        friend bool operator==(const Error&, const Error&) = default;
    };

    // The cases in their fixed order.
    std::variant<Meta, Delta, Done, Error> payload;

    bool isDone() const { return std::holds_alternative<Done>(payload); }
    bool isError() const { return std::holds_alternative<Error>(payload); }
    template <typename T> const T* as() const { return std::get_if<T>(&payload); }

    friend bool operator==(const SSEEvent&, const SSEEvent&) = default;
};

Q_DECLARE_METATYPE(SSEEvent)
