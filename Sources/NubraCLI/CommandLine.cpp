#include "NubraCLI/CommandLine.h"
#include "NubraBuildInfo/BuildInfo.h"

#include "NubraCLI/Console.h"
#include "NubraCLI/ExitCode.h"
#include "NubraCLI/GlossCommand.h"
#include "NubraCLI/HistoryCommand.h"
#include "NubraCLI/UpdateCheckCommand.h"
#include "NubraCore/Vocabulary/L10n.h"

namespace CommandLine {

namespace {

QString usage() {
    return L10n::t(
        QStringLiteral("Usage: nubra-cli <command> [options]\n"
                       "\n"
                       "Commands:\n"
                       "  gloss TEXT      explain TEXT, streaming the answer, and store it in the history\n"
                       "  history ...     list, search, count, clear or export the history\n"
                       "  update-check    ask the service whether a newer release exists\n"
                       "\n"
                       "Run 'nubra-cli <command> --help' for a command's options.\n"
                       "Exit codes: 0 success, 1 lookup or check failed, 2 bad command line,\n"
                       "3 history database or output file unusable.\n"),
        QStringLiteral("用法：nubra-cli <命令> [选项]\n"
                       "\n"
                       "命令：\n"
                       "  gloss TEXT      解释 TEXT（边收边显示），并写入历史记录\n"
                       "  history ...     列出、搜索、统计、清除或导出历史记录\n"
                       "  update-check    询问服务是否有新版本\n"
                       "\n"
                       "运行 'nubra-cli <命令> --help' 查看各命令的选项。\n"
                       "退出码：0 成功，1 查询或检查失败，2 命令行有误，3 历史数据库或输出文件不可用。\n"));
}

} // namespace

int run(const QStringList& arguments) {
    if (arguments.isEmpty()) {
        Console::err(usage());
        return ExitCode::usage;
    }
    const QString command = arguments.constFirst();
    const QStringList rest = arguments.mid(1);
    if (command == u"gloss")
        return GlossCommand::run(rest);
    if (command == u"history")
        return HistoryCommand::run(rest);
    if (command == u"update-check")
        return UpdateCheckCommand::run(rest);
    if (command == u"--help" || command == u"-h" || command == u"help") {
        Console::out(usage());
        return ExitCode::ok;
    }
    if (command == u"--version") {
        Console::out(QStringLiteral("nubra-cli ") + BuildInfo::version() + u'\n');
        return ExitCode::ok;
    }
    Console::error(L10n::t(QStringLiteral("unknown command '"), QStringLiteral("未知命令 '")) + command +
                   L10n::t(QStringLiteral("'; try 'nubra-cli --help'."),
                           QStringLiteral("'；请运行 'nubra-cli --help'。")));
    return ExitCode::usage;
}

} // namespace CommandLine
