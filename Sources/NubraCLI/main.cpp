#include "NubraBuildInfo/BuildInfo.h"
#include "NubraCLI/CommandLine.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QTimer>

namespace {

// The network session aborts and deletes ended transfers through queued calls, partly on a thread of
// its own. Give them a moment before the program ends, or their objects outlive the session.
void letTransfersSettle(QCoreApplication& app) {
    if (!app.findChild<QNetworkAccessManager*>(QString(), Qt::FindDirectChildrenOnly))
        return;
    QEventLoop loop;
    QTimer::singleShot(50, &loop, &QEventLoop::quit);
    loop.exec();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Nubra"));
    QCoreApplication::setApplicationName(QStringLiteral("nubra-cli"));
    QCoreApplication::setApplicationVersion(BuildInfo::version());
    const int status = CommandLine::run(QCoreApplication::arguments().mid(1));
    letTransfersSettle(app);
    return status;
}
