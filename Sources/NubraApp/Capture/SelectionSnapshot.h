#pragma once

#include <QRectF>
#include <QString>

// What one capture yields: the selected text, the context on both sides, the front application's name
// and the selection's rectangle in bottom-left-origin global coordinates (1 x 1 at the mouse when the
// selection's own rectangle is unknown).
struct SelectionSnapshot {
    QString selectedText;
    QString before;
    QString after;
    QString sourceApp;
    QRectF bounds;

    friend bool operator==(const SelectionSnapshot&, const SelectionSnapshot&) = default;
};
