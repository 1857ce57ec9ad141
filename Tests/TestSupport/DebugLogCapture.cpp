#include "TestSupport/DebugLogCapture.h"

#include "NubraCore/Support/DebugLog.h"

#include <QFile>

namespace {
// "yyyy-MM-dd HH:mm:ss +0000 " precedes every message.
constexpr qsizetype stampLength = 26;
} // namespace

DebugLogCapture::DebugLogCapture() : m_previousPath(DebugLog::path()) {
    DebugLog::setPath(path());
}

DebugLogCapture::~DebugLogCapture() {
    DebugLog::setPath(m_previousPath);
}

QString DebugLogCapture::path() const {
    return m_dir.filePath(QStringLiteral("nb-debug.log"));
}

QByteArray DebugLogCapture::raw() const {
    QFile file(path());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

QStringList DebugLogCapture::messages() const {
    QStringList lines = QString::fromUtf8(raw()).split(u'\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    for (QString& line : lines)
        line = line.mid(stampLength);
    return lines;
}

void DebugLogCapture::clear() {
    QFile::remove(path());
}
