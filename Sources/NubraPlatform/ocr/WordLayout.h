#pragma once

#include "NubraPlatform/TextRecognizer.h"
#include "NubraPlatform/ocr/TesseractEngine.h"

#include <vector>

// Turns words read from a picture back into text: which lie in the marked area and which around it,
// joined as they are read.
namespace WordLayout {

// At most this much context on each side of the selection, the end nearest to it kept.
inline constexpr int contextLimit = 300;

// Words as a reader runs through them: a space between words and between lines, except where both
// sides are Chinese or Japanese characters; a word broken with a hyphen at a line's end is mended.
QString joined(const std::vector<RecognizedWord>& words);

// The words sure enough to trust: below `minimumConfidence` a word is taken for a smudge, a cut
// glyph or the edge of an icon, and lone symbols and very short words need more.
std::vector<RecognizedWord> kept(const std::vector<RecognizedWord>& words, float minimumConfidence);

// Mean confidence of `words`, each weighted by its length.
float confidence(const std::vector<RecognizedWord>& words);

// Whether `text` holds Han, kana or Hangul.
bool hasCjk(const QString& text);

// The end of the text read before a selection, and the start of the text read after it, each at
// most `contextLimit` long and cut between words.
QString lastPart(const QString& text);
QString firstPart(const QString& text);

struct Arrangement {
    std::vector<RecognizedWord> inside, before, after;
};

// Sorts `words` (boxes in the same space as `area`) into those mostly inside it, those read before
// it (lines above, words left on its lines) and after it (words right, lines below).
Arrangement arranged(const std::vector<RecognizedWord>& words, const QRectF& area);

} // namespace WordLayout
