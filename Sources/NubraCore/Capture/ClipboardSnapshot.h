#pragma once

#include "NubraCore/Capture/Pasteboard.h"

#include <QByteArray>
#include <QList>
#include <QString>

// The pasteboard's contents saved before the synthetic copy and put back after it.
struct ClipboardSnapshot {
    struct Item {
        QString type;
        QByteArray data;
        friend bool operator==(const Item&, const Item&) = default;
    };

    QList<Item> items;

    qsizetype typeCount() const { return items.size(); }

    // Every type in the pasteboard's order whose data can be read; unreadable types are left out.
    static ClipboardSnapshot capture(const Pasteboard& pasteboard);
    // Clears the pasteboard (always, even for an empty snapshot), then writes every item back.
    void restore(Pasteboard& pasteboard) const;
};
