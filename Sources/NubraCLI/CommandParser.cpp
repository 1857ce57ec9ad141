#include "NubraCLI/CommandParser.h"

#include "NubraCLI/Console.h"
#include "NubraCLI/ExitCode.h"
#include "NubraCore/Vocabulary/L10n.h"

CommandParser::CommandParser(const QString& command, const QString& description) : m_command(command) {
    m_parser.setApplicationDescription(description);
    m_parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    m_parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsOptions);
    m_parser.addHelpOption();
}

void CommandParser::addPositional(const QString& name, const QString& description, const QString& syntax) {
    m_parser.addPositionalArgument(name, description, syntax);
}

std::optional<int> CommandParser::parse(const QStringList& arguments) {
    // QCommandLineParser expects the program name first; the command words stand in for it.
    QStringList line = arguments;
    line.prepend(QStringLiteral("nubra-cli ") + m_command);
    if (!m_parser.parse(line))
        return usageError(m_parser.errorText());
    if (m_parser.isSet(QStringLiteral("help"))) {
        Console::out(helpText());
        return ExitCode::ok;
    }
    return std::nullopt;
}

int CommandParser::usageError(const QString& message) const {
    Console::error(m_command + QStringLiteral(": ") + message);
    Console::err(
        L10n::t(QStringLiteral("Try 'nubra-cli ") + m_command + QStringLiteral(" --help'.\n"),
                QStringLiteral("请运行 'nubra-cli ") + m_command + QStringLiteral(" --help' 查看用法。\n")));
    return ExitCode::usage;
}

std::optional<int> CommandParser::refuseArguments() const {
    const QStringList positional = m_parser.positionalArguments();
    if (positional.isEmpty())
        return std::nullopt;
    return usageError(L10n::t(QStringLiteral("unexpected argument: "), QStringLiteral("多余的参数：")) +
                      positional.constFirst());
}

QString CommandParser::helpText() const {
    // Qt names the program after the process's own first argument (its path); the command as the
    // user types it reads better. Every command has options, so " [options]" always follows the name.
    QString text = m_parser.helpText();
    const QString usage = QStringLiteral("Usage: ");
    const qsizetype end = text.indexOf(QStringLiteral(" [options]"));
    if (text.startsWith(usage) && end > 0)
        text.replace(usage.size(), end - usage.size(), QStringLiteral("nubra-cli ") + m_command);
    return text;
}
