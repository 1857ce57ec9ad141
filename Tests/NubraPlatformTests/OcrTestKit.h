#pragma once

#include <QFont>
#include <QImage>
#include <QRect>
#include <QStringList>

#include <vector>

// Screens drawn for the text recognizer's tests and benchmark, whose text is known.
namespace OcrTestKit {

// What lies behind the text: white, a gradient with speckles (a video frame, a game), or light text
// on a dark panel.
enum class Backdrop { Plain, Busy, Dark };

struct Page {
    QImage image;
    std::vector<QRect> lines; // each line's ink box
};

// `lines` in `font`, one under the other, with `margin` pixels of backdrop all round.
Page render(const QStringList& lines, const QFont& font, Backdrop backdrop, int margin = 12);

// The box of `word` in the line it sits in: its first occurrence, measured with the page's font.
QRect wordBox(const Page& page, int line, const QString& lineText, const QString& word, const QFont& font);

QFont font(const QString& family, int pixelSize);

// Fewest single-character insertions, deletions and substitutions from one text to the other.
int editDistance(const QString& a, const QString& b);

// 1 - edit distance / length of the expected text, never below 0.
double characterAccuracy(const QString& expected, const QString& got);

} // namespace OcrTestKit
