#include "NubraApp/Foundation/DesktopEntryText.h"

namespace DesktopEntryText {

QString escaped(const QString& text) {
    QString result;
    for (const QChar c : text) {
        if (c == u'\\')
            result += u"\\\\";
        else if (c == u'\n')
            result += u"\\n";
        else if (c == u'\t')
            result += u"\\t";
        else if (c == u'\r')
            result += u"\\r";
        else
            result += c;
    }
    return result;
}

QString quotedArgument(const QString& program) {
    QString quoted = QStringLiteral("\"");
    for (const QChar c : program) {
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
            quoted += u'\\';
        quoted += c;
        if (c == u'%')
            quoted += u'%';
    }
    return quoted + u'"';
}

} // namespace DesktopEntryText
