#pragma once

#include <QString>

// Where Tesseract's language data is and which of it is installed (the Debian packages
// tesseract-ocr-eng, -chi-sim and -chi-tra), known without loading Tesseract.
class TesseractData {
public:
    enum class ChineseScript { Simplified, Traditional };

    static const QString english;
    static const QString simplified;
    static const QString traditional;

    static QString defaultPath();
    // Traditional for Taiwan, Hong Kong and Macao and for locales that name the script.
    static ChineseScript systemChineseScript();

    explicit TesseractData(QString path = defaultPath()) : m_path(std::move(path)) {}

    const QString& path() const { return m_path; }
    bool has(const QString& language) const;
    // While at least one language can be read.
    bool isAvailable() const;
    // Every language whose data is missing, in words for the diagnosis: may be set while available.
    QString missingReason() const;

private:
    QString m_path;
};
