#include "NubraPlatform/wayland/SwayShortcuts.h"

#include "NubraPlatform/wayland/CompositorWindows.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QRegularExpression>

#include <algorithm>

namespace {

constexpr quint32 swayGetConfig = 9;

// The configuration's statements: comments dropped, continued lines joined, blanks skipped.
QStringList statements(const QString& config) {
    QStringList lines;
    QString pending;
    for (const QString& raw : config.split(u'\n')) {
        QString line = raw.trimmed();
        if (pending.isEmpty() && line.startsWith(u'#'))
            continue;
        if (line.endsWith(u'\\')) {
            pending += line.chopped(1) + u' ';
            continue;
        }
        line = QString(pending + line).trimmed();
        pending.clear();
        if (!line.isEmpty())
            lines << line;
    }
    return lines;
}

QString replaceVariables(QString line, const QMap<QString, QString>& variables) {
    // The longest name first, so that $mod does not eat into $modifier.
    QStringList names = variables.keys();
    std::sort(names.begin(), names.end(),
              [](const QString& a, const QString& b) { return a.size() > b.size(); });
    for (const QString& name : names)
        line.replace(name, variables.value(name));
    return line;
}

// "--release Mod1+g exec foot" (after the bindsym): the keys and the command, flags skipped.
std::optional<SwayShortcuts::Binding> bindingOf(const QString& text) {
    static const QRegularExpression space(QStringLiteral("\\s+"));
    QStringList words = text.split(space, Qt::SkipEmptyParts);
    while (!words.isEmpty() && words.first().startsWith(QStringLiteral("--")))
        words.removeFirst();
    if (words.size() < 2)
        return std::nullopt;
    const std::optional<DesktopShortcutKeys> keys = DesktopShortcutKeys::fromSway(words.takeFirst());
    if (!keys)
        return std::nullopt;
    return SwayShortcuts::Binding{*keys, words.join(u' ')};
}

} // namespace

SwayShortcuts::SwayShortcuts(QString program, QString socketPath)
    : m_program(std::move(program)), m_socketPath(std::move(socketPath)) {}

QString SwayShortcuts::configLine(const HotkeyCombo& combo) const {
    const std::optional<DesktopShortcutKeys> keys = DesktopShortcutKeys::of(combo);
    return keys ? QStringLiteral("bindsym %1 exec %2").arg(keys->sway(), lookupCommand(m_program))
                : QString();
}

QList<SwayShortcuts::Binding> SwayShortcuts::bindings(const QString& config) {
    static const QRegularExpression set(QStringLiteral("^set\\s+(\\$\\S+)\\s+(.*)$"));
    static const QRegularExpression bindsym(QStringLiteral("^bindsym\\s+(.*)$"));
    QMap<QString, QString> variables;
    QList<Binding> found;
    int otherBlocks = 0;      // inside a mode or another block: not the default mode's bindings
    bool inBindBlock = false; // inside `bindsym { … }`
    for (const QString& statement : statements(config)) {
        const QString line = replaceVariables(statement, variables);
        if (line == u"}") {
            if (inBindBlock)
                inBindBlock = false;
            else if (otherBlocks > 0)
                --otherBlocks;
            continue;
        }
        if (otherBlocks > 0) {
            otherBlocks += line.endsWith(u'{') ? 1 : 0;
            continue;
        }
        if (const QRegularExpressionMatch match = set.match(statement); match.hasMatch()) {
            variables.insert(match.captured(1), replaceVariables(match.captured(2).trimmed(), variables));
        } else if (inBindBlock) {
            if (std::optional<Binding> binding = bindingOf(line))
                found << *binding;
        } else if (const QRegularExpressionMatch match = bindsym.match(line); match.hasMatch()) {
            if (line.endsWith(u'{'))
                inBindBlock = true;
            else if (std::optional<Binding> binding = bindingOf(match.captured(1)))
                found << *binding;
        } else if (line.endsWith(u'{')) {
            ++otherBlocks;
        }
    }
    return found;
}

SwayShortcuts::Status SwayShortcuts::statusOf(const QList<Binding>& bindings, const HotkeyCombo& combo,
                                              const QString& program) {
    const std::optional<DesktopShortcutKeys> keys = DesktopShortcutKeys::of(combo);
    Status status{false, {}, false};
    if (!keys)
        return status;
    // A later binding of the same keys replaces an earlier one.
    for (const Binding& binding : bindings) {
        if (!(binding.keys == *keys))
            continue;
        const bool ours = binding.command.contains(program) && binding.command.contains(u"--lookup");
        status.active = ours;
        status.takenBy = ours ? QString() : binding.command;
    }
    return status;
}

SwayShortcuts::Status SwayShortcuts::query(const HotkeyCombo& combo) {
    const std::optional<QByteArray> reply = CompositorWindows::askSway(m_socketPath, swayGetConfig);
    const QJsonObject answer = reply ? QJsonDocument::fromJson(*reply).object() : QJsonObject();
    if (!answer.value(u"config").isString())
        return {std::nullopt, {}, true};
    return statusOf(bindings(answer.value(u"config").toString()), combo, m_program);
}
