#include "NubraCLI/HistoryCommand.h"

#include "NubraCLI/CommandParser.h"
#include "NubraCLI/Console.h"
#include "NubraCLI/ExitCode.h"
#include "NubraCLI/HistoryLocation.h"
#include "NubraCore/History/HistoryExporter.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QSaveFile>

namespace HistoryCommand {

namespace {

// As many records as the app's history keeps and its window lists.
constexpr int DefaultLimit = 100;

QCommandLineOption limitOption() {
    return {QStringLiteral("limit"),
            L10n::t(QStringLiteral("At most N records, newest first (default 100; a negative N means all)."),
                    QStringLiteral("最多 N 条记录，最新的在前（默认 100；负数表示全部）。")),
            QStringLiteral("N"), QString::number(DefaultLimit)};
}

std::optional<int> limitValue(CommandParser& command, const QCommandLineOption& option) {
    bool ok = false;
    const QString text = command.parser().value(option);
    const int limit = text.toInt(&ok);
    if (ok)
        return limit;
    command.usageError(L10n::t(QStringLiteral("--limit takes a whole number, not '"),
                               QStringLiteral("--limit 需要整数，而不是 '")) +
                       text + u'\'');
    return std::nullopt;
}

// One line per record: id, local time, selected text and explanation, separated by tabs; line breaks
// and tabs inside the texts become blanks so that every record stays on its line.
QString listLine(const HistoryRecord& record) {
    const auto flat = [](QString text) {
        return text.replace(QStringLiteral("\r\n"), QStringLiteral(" "))
            .replace(u'\n', u' ')
            .replace(u'\r', u' ')
            .replace(u'\t', u' ');
    };
    return QString::number(record.id) + u'\t' + HistoryExporter::displayFormatter().string(record.createdAt) +
           u'\t' + flat(record.selectedText) + u'\t' + flat(record.gloss) + u'\n';
}

int printRecords(const QList<HistoryRecord>& records) {
    QString text;
    for (const HistoryRecord& record : records)
        text += listLine(record);
    Console::out(text);
    return ExitCode::ok;
}

int list(const QStringList& arguments) {
    CommandParser command(
        QStringLiteral("history list"),
        L10n::t(QStringLiteral("List stored lookups, newest first: id, time, text, explanation "
                               "(tab-separated)."),
                QStringLiteral("列出历史记录，最新的在前：编号、时间、文本、解释（以制表符分隔）。")));
    const QCommandLineOption limit = limitOption();
    command.addOption(limit);
    const HistoryLocation location(command);
    if (const auto exit = command.parse(arguments))
        return *exit;
    if (const auto exit = command.refuseArguments())
        return *exit;
    const auto n = limitValue(command, limit);
    if (!n)
        return ExitCode::usage;
    const auto store = location.open();
    if (!store)
        return ExitCode::storage;
    return printRecords(store->recent(*n));
}

int search(const QStringList& arguments) {
    CommandParser command(
        QStringLiteral("history search"),
        L10n::t(
            QStringLiteral("List stored lookups whose text or explanation contains KEYWORD (ASCII case is "
                           "ignored; % and _ are wildcards)."),
            QStringLiteral("列出文本或解释中包含 KEYWORD 的记录（不区分 ASCII 大小写；% 和 _ 为通配符）。")));
    command.addPositional(QStringLiteral("KEYWORD"),
                          L10n::t(QStringLiteral("What to look for, used exactly as given."),
                                  QStringLiteral("要查找的内容，原样使用。")));
    const QCommandLineOption limit = limitOption();
    command.addOption(limit);
    const HistoryLocation location(command);
    if (const auto exit = command.parse(arguments))
        return *exit;
    const QStringList positional = command.parser().positionalArguments();
    if (positional.size() != 1)
        return command.usageError(
            L10n::t(QStringLiteral("expects exactly one KEYWORD (quote it if it has blanks)."),
                    QStringLiteral("需要且只需要一个 KEYWORD（含空格时请加引号）。")));
    const auto n = limitValue(command, limit);
    if (!n)
        return ExitCode::usage;
    const auto store = location.open();
    if (!store)
        return ExitCode::storage;
    return printRecords(store->search(positional.constFirst(), *n));
}

// Shared by count and clear: no arguments besides --db.
std::optional<int> parseBare(CommandParser& command, const QStringList& arguments) {
    if (const auto exit = command.parse(arguments))
        return exit;
    return command.refuseArguments();
}

int count(const QStringList& arguments) {
    CommandParser command(QStringLiteral("history count"),
                          L10n::t(QStringLiteral("Print the number of stored lookups."),
                                  QStringLiteral("输出历史记录的条数。")));
    const HistoryLocation location(command);
    if (const auto exit = parseBare(command, arguments))
        return *exit;
    const auto store = location.open();
    if (!store)
        return ExitCode::storage;
    Console::out(QString::number(store->count()) + u'\n');
    return ExitCode::ok;
}

int clear(const QStringList& arguments) {
    CommandParser command(
        QStringLiteral("history clear"),
        L10n::t(QStringLiteral("Delete every stored lookup."), QStringLiteral("删除全部历史记录。")));
    const HistoryLocation location(command);
    if (const auto exit = parseBare(command, arguments))
        return *exit;
    const auto store = location.open();
    if (!store)
        return ExitCode::storage;
    const int removed = store->count();
    try {
        store->clear();
    } catch (const HistoryStoreError& error) {
        Console::error(
            L10n::t(QStringLiteral("could not clear the history: "), QStringLiteral("无法清除历史记录：")) +
            error.localizedDescription());
        return ExitCode::storage;
    }
    Console::out(L10n::t(QStringLiteral("Records deleted: "), QStringLiteral("已删除记录：")) +
                 QString::number(removed) + u'\n');
    return ExitCode::ok;
}

int exportRecords(const QStringList& arguments) {
    CommandParser command(
        QStringLiteral("history export"),
        L10n::t(QStringLiteral("Export stored lookups, newest first, as Markdown or JSON Lines."),
                QStringLiteral("以 Markdown 或 JSON Lines 导出历史记录，最新的在前。")));
    const QCommandLineOption format(
        QStringLiteral("format"),
        L10n::t(QStringLiteral("md (Markdown, the default) or jsonl (JSON Lines)."),
                QStringLiteral("md（Markdown，默认）或 jsonl（JSON Lines）。")),
        QStringLiteral("FORMAT"), QStringLiteral("md"));
    const QCommandLineOption output(QStringList{QStringLiteral("o"), QStringLiteral("output")},
                                    L10n::t(QStringLiteral("Write to FILE instead of standard output."),
                                            QStringLiteral("写入 FILE 而不是标准输出。")),
                                    QStringLiteral("FILE"));
    const QCommandLineOption limit = limitOption();
    for (const auto& option : {format, output, limit})
        command.addOption(option);
    const HistoryLocation location(command);
    if (const auto exit = parseBare(command, arguments))
        return *exit;

    const QString formatName = command.parser().value(format);
    if (formatName != u"md" && formatName != u"jsonl")
        return command.usageError(L10n::t(QStringLiteral("--format takes md or jsonl, not '"),
                                          QStringLiteral("--format 只能是 md 或 jsonl，而不是 '")) +
                                  formatName + u'\'');
    const auto n = limitValue(command, limit);
    if (!n)
        return ExitCode::usage;
    const auto store = location.open();
    if (!store)
        return ExitCode::storage;

    const QList<HistoryRecord> records = store->recent(*n);
    const QByteArray bytes = formatName == u"md"
                                 ? HistoryExporter::markdown(records, QDateTime::currentDateTime())
                                 : HistoryExporter::jsonl(records);
    if (!command.parser().isSet(output)) {
        Console::data(bytes);
        return ExitCode::ok;
    }
    // Written whole or not at all: an existing file is only replaced by a complete export.
    QSaveFile file(command.parser().value(output));
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        Console::error(L10n::t(QStringLiteral("cannot write "), QStringLiteral("无法写入 ")) +
                       file.fileName() + QStringLiteral(": ") + file.errorString());
        return ExitCode::storage;
    }
    return ExitCode::ok;
}

void printUsage() {
    Console::out(
        L10n::t(QStringLiteral("Usage: nubra-cli history <list|search|count|clear|export> [options]\n"
                               "Run 'nubra-cli history <command> --help' for a command's options.\n"),
                QStringLiteral("用法：nubra-cli history <list|search|count|clear|export> [选项]\n"
                               "运行 'nubra-cli history <命令> --help' 查看各命令的选项。\n")));
}

} // namespace

int run(const QStringList& arguments) {
    if (arguments.isEmpty()) {
        Console::error(L10n::t(QStringLiteral("history: which one? list, search, count, clear or export."),
                               QStringLiteral("history：请指定 list、search、count、clear 或 export。")));
        return ExitCode::usage;
    }
    const QString sub = arguments.constFirst();
    const QStringList rest = arguments.mid(1);
    if (sub == u"list")
        return list(rest);
    if (sub == u"search")
        return search(rest);
    if (sub == u"count")
        return count(rest);
    if (sub == u"clear")
        return clear(rest);
    if (sub == u"export")
        return exportRecords(rest);
    if (sub == u"--help" || sub == u"-h" || sub == u"help") {
        printUsage();
        return ExitCode::ok;
    }
    Console::error(
        L10n::t(QStringLiteral("history: unknown command '"), QStringLiteral("history：未知命令 '")) + sub +
        u'\'');
    return ExitCode::usage;
}

} // namespace HistoryCommand
