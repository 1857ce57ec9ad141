#pragma once

#include "NubraPlatform/TextRecognizer.h"
#include "NubraPlatform/ocr/TesseractData.h"

#include <QString>

#include <atomic>
#include <memory>
#include <mutex>

// The text recognizer as Nubra runs it. Tesseract and the libraries it links (TLS, curl, archives,
// image formats: about 7 MB mapped) live in a module of their own, loaded on the first read or warm-up
// (on the worker thread that asks) instead of at every start; what can be read is known from the
// installed language data without it.
class ModuleRecognizer final : public TextRecognizer {
public:
    // Where Nubra's installation keeps the module, beside its executable.
    static QString defaultModulePath();

    explicit ModuleRecognizer(QString modulePath = defaultModulePath());
    ~ModuleRecognizer() override;

    // Not available without the module, or once it failed to load.
    bool isAvailable() const override;
    QString unavailableReason() const override;
    std::optional<ScreenText> read(const QImage& picture, const QRect& area,
                                   const QString& outputLanguage) override;
    void warmUp(const QString& outputLanguage) override;

private:
    // The module's recognizer, loaded once; null when the module cannot be loaded.
    TextRecognizer* loaded();

    const QString m_modulePath;
    const TesseractData m_data;
    std::once_flag m_loading;
    std::unique_ptr<TextRecognizer> m_recognizer;
    // Set once loading failed (a library of Tesseract's missing): the error, then the flag.
    QString m_loadError;
    std::atomic<bool> m_loadFailed = false;
};
