#include "NubraPlatform/wayland/HyprlandShortcuts.h"

#include "NubraPlatform/wayland/CompositorWindows.h"
#include "NubraPlatform/wayland/DesktopShortcutKeys.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

HyprlandShortcuts::HyprlandShortcuts(QString program, QString socketPath)
    : m_program(std::move(program)), m_socketPath(std::move(socketPath)) {}

QString HyprlandShortcuts::configLine(const HotkeyCombo& combo) const {
    const std::optional<DesktopShortcutKeys> keys = DesktopShortcutKeys::of(combo);
    if (!keys)
        return {};
    return QStringLiteral("bind = %1, %2, exec, %3")
        .arg(keys->hyprlandModifiers(), keys->hyprlandKey(), lookupCommand(m_program));
}

HyprlandShortcuts::Status HyprlandShortcuts::statusOf(const QByteArray& binds, const HotkeyCombo& combo,
                                                      const QString& program) {
    const std::optional<DesktopShortcutKeys> keys = DesktopShortcutKeys::of(combo);
    const QJsonDocument document = QJsonDocument::fromJson(binds);
    if (!document.isArray())
        return {std::nullopt, {}, true};
    Status status{false, {}, false};
    if (!keys)
        return status;
    const QJsonArray list = document.array();
    for (const QJsonValue value : list) {
        const QJsonObject bind = value.toObject();
        if (bind.value(u"submap").toString() != QString() ||
            bind.value(u"modmask").toInt() != int(keys->hyprlandModmask()) ||
            bind.value(u"key").toString().compare(keys->key, Qt::CaseInsensitive) != 0)
            continue;
        const QString dispatcher = bind.value(u"dispatcher").toString();
        const QString argument = bind.value(u"arg").toString();
        if (dispatcher == u"exec" && argument.contains(program) && argument.contains(u"--lookup"))
            status.active = true;
        else if (status.takenBy.isEmpty())
            status.takenBy = QString(dispatcher + u' ' + argument).trimmed();
    }
    return status;
}

HyprlandShortcuts::Status HyprlandShortcuts::query(const HotkeyCombo& combo) {
    if (m_socketPath.isEmpty())
        return {std::nullopt, {}, false};
    const std::optional<QByteArray> reply =
        CompositorWindows::askHyprland(m_socketPath, QByteArrayLiteral("j/binds"));
    if (!reply)
        return {std::nullopt, {}, true};
    return statusOf(*reply, combo, m_program);
}
