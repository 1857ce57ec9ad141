#include "NubraCLI/Console.h"

#include "NubraCore/Support/ControlCharacters.h"

#include <cstdio>
#include <unistd.h>

namespace Console {

namespace {

void write(std::FILE* stream, const QByteArray& bytes) {
    std::fwrite(bytes.constData(), 1, std::size_t(bytes.size()), stream);
    std::fflush(stream);
}

QByteArray readable(const QString& text) {
    return ControlCharacters::stripped(text).toUtf8();
}

} // namespace

void out(const QString& text) {
    write(stdout, readable(text));
}

void err(const QString& text) {
    write(stderr, readable(text));
}

void data(const QByteArray& bytes) {
    write(stdout, ::isatty(STDOUT_FILENO) ? readable(QString::fromUtf8(bytes)) : bytes);
}

void error(const QString& message) {
    err(QStringLiteral("nubra-cli: ") + message + u'\n');
}

} // namespace Console
