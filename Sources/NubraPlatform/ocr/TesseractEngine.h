#pragma once

#include <QImage>
#include <QRectF>
#include <QString>

#include <memory>
#include <vector>

namespace tesseract {
class TessBaseAPI;
}

// One word Tesseract read, with its box in the pixels of the image it was given.
struct RecognizedWord {
    QString text;
    QRectF box;
    float confidence = 0; // 0..100
    int line = 0;         // lines numbered in reading order
};

// How to cut the image into text before reading it.
enum class TextShape { Word, Line, Block, Page };

// One initialised Tesseract for one language set ("eng", "chi_sim"), kept for reuse: loading a
// language's model costs far more than reading a line with it. Not thread-safe; the recognizer
// serialises its calls.
class TesseractEngine {
public:
    TesseractEngine(const QString& dataPath, const QString& languages);
    ~TesseractEngine();
    TesseractEngine(const TesseractEngine&) = delete;
    TesseractEngine& operator=(const TesseractEngine&) = delete;

    bool isReady() const { return m_ready; }
    // `image` is Format_Grayscale8, dark text on light.
    std::vector<RecognizedWord> read(const QImage& image, TextShape shape);

private:
    std::unique_ptr<tesseract::TessBaseAPI> m_api;
    bool m_ready = false;
};
