#include "NubraPlatform/ocr/TesseractRecognizer.h"

#include "NubraPlatform/ocr/TesseractEngine.h"
#include "NubraPlatform/ocr/TextImage.h"
#include "NubraPlatform/ocr/WordLayout.h"

#include <QMutexLocker>

#include <algorithm>
#include <cmath>

namespace {

const QString& english = TesseractData::english;
const QString& simplified = TesseractData::simplified;
const QString& traditional = TesseractData::traditional;

// Tesseract reads a line best when its ink is about this tall, in pixels (at 32 it already misses
// Chinese characters of 16 px; larger costs time).
constexpr double idealLineHeight = 40;
constexpr double smallestScale = 0.5;
constexpr double largestScale = 5;
// No read is given more pixels than this, however large the area or the capture around it: a whole
// screen scaled up would take Tesseract many seconds.
constexpr double largestPixels = 6e6;

// Lines and line heights of context read around the area.
constexpr int contextLines = 4;
constexpr int contextWidth = 30;
// Below these confidences a word is taken for a smudge, a cut glyph or the edge of an icon.
constexpr float selectedConfidence = 45;
constexpr float contextConfidence = 60;
// A reading of the English model at least this sure is not compared with the Chinese model's.
constexpr float sureEnglish = 75;

// `scale`, or less, so that `region` scaled stays within largestPixels.
double boundedScale(const QRect& region, double scale) {
    const double pixels = double(region.width()) * region.height() * scale * scale;
    return pixels > largestPixels ? scale * std::sqrt(largestPixels / pixels) : scale;
}

bool hasText(const QString& text) {
    return std::any_of(text.begin(), text.end(), [](QChar c) { return c.isLetterOrNumber(); });
}

} // namespace

struct TesseractRecognizer::Reading {
    std::vector<RecognizedWord> words; // in the picture's pixels, doubtful ones too
    QString language;
    float confidence = 0;
    QString text;
};

TesseractRecognizer::TesseractRecognizer(QString dataPath, ChineseScript chinese)
    : m_data(std::move(dataPath)), m_chinese(chinese) {}

TesseractRecognizer::~TesseractRecognizer() = default;

bool TesseractRecognizer::isAvailable() const {
    return m_data.isAvailable();
}

QString TesseractRecognizer::unavailableReason() const {
    return m_data.missingReason();
}

TesseractEngine* TesseractRecognizer::engine(const QString& language) {
    if (!m_data.has(language))
        return nullptr;
    auto& slot = m_engines[language];
    if (!slot)
        slot = std::make_unique<TesseractEngine>(m_data.path(), language);
    return slot->isReady() ? slot.get() : nullptr;
}

void TesseractRecognizer::warmUp(const QString& outputLanguage) {
    const QMutexLocker lock(&m_mutex);
    engine(outputLanguage == QStringLiteral("zh")    ? english
           : m_chinese == ChineseScript::Traditional ? traditional
                                                     : simplified);
}

TesseractRecognizer::Reading TesseractRecognizer::readWith(const QString& language, const QImage& picture,
                                                           const QRect& region, TextShape shape,
                                                           const TextImageLook& look, double scale) {
    Reading reading;
    reading.language = language;
    TesseractEngine* tesseract = engine(language);
    if (!tesseract)
        return reading;
    // Tesseract finds text poorly where it touches the image's edge.
    const int margin = 12;
    const QImage image = TextImage::prepared(picture, region, look, scale, margin);
    reading.words = tesseract->read(image, shape);
    for (RecognizedWord& word : reading.words) {
        const QRectF box = word.box.translated(-margin, -margin);
        word.box = QRectF(region.x() + box.x() / scale, region.y() + box.y() / scale, box.width() / scale,
                          box.height() / scale);
    }
    // Judged with its doubtful words: a model that reads an area badly must not win by dropping them.
    reading.confidence = WordLayout::confidence(reading.words);
    reading.text = WordLayout::joined(WordLayout::kept(reading.words, selectedConfidence));
    return reading;
}

TesseractRecognizer::Reading TesseractRecognizer::readSelection(const QImage& picture, const QRect& area,
                                                                TextShape shape, const TextImageLook& look,
                                                                double scale, const QString& outputLanguage) {
    const auto read = [&](const QString& language) {
        return readWith(language, picture, area, shape, look, scale);
    };
    const auto surer = [](Reading a, Reading b) { return b.confidence > a.confidence ? b : a; };
    // Each Chinese model reads the other script's characters confidently as its own (這 as 这 and 这 as
    // 這), so a second opinion would only convert the text: the locale's script is the one read.
    const bool traditionalFirst = m_chinese == ChineseScript::Traditional;
    QString chinese = traditionalFirst ? traditional : simplified;
    if (!m_data.has(chinese))
        chinese = traditionalFirst ? simplified : traditional;
    // A Chinese reader mostly marks English and an English reader mostly Chinese: the likelier model
    // goes first, and the other is asked only when the first is unsure or sees the other script.
    if (outputLanguage == QStringLiteral("zh") && m_data.has(english)) {
        const Reading first = read(english);
        return first.confidence >= sureEnglish ? first : surer(first, read(chinese));
    }
    const Reading first = read(chinese);
    // The English model knows English words better.
    return WordLayout::hasCjk(first.text) ? first : surer(read(english), first);
}

QRect TesseractRecognizer::contextWindow(const QImage& picture, const QRect& area,
                                         const TextImageLook& look) const {
    const int h = look.lineHeight;
    QRect window = area.adjusted(-contextWidth * h, 0, contextWidth * h, 0).intersected(picture.rect());
    // Cut between lines, so that no half line is read as garbage.
    const int pitch = 2 * h;
    window.setTop(TextImage::blankRow(picture, area.top() - contextLines * pitch, window.left(),
                                      window.right(), h, -1, look));
    window.setBottom(TextImage::blankRow(picture, area.bottom() + contextLines * pitch, window.left(),
                                         window.right(), h, 1, look));
    return window.intersected(picture.rect());
}

std::optional<ScreenText> TesseractRecognizer::read(const QImage& picture, const QRect& marked,
                                                    const QString& outputLanguage) {
    const QMutexLocker lock(&m_mutex);
    const QRect area = marked.intersected(picture.rect());
    if (area.isEmpty())
        return std::nullopt;
    const TextImageLook look = TextImage::look(picture, area);
    if (look.blank)
        return std::nullopt;
    const double scale = boundedScale(
        area, std::clamp(idealLineHeight / std::max(1, look.lineHeight), smallestScale, largestScale));
    // The area's shape says how to cut it: a box about a word's size, one line, or several.
    constexpr int wordLength = 5; // line heights
    const TextShape shape = look.lines > 1                                 ? TextShape::Block
                            : area.width() <= wordLength * look.lineHeight ? TextShape::Word
                                                                           : TextShape::Line;
    const Reading selection = readSelection(picture, area, shape, look, scale, outputLanguage);
    if (!hasText(selection.text))
        return std::nullopt;

    ScreenText result{selection.text, {}, {}};
    const QRect window = contextWindow(picture, area, look);
    if (area.contains(window) || !TextImage::hasInkAround(picture, window, area, look))
        return result;
    // Latin text around Latin text reads best with the English model, whichever model read the area.
    const QString contextLanguage =
        WordLayout::hasCjk(selection.text) || !m_data.has(english) ? selection.language : english;
    const Reading around =
        readWith(contextLanguage, picture, window, TextShape::Page, look, boundedScale(window, scale));
    const WordLayout::Arrangement parts = WordLayout::arranged(around.words, QRectF(area));
    // Read within its line, a word has no glyphs cut at the area's edge and the model sees its
    // neighbours, so that reading wins unless the surroundings threw the layout off.
    constexpr float confidenceSlack = 10;
    const QString inside = WordLayout::joined(WordLayout::kept(parts.inside, selectedConfidence));
    if (hasText(inside) && WordLayout::confidence(parts.inside) >= selection.confidence - confidenceSlack)
        result.selected = inside;
    result.before =
        WordLayout::lastPart(WordLayout::joined(WordLayout::kept(parts.before, contextConfidence)));
    result.after =
        WordLayout::firstPart(WordLayout::joined(WordLayout::kept(parts.after, contextConfidence)));
    return result;
}
