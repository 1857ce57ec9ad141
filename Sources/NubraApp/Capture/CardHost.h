#pragma once

#include <QtGlobal>

#include <optional>

// The overlay card as the selection monitor needs it: closed on dismissal and before a new capture,
// and recognised by window number so clicks inside it do not dismiss it.
class CardHost {
public:
    virtual ~CardHost() = default;

    virtual void close() = 0;
    // Whether the card is on screen; Escape typed in another application dismisses only then.
    virtual bool isVisible() const = 0;
    // The native window id of the card while it exists, as local mouse events carry it.
    virtual std::optional<quint64> windowId() const = 0;
};
