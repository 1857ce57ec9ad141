#include "NubraApp/Shell/CommandLine.h"
#include "NubraBuildInfo/BuildInfo.h"

#include <cstdio>

using Action = LaunchRequest::Action;

namespace {

// The option that asks for `action`, as the user typed it, for error messages.
QString optionText(Action action, std::optional<SettingsTab> tab) {
    QString text = QStringLiteral("--") + nameOf(action);
    if (tab)
        text += u' ' + settingsTabName(*tab);
    return text;
}

CommandLine::Exit usageError(const QString& message) {
    return {CommandLine::usageExitCode,
            QStringLiteral("nubra: ") + message + QStringLiteral("; try 'nubra --help'.\n")};
}

QString quoted(const QString& text) {
    return u'\'' + text + u'\'';
}

} // namespace

namespace CommandLine {

Parsed parse(const QStringList& arguments) {
    Parsed parsed;
    bool help = false;
    bool version = false;
    std::optional<Action> chosen;
    std::optional<SettingsTab> chosenTab;

    const auto fail = [&parsed](const QString& message) {
        parsed.exit = usageError(message);
        return parsed;
    };
    const auto choose = [&](Action action, std::optional<SettingsTab> tab) -> std::optional<QString> {
        // Repeating the same action is harmless; two different ones cannot both be meant.
        if (chosen && (*chosen != action || chosenTab != tab))
            return QStringLiteral("choose one action, not both ") + optionText(*chosen, chosenTab) +
                   QStringLiteral(" and ") + optionText(action, tab);
        chosen = action;
        chosenTab = tab;
        return std::nullopt;
    };

    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (!argument.startsWith(u'-'))
            return fail(QStringLiteral("unexpected argument ") + quoted(argument));

        const qsizetype equals = argument.indexOf(u'=');
        const QString name = equals < 0 ? argument : argument.left(equals);
        const std::optional<QString> value =
            equals < 0 ? std::nullopt : std::optional<QString>(argument.mid(equals + 1));

        if (name == u"--settings") {
            std::optional<QString> tabName = value;
            // The tab may also follow as its own word; a word that looks like an option is not one.
            if (!tabName && i + 1 < arguments.size() && !arguments.at(i + 1).startsWith(u'-'))
                tabName = arguments.at(++i);
            std::optional<SettingsTab> tab;
            if (tabName) {
                tab = settingsTabFrom(*tabName);
                if (!tab)
                    return fail(QStringLiteral("unknown settings tab ") + quoted(*tabName) +
                                QStringLiteral(" (general, gloss, privacy or about)"));
            }
            if (const auto conflict = choose(Action::settings, tab))
                return fail(*conflict);
            continue;
        }

        if (name == u"--update-failed" || name == u"--update-health") {
            std::optional<QString> path = value;
            if (!path && i + 1 < arguments.size())
                path = arguments.at(++i);
            if (!path || path->isEmpty())
                return fail(name + QStringLiteral(" needs a file"));
            (name == u"--update-failed" ? parsed.request.updateFailedNote : parsed.request.updateHealthFile) =
                path;
            continue;
        }

        std::optional<Action> action;
        bool* flag = nullptr;
        if (name == u"--history")
            action = Action::history;
        else if (name == u"--pause")
            action = Action::pause;
        else if (name == u"--resume")
            action = Action::resume;
        else if (name == u"--lookup")
            action = Action::lookup;
        else if (name == u"--ocr")
            action = Action::ocr;
        else if (name == u"--quit")
            action = Action::quit;
        else if (name == u"--dev")
            flag = &parsed.request.dev;
        else if (name == u"--replace")
            flag = &parsed.request.replace;
        else if (name == u"--help" || name == u"-h")
            flag = &help;
        else if (name == u"--version")
            flag = &version;
        else
            return fail(QStringLiteral("unknown option ") + quoted(argument));

        if (value)
            return fail(name + QStringLiteral(" takes no value"));
        if (flag)
            *flag = true;
        else if (const auto conflict = choose(*action, std::nullopt))
            return fail(*conflict);
    }

    if (help) {
        parsed.exit = Exit{0, helpText()};
        return parsed;
    }
    if (version) {
        parsed.exit = Exit{0, versionText()};
        return parsed;
    }
    if (parsed.request.replace && chosen == Action::quit)
        return fail(QStringLiteral("--replace cannot be combined with --quit"));
    parsed.request.action = chosen.value_or(Action::reopen);
    parsed.request.settingsTab = chosenTab;
    return parsed;
}

QString helpText() {
    return QStringLiteral(
        "Usage: nubra [ACTION] [OPTIONS]\n"
        "\n"
        "Nubra explains the text you select, in place. It runs once per desktop session: a second\n"
        "'nubra' hands its action to the running one and exits.\n"
        "\n"
        "Actions (at most one):\n"
        "  (none)            start Nubra, or bring up the one already running\n"
        "  --history         open the history window\n"
        "  --settings [TAB]  open the settings window; TAB is general, gloss, privacy or about\n"
        "  --pause           pause capture\n"
        "  --resume          resume capture\n"
        "  --lookup          explain the text selected now, as the hot key does; bind it to a\n"
        "                    shortcut in the desktop's settings where Nubra cannot grab keys\n"
        "  --ocr             explain text that cannot be selected: drag over it on the\n"
        "                    screen, and it is read from the picture\n"
        "  --quit            quit the running Nubra\n"
        "\n"
        "Options:\n"
        "  --dev             use the development service at http://127.0.0.1:8790\n"
        "                    (NUBRA_BASE_URL overrides it); applies when Nubra starts\n"
        "  --replace         wait for the running Nubra to exit, then take its place\n"
        "  --update-failed NOTE, --update-health FILE\n"
        "                    used by the installer: say why an update failed (NOTE holds the reason);\n"
        "                    create FILE once started, so the previous version can go\n"
        "  -h, --help        show this help\n"
        "  --version         show the version\n"
        "\n"
        "Exit codes: 0 success, 1 the running Nubra could not be reached, 2 bad command line.\n");
}

QString versionText() {
    return QStringLiteral("nubra ") + BuildInfo::version() + u'\n';
}

int report(const Exit& exit) {
    FILE* stream = exit.code == 0 ? stdout : stderr;
    const QByteArray bytes = exit.text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
    return exit.code;
}

} // namespace CommandLine
