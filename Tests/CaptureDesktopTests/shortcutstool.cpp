// Nubra's binding in sway's configuration, for shortcuts_sway.py: `line KEY MODIFIERS PROGRAM` prints the
// line to add, `query KEY MODIFIERS PROGRAM` what sway ($SWAYSOCK) has loaded, as JSON.
#include "NubraPlatform/wayland/SwayShortcuts.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: %s line|query KEY-CODE MODIFIERS PROGRAM\n", argv[0]);
        return 2;
    }
    const HotkeyCombo combo{QByteArray(argv[2]).toULongLong(), QByteArray(argv[3]).toULongLong()};
    SwayShortcuts sway(QString::fromLocal8Bit(argv[4]), qEnvironmentVariable("SWAYSOCK"));
    if (qstrcmp(argv[1], "line") == 0) {
        std::printf("%s\n", sway.configLine(combo).toUtf8().constData());
        return 0;
    }
    const DesktopShortcuts::Status status = sway.query(combo);
    const QJsonObject answer{{u"active"_qs, status.active ? QJsonValue(*status.active) : QJsonValue()},
                             {u"takenBy"_qs, status.takenBy},
                             {u"failed"_qs, status.failed}};
    std::printf("%s\n", QJsonDocument(answer).toJson(QJsonDocument::Compact).constData());
    return 0;
}
