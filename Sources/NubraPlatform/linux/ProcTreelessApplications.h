#pragma once

#include "NubraPlatform/TreelessApplications.h"

#include <QHash>

class DesktopEntryNames;

// Finds Chromium-based browsers and Electron applications in the process table. A browser is known by
// its executable's name or by Chromium's resource packs beside it, an Electron application by its
// bundled app (resources/app.asar or resources/app/) or an `electron` executable. Only this user's
// main processes count (their children carry a --type= argument), and only those started without
// --force-renderer-accessibility and without ACCESSIBILITY_ENABLED=1 in their environment. A process
// that ends while it is read is skipped. Safe from any thread; no state between calls.
class ProcTreelessApplications final : public TreelessApplications {
public:
    // A command line, environment or status file is read up to this size; the rest is ignored.
    static constexpr qint64 maxProcFileBytes = 64 * 1024;

    // `names` must outlive this object; `procRoot` is where the process table is mounted.
    explicit ProcTreelessApplications(DesktopEntryNames& names, QString procRoot = QStringLiteral("/proc"));

    QList<TreelessApp> running() override;
    std::optional<TreelessApp> application(qint64 processId) override;

private:
    // What each executable seen in one walk is, so that the many processes of one program cost one look.
    using KindCache = QHash<QString, std::optional<TreelessApp::Kind>>;

    std::optional<TreelessApp> inspect(qint64 processId, KindCache& kinds);
    QString displayName(const QString& executable);

    DesktopEntryNames& m_names;
    QString m_procRoot;
};
