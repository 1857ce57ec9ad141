#include "NubraCore/Capture/ClipboardSnapshot.h"

ClipboardSnapshot ClipboardSnapshot::capture(const Pasteboard& pasteboard) {
    ClipboardSnapshot snapshot;
    for (const QString& type : pasteboard.types()) {
        if (auto data = pasteboard.data(type))
            snapshot.items.append({type, *data});
    }
    return snapshot;
}

void ClipboardSnapshot::restore(Pasteboard& pasteboard) const {
    pasteboard.clearContents();
    for (const Item& item : items)
        pasteboard.setData(item.data, item.type); // a refused write is ignored
}
