#include "NubraCLI/CommandLine.h"

#include <QCoreApplication>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Nubra"));
    QCoreApplication::setApplicationName(QStringLiteral("nubra-cli"));
    QCoreApplication::setApplicationVersion(QStringLiteral(NUBRA_VERSION));
    return CommandLine::run(QCoreApplication::arguments().mid(1));
}
