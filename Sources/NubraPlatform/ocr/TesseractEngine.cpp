#include "NubraPlatform/ocr/TesseractEngine.h"

#include <tesseract/baseapi.h>
#include <tesseract/resultiterator.h>

namespace {

tesseract::PageSegMode pageSegMode(TextShape shape) {
    switch (shape) {
    case TextShape::Word:
        return tesseract::PSM_SINGLE_WORD;
    case TextShape::Line:
        return tesseract::PSM_SINGLE_LINE;
    case TextShape::Block:
        return tesseract::PSM_SINGLE_BLOCK;
    case TextShape::Page:
        break;
    }
    return tesseract::PSM_AUTO;
}

} // namespace

TesseractEngine::TesseractEngine(const QString& dataPath, const QString& languages)
    : m_api(std::make_unique<tesseract::TessBaseAPI>()) {
    // Tesseract reports progress and doubts on stderr unless told to write them elsewhere.
    m_api->SetVariable("debug_file", "/dev/null");
    m_ready = m_api->Init(dataPath.toLocal8Bit().constData(), languages.toLatin1().constData(),
                          tesseract::OEM_LSTM_ONLY) == 0;
    if (m_ready) {
        // Screens mix text with pictures; a word is never the picture's inverse within one area
        // (the polarity is settled before), so the inverted retry only doubles the time.
        m_api->SetVariable("tessedit_do_invert", "0");
    }
}

TesseractEngine::~TesseractEngine() {
    m_api->End();
}

std::vector<RecognizedWord> TesseractEngine::read(const QImage& image, TextShape shape) {
    std::vector<RecognizedWord> words;
    if (!m_ready || image.isNull() || image.format() != QImage::Format_Grayscale8)
        return words;
    m_api->SetPageSegMode(pageSegMode(shape));
    m_api->SetImage(image.constBits(), image.width(), image.height(), 1, int(image.bytesPerLine()));
    // The image is scaled so that a line of text is about as tall as 10 pt print at this resolution.
    m_api->SetSourceResolution(300);
    if (m_api->Recognize(nullptr) != 0) {
        m_api->Clear();
        return words;
    }
    std::unique_ptr<tesseract::ResultIterator> it(m_api->GetIterator());
    int line = -1;
    if (it) {
        do {
            if (it->Empty(tesseract::RIL_WORD))
                continue;
            if (line < 0 || it->IsAtBeginningOf(tesseract::RIL_TEXTLINE))
                ++line;
            const std::unique_ptr<char[]> text(it->GetUTF8Text(tesseract::RIL_WORD));
            int left = 0, top = 0, right = 0, bottom = 0;
            it->BoundingBox(tesseract::RIL_WORD, &left, &top, &right, &bottom);
            RecognizedWord word;
            word.text = QString::fromUtf8(text.get()).trimmed();
            word.box = QRectF(left, top, right - left, bottom - top);
            word.confidence = it->Confidence(tesseract::RIL_WORD);
            word.line = line;
            if (!word.text.isEmpty())
                words.push_back(word);
        } while (it->Next(tesseract::RIL_WORD));
    }
    m_api->Clear();
    return words;
}
