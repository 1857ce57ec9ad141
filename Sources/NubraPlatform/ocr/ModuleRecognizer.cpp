#include "NubraPlatform/ocr/ModuleRecognizer.h"

#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/ocr/RecognizerModule.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QLibrary>

QString ModuleRecognizer::defaultModulePath() {
    return QCoreApplication::applicationDirPath() + QLatin1Char('/') +
           QStringLiteral(NUBRA_RECOGNIZER_MODULE);
}

ModuleRecognizer::ModuleRecognizer(QString modulePath) : m_modulePath(std::move(modulePath)) {}

// The module stays loaded to the end of the process: the recognizer's code lives in it.
ModuleRecognizer::~ModuleRecognizer() = default;

bool ModuleRecognizer::isAvailable() const {
    return m_data.isAvailable() && QFileInfo(m_modulePath).isReadable() && !m_loadFailed;
}

QString ModuleRecognizer::unavailableReason() const {
    if (m_loadFailed)
        return L10n::t(QStringLiteral("Text on the screen cannot be read: %1"),
                       QStringLiteral("无法识别屏幕上的文字：%1"))
            .arg(m_loadError);
    if (!QFileInfo(m_modulePath).isReadable())
        return L10n::t(QStringLiteral("Text on the screen cannot be read: Nubra's recognizer %1 is missing"),
                       QStringLiteral("无法识别屏幕上的文字：缺少 Nubra 的识别模块 %1"))
            .arg(m_modulePath);
    return m_data.missingReason();
}

std::optional<ScreenText> ModuleRecognizer::read(const QImage& picture, const QRect& area,
                                                 const QString& outputLanguage) {
    TextRecognizer* recognizer = loaded();
    return recognizer ? recognizer->read(picture, area, outputLanguage) : std::nullopt;
}

void ModuleRecognizer::warmUp(const QString& outputLanguage) {
    if (TextRecognizer* recognizer = loaded())
        recognizer->warmUp(outputLanguage);
}

TextRecognizer* ModuleRecognizer::loaded() {
    std::call_once(m_loading, [this] {
        QLibrary module(m_modulePath);
        const auto create =
            reinterpret_cast<CreateTextRecognizer>(module.resolve(createTextRecognizerSymbol));
        if (create) {
            m_recognizer.reset(create());
            return;
        }
        m_loadError = module.errorString();
        m_loadFailed = true;
        nbDebug(QStringLiteral("ocr: recognizer module not loaded: %1").arg(m_loadError));
    });
    return m_recognizer.get();
}
