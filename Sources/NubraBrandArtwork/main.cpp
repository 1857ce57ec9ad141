// Draws the application icon for installation: nubra-brand-artwork DIR writes the freedesktop icon
// theme folders under DIR (hicolor/scalable and hicolor/NxN), drawn from the same shapes the running
// application draws its bubble with. A build tool; not installed.
#include "NubraApp/Foundation/BrandIcon.h"

#include <QBuffer>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QSaveFile>

#include <cstdio>

namespace {

constexpr int pixelSizes[] = {16, 22, 24, 32, 48, 64, 128, 256, 512};
constexpr auto iconName = "app.nubra.Nubra";

bool write(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).path());
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit();
}

} // namespace

int main(int argc, char** argv) {
    // Fonts need a GUI application; no display is needed to draw into images.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 2) {
        std::fputs("usage: nubra-brand-artwork DIR\n", stderr);
        return 2;
    }
    const QDir hicolor(arguments[1] + QStringLiteral("/hicolor"));
    const QString name = QString::fromLatin1(iconName);
    bool ok = write(hicolor.filePath(QStringLiteral("scalable/apps/") + name + QStringLiteral(".svg")),
                    BrandIcon::appIconSvg());
    for (const int pixels : pixelSizes) {
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        BrandIcon::appIconImage(pixels).save(&buffer, "PNG");
        ok =
            write(hicolor.filePath(QStringLiteral("%1x%1/apps/").arg(pixels) + name + QStringLiteral(".png")),
                  png) &&
            ok;
    }
    if (!ok)
        std::fprintf(stderr, "nubra-brand-artwork: cannot write under %s\n", qPrintable(hicolor.path()));
    return ok ? 0 : 1;
}
