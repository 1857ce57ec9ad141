#include "NubraCLI/Console.h"

#include <cstdio>

namespace Console {

namespace {

void write(std::FILE* stream, const QByteArray& bytes) {
    std::fwrite(bytes.constData(), 1, std::size_t(bytes.size()), stream);
    std::fflush(stream);
}

} // namespace

void out(const QByteArray& bytes) {
    write(stdout, bytes);
}

void out(const QString& text) {
    write(stdout, text.toUtf8());
}

void err(const QString& text) {
    write(stderr, text.toUtf8());
}

void error(const QString& message) {
    err(QStringLiteral("nubra-cli: ") + message + u'\n');
}

} // namespace Console
