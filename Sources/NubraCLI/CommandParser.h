#pragma once

#include <QCommandLineParser>
#include <QStringList>

#include <optional>

// One sub-command's options over QCommandLineParser, with --help and the usage errors every command
// answers the same way.
class CommandParser {
public:
    // `command` as typed ("history list"), its one-line description and the positional arguments'
    // synopsis for the help text.
    CommandParser(const QString& command, const QString& description);

    QCommandLineParser& parser() { return m_parser; }
    void addOption(const QCommandLineOption& option) { m_parser.addOption(option); }
    void addPositional(const QString& name, const QString& description, const QString& syntax = {});

    // Parses `arguments` (everything after the command's own words). Returns an exit code when the
    // command is done already: its help was printed (0) or the line was refused (2).
    std::optional<int> parse(const QStringList& arguments);

    // Prints "nubra-cli: <command>: <message>" and the hint to ask for help; returns the usage code.
    int usageError(const QString& message) const;
    // For commands without positional arguments: the usage code when one was given anyway.
    std::optional<int> refuseArguments() const;

    QString helpText() const;

private:
    QString m_command;
    QCommandLineParser m_parser;
};
