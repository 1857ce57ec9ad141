#include "NubraApp/Shell/NubraApplication.h"
#include "NubraBuildInfo/BuildInfo.h"

#include "NubraApp/Foundation/PlatformTexts.h"
#include "NubraApp/Shell/AppDelegate.h"
#include "NubraApp/Shell/CommandLine.h"
#include "NubraApp/Shell/SingleInstance.h"
#include "NubraApp/Shell/TerminationSignals.h"
#include "NubraApp/Update/UpdateFlow.h"
#include "NubraCore/Support/DebugLog.h"
#include "NubraPlatform/PlatformDesktop.h"

#include <QApplication>
#include <QSessionManager>
#include <QTimer>

#include <cstdio>

namespace {

// Hands the request to a running Nubra. Answers the exit code when this process is done, or nothing
// when it should become the instance itself.
std::optional<int> handOver(const LaunchRequest& request) {
    const SingleInstance::ForwardResult sent = SingleInstance::forward(request);
    switch (sent.delivery) {
    case SingleInstance::Delivery::delivered:
        return 0;
    case SingleInstance::Delivery::failed:
        std::fprintf(stderr, "nubra: %s\n", qPrintable(sent.error));
        return 1;
    case SingleInstance::Delivery::noInstance:
        break;
    }
    if (!request.startsInstance())
        return 0; // nothing is running, so there is nothing to quit
    return std::nullopt;
}

} // namespace

int NubraApplication::run(int argc, char** argv) {
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    const CommandLine::Parsed parsed = CommandLine::parse(arguments);
    if (parsed.exit)
        return CommandLine::report(*parsed.exit);
    const LaunchRequest& request = parsed.request;

    const DesktopSession session = PlatformDesktop::prepareProcess();
    // A running Nubra takes the request before this process pays for a connection to the display,
    // which is most of the time a desktop shortcut running `nubra --lookup` waits for. Without a
    // display there is no desktop to run on, but a running Nubra can still be told.
    if (!request.replace || session.kind == DesktopSession::Kind::none) {
        const QCoreApplication handing(argc, argv);
        if (const std::optional<int> done = handOver(request))
            return *done;
    }
    if (session.kind == DesktopSession::Kind::none) {
        std::fputs("nubra: no graphical session (neither WAYLAND_DISPLAY nor DISPLAY is set); Nubra runs on "
                   "an X11 or Wayland desktop\n",
                   stderr);
        return 1;
    }

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Nubra"));
    QApplication::setApplicationVersion(BuildInfo::version());
    QApplication::setDesktopFileName(QStringLiteral("app.nubra.Nubra"));
    QApplication::setQuitOnLastWindowClosed(false);

    SingleInstance instance;
    const SingleInstance::ListenResult listening =
        request.replace ? instance.listenReplacing() : instance.listen();
    if (listening == SingleInstance::ListenResult::anotherInstance) {
        // Another launch won the race: it is the instance now.
        return handOver(request).value_or(0);
    }
    if (listening == SingleInstance::ListenResult::failed)
        nbDebug(QStringLiteral("instance: running without a single-instance socket: ") +
                instance.errorString());

    PlatformTexts::installQtTranslations(app);

    const QUrl baseURL = GlossAPI::configuredBaseURL(request.dev);
    int status = 0;
    {
        AppDelegate delegate(PlatformDesktop::create(session), baseURL);
        QObject::connect(&instance, &SingleInstance::requestReceived, &delegate, &AppDelegate::perform);
        TerminationSignals termination;
        QObject::connect(&termination, &TerminationSignals::received, &app,
                         []() { QCoreApplication::quit(); });
        QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate, &AppDelegate::persist);
        QObject::connect(&app, &QGuiApplication::commitDataRequest, &delegate,
                         [&delegate](QSessionManager&) { delegate.persist(); });

        delegate.applicationDidFinishLaunching();
        if (request.updateFailedNote)
            delegate.reportFailedUpdate(*request.updateFailedNote);
        if (request.updateHealthFile) // once the event loop turns: the tray is up by then
            QTimer::singleShot(0, &app,
                               [file = *request.updateHealthFile] { UpdateFlow::reportStarted(file); });
        if (request.action != LaunchRequest::Action::reopen)
            delegate.perform(request);
        status = QApplication::exec();
        delegate.shutdown();
    }
    return status;
}
