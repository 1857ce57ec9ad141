#include "NubraCore/Vocabulary/SpeechLanguage.h"

namespace {

// Common characters written differently in the two Chinese scripts; enough to tell a sentence's script.
constexpr char16_t simplifiedOnly[] = u"们这说国来时个会为学对发过还门东车书见长开关电话语读写马鸟鱼认难爱气";
constexpr char16_t traditionalOnly[] =
    u"們這說國來時個會為學對發過還門東車書見長開關電話語讀寫馬鳥魚認難愛氣";

bool contains(const char16_t* set, char32_t c) {
    for (const char16_t* p = set; *p; ++p) {
        if (*p == c)
            return true;
    }
    return false;
}

bool isHan(char32_t c) {
    return (c >= 0x4E00 && c <= 0x9FFF) || (c >= 0x3400 && c <= 0x4DBF) || (c >= 0x20000 && c <= 0x2FA1F) ||
           (c >= 0xF900 && c <= 0xFAFF);
}
bool isKana(char32_t c) {
    return (c >= 0x3040 && c <= 0x30FF) || (c >= 0x31F0 && c <= 0x31FF);
}
bool isHangul(char32_t c) {
    return (c >= 0xAC00 && c <= 0xD7AF) || (c >= 0x1100 && c <= 0x11FF) || (c >= 0x3130 && c <= 0x318F);
}

} // namespace

QLocale SpeechLanguage::forText(const QString& text, const QLocale& interface) {
    int han = 0, kana = 0, hangul = 0, latin = 0, simplified = 0, traditional = 0;
    for (const char32_t c : text.toUcs4()) {
        if (isHan(c)) {
            ++han;
            simplified += contains(simplifiedOnly, c);
            traditional += contains(traditionalOnly, c);
        } else if (isKana(c)) {
            ++kana;
        } else if (isHangul(c)) {
            ++hangul;
        } else if (QChar::script(c) == QChar::Script_Latin && QChar::isLetter(c)) {
            ++latin;
        }
    }
    // Japanese mixes kana into Han, so any kana decides; Han outweighs Latin words in a Chinese sentence.
    if (kana > 0)
        return QLocale(QLocale::Japanese, QLocale::Japan);
    if (hangul > 0 && hangul >= han)
        return QLocale(QLocale::Korean, QLocale::SouthKorea);
    if (han > 0) {
        return traditional > simplified
                   ? QLocale(QLocale::Chinese, QLocale::TraditionalHanScript, QLocale::Taiwan)
                   : QLocale(QLocale::Chinese, QLocale::SimplifiedHanScript, QLocale::China);
    }
    if (latin > 0)
        return QLocale(QLocale::English, QLocale::UnitedStates);
    return interface;
}

std::optional<QLocale> SpeechLanguage::bestMatch(const QLocale& wanted, const QList<QLocale>& available) {
    std::optional<QLocale> best;
    int bestScore = -1;
    for (const QLocale& locale : available) {
        if (locale.language() != wanted.language())
            continue;
        const int score =
            2 * (locale.script() == wanted.script()) + (locale.territory() == wanted.territory());
        if (score > bestScore) {
            best = locale;
            bestScore = score;
        }
    }
    return best;
}
