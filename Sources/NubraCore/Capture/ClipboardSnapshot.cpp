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
    QList<std::pair<QString, QByteArray>> contents;
    contents.reserve(items.size());
    for (const Item& item : items)
        contents.append({item.type, item.data});
    pasteboard.replaceContents(contents);
}
