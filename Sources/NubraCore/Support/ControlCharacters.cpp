#include "NubraCore/Support/ControlCharacters.h"

namespace ControlCharacters {

bool isControl(char16_t c) {
    return c < 0x20 || (c >= 0x7f && c <= 0x9f);
}

QString escaped(QStringView text) {
    QString out;
    out.reserve(text.size());
    for (const QChar character : text) {
        const char16_t c = character.unicode();
        if (!isControl(c)) {
            out += character;
            continue;
        }
        switch (c) {
        case u'\n':
            out += u"\\n";
            break;
        case u'\r':
            out += u"\\r";
            break;
        case u'\t':
            out += u"\\t";
            break;
        default:
            out += u"\\x" + QString::number(c, 16).rightJustified(2, u'0');
        }
    }
    return out;
}

QString stripped(QStringView text) {
    QString out;
    out.reserve(text.size());
    for (const QChar character : text) {
        const char16_t c = character.unicode();
        if (!isControl(c) || c == u'\n' || c == u'\t')
            out += character;
    }
    return out;
}

} // namespace ControlCharacters
