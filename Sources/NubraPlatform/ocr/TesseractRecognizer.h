#pragma once

#include "NubraPlatform/TextRecognizer.h"
#include "NubraPlatform/ocr/TesseractData.h"
#include "NubraPlatform/ocr/TesseractEngine.h"

#include <QMutex>

#include <map>
#include <memory>

struct TextImageLook;

// Reads screen text with Tesseract, with the language data of the Debian packages tesseract-ocr-eng,
// -chi-sim and -chi-tra. English is read with its own model, Chinese with the model of the script the
// user's locale writes: each model reads the other script's characters as its own, with as much
// confidence, so the pixels cannot tell the scripts apart. Each model is loaded on first use and kept;
// calls are serialised, so a second thread waits for the first.
class TesseractRecognizer final : public TextRecognizer {
public:
    using ChineseScript = TesseractData::ChineseScript;

    explicit TesseractRecognizer(QString dataPath = TesseractData::defaultPath(),
                                 ChineseScript chinese = TesseractData::systemChineseScript());
    ~TesseractRecognizer() override;

    // Available while at least one language can be read. The reason names every language whose data
    // is missing, so it may be set while the recognizer is available (for the diagnosis).
    bool isAvailable() const override;
    QString unavailableReason() const override;

    std::optional<ScreenText> read(const QImage& picture, const QRect& area,
                                   const QString& outputLanguage) override;

    // Loads the models the first read for `outputLanguage` tries.
    void warmUp(const QString& outputLanguage) override;

private:
    struct Reading;

    TesseractEngine* engine(const QString& language);
    Reading readWith(const QString& language, const QImage& picture, const QRect& region, TextShape shape,
                     const TextImageLook& look, double scale);
    Reading readSelection(const QImage& picture, const QRect& area, TextShape shape,
                          const TextImageLook& look, double scale, const QString& outputLanguage);
    QRect contextWindow(const QImage& picture, const QRect& area, const TextImageLook& look) const;

    const TesseractData m_data;
    const ChineseScript m_chinese;
    QMutex m_mutex;
    std::map<QString, std::unique_ptr<TesseractEngine>> m_engines;
};
