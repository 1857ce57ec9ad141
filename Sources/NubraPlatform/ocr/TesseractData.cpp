#include "NubraPlatform/ocr/TesseractData.h"

#include "NubraCore/Vocabulary/L10n.h"

#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <QStringList>

namespace {

QString packageName(const QString& language) {
    return QStringLiteral("tesseract-ocr-") + QString(language).replace(QLatin1Char('_'), QLatin1Char('-'));
}

QString languageName(const QString& language) {
    if (language == TesseractData::simplified)
        return L10n::t(QStringLiteral("Simplified Chinese"), QStringLiteral("简体中文"));
    if (language == TesseractData::traditional)
        return L10n::t(QStringLiteral("Traditional Chinese"), QStringLiteral("繁体中文"));
    return L10n::t(QStringLiteral("English"), QStringLiteral("英文"));
}

} // namespace

const QString TesseractData::english = QStringLiteral("eng");
const QString TesseractData::simplified = QStringLiteral("chi_sim");
const QString TesseractData::traditional = QStringLiteral("chi_tra");

QString TesseractData::defaultPath() {
    return QStringLiteral("/usr/share/tesseract-ocr/5/tessdata");
}

TesseractData::ChineseScript TesseractData::systemChineseScript() {
    const QLocale locale = QLocale::system();
    const bool traditional =
        locale.script() == QLocale::TraditionalChineseScript ||
        (locale.language() == QLocale::Chinese &&
         (locale.territory() == QLocale::Taiwan || locale.territory() == QLocale::HongKong ||
          locale.territory() == QLocale::Macao));
    return traditional ? ChineseScript::Traditional : ChineseScript::Simplified;
}

bool TesseractData::has(const QString& language) const {
    return QFileInfo(QDir(m_path).filePath(language + QStringLiteral(".traineddata"))).isReadable();
}

bool TesseractData::isAvailable() const {
    return has(english) || has(simplified) || has(traditional);
}

QString TesseractData::missingReason() const {
    QStringList missing;
    for (const QString& language : {english, simplified, traditional}) {
        if (!has(language))
            missing << L10n::t(QStringLiteral("%1 text cannot be read: the package %2 is not installed"),
                               QStringLiteral("无法识别%1文字：未安装软件包 %2"))
                           .arg(languageName(language), packageName(language));
    }
    if (missing.size() == 3)
        return L10n::t(QStringLiteral(
                           "Text on the screen cannot be read: no Tesseract language data in %1 "
                           "(packages tesseract-ocr-eng, tesseract-ocr-chi-sim, tesseract-ocr-chi-tra)"),
                       QStringLiteral(
                           "无法识别屏幕上的文字：%1 中没有 Tesseract 语言数据"
                           "（软件包 tesseract-ocr-eng、tesseract-ocr-chi-sim、tesseract-ocr-chi-tra）"))
            .arg(m_path);
    return missing.join(L10n::t(QStringLiteral("; "), QStringLiteral("；")));
}
