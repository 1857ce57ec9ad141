#include "NubraCLI/UpdateCheckCommand.h"
#include "NubraBuildInfo/BuildInfo.h"

#include "NubraCLI/CommandParser.h"
#include "NubraCLI/Console.h"
#include "NubraCLI/ExitCode.h"
#include "NubraCLI/ServiceAddress.h"
#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Update/UpdateCheck.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QEventLoop>

namespace UpdateCheckCommand {

int run(const QStringList& arguments) {
    CommandParser command(
        QStringLiteral("update-check"),
        L10n::t(QStringLiteral("Ask the service whether a newer release exists and print the "
                               "outcome (nothing is downloaded)."),
                QStringLiteral("询问服务是否有新版本并输出结果（不会下载）。")));
    const QCommandLineOption current(
        QStringLiteral("current"),
        L10n::t(QStringLiteral("The running version to compare with (default: this build's, ") +
                    BuildInfo::version() + QStringLiteral(")."),
                QStringLiteral("用于比较的当前版本（默认为本构建的 ") + BuildInfo::version() +
                    QStringLiteral("）。")),
        QStringLiteral("VERSION"), BuildInfo::version());
    command.addOption(current);
    const ServiceAddress service(command);
    if (const auto exit = command.parse(arguments))
        return *exit;
    if (const auto exit = command.refuseArguments())
        return *exit;
    const auto baseUrl = service.resolve();
    if (!baseUrl)
        return ExitCode::usage;

    const QString version = command.parser().value(current);
    CheckResult result;
    QEventLoop loop;
    UpdateCheck::check(GlossAPI(*baseUrl, nubraDirectSession()), version, &loop,
                       [&](const CheckResult& outcome) {
                           result = outcome;
                           loop.quit();
                       });
    loop.exec();
    nbDebug(QStringLiteral("updater: result=") + result.description());

    switch (result.kind) {
    case CheckResult::Kind::available: {
        QString text = L10n::t(QStringLiteral("New version available: "), QStringLiteral("发现新版本：")) +
                       result.info.version + u'\n';
        if (!result.info.notes.isEmpty())
            text += result.info.notes + u'\n';
        text += result.info.downloadURL.toString() + u'\n';
        Console::out(text);
        return ExitCode::ok;
    }
    case CheckResult::Kind::failed:
        Console::err(result.message + u'\n');
        return ExitCode::failed;
    case CheckResult::Kind::upToDate:
        break;
    }
    Console::out(UpdateCheck::upToDateMessage(version) + u'\n');
    return ExitCode::ok;
}

} // namespace UpdateCheckCommand
