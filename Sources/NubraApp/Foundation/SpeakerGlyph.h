#pragma once

#include <QColor>
#include <QRectF>

class QPainter;

// The read-aloud symbol, drawn rather than taken from the icon theme, which many desktops lack: a
// loudspeaker with two sound waves, or a square while the text is being read (a click then stops it).
namespace SpeakerGlyph {
void paint(QPainter& painter, const QRectF& area, bool speaking, const QColor& color);
}
