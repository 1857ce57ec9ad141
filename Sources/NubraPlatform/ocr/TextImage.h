#pragma once

#include <QImage>
#include <QRect>

// What a glance at the pixels of a marked area tells before any recognition: which way round the
// text is drawn and how tall its lines are, the two things Tesseract is poor at guessing on screens.
struct TextImageLook {
    bool lightOnDark = false;
    bool blank = true; // one flat colour: nothing worth recognising
    // Grey levels of the ink and of what it is written on, and the level between them.
    int ink = 0;
    int paper = 255;
    int threshold = 128;
    int lineHeight = 0; // in the picture's pixels, ascender to descender of one line of ink
    int lines = 0;
};

namespace TextImage {

TextImageLook look(const QImage& picture, const QRect& area);

// `region` of `picture` as Tesseract likes it: grey, the ink black and the paper white whatever
// their colours were, scaled by `scale`, with a white border of `margin` pixels (after scaling).
QImage prepared(const QImage& picture, const QRect& region, const TextImageLook& look, double scale,
                int margin);

// Whether ink lies in `region` outside `area`: whether there is any text around to read.
bool hasInkAround(const QImage& picture, const QRect& region, const QRect& area, const TextImageLook& look);

// The row nearest `y`, at most `reach` rows away, on which no ink lies between `left` and `right`
// (searching away from the area first): where a cut through the picture splits no line. `y` itself
// when there is none.
int blankRow(const QImage& picture, int y, int left, int right, int reach, int awayStep,
             const TextImageLook& look);

} // namespace TextImage
