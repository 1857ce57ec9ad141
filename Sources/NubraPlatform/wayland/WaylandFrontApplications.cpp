#include "NubraPlatform/wayland/WaylandFrontApplications.h"

#include "NubraPlatform/linux/AtspiAccessibility.h"
#include "NubraPlatform/linux/DesktopEntryNames.h"
#include "NubraPlatform/linux/X11Desktop.h"

#include <QFile>

namespace {

// The command name of a process (at most 15 characters, as the kernel keeps it).
QString commandOf(qint64 processId) {
    QFile file(QStringLiteral("/proc/%1/comm").arg(processId));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromLocal8Bit(file.read(64)).trimmed();
}

} // namespace

std::optional<FrontApp> WaylandFrontApplications::frontmost() {
    if (std::optional<FrontApp> x11 = m_x11.frontmost())
        return x11;
    const std::optional<std::pair<qint64, QString>> focused = m_accessibility.focusedApplication();
    if (!focused)
        return std::nullopt;
    const auto& [processId, accessibleName] = *focused;
    const QString command = commandOf(processId);
    // A toolkit names its application after the program ("mousepad", "gnome-text-editor"), which is
    // what desktop entries are found by when there is no window class to go by.
    const QString identifier = accessibleName.isEmpty() ? command : accessibleName;
    WindowAppHints hints;
    hints.wmClass = identifier;
    hints.wmInstance = command;
    QString name = m_names.displayName(hints, DesktopEntryNames::interfaceLocales());
    if (name.isEmpty())
        name = identifier;
    FrontApp app{name, identifier.isEmpty() ? std::nullopt : std::optional<QString>(identifier), processId};
    return app;
}
