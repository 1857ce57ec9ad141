#pragma once

#include "NubraApp/Shell/TrayMenu.h"

#include <QIcon>
#include <QObject>
#include <QString>

#include <memory>

class AppState;
class QSystemTrayIcon;
class QTimer;

// Nubra's presence on the desktop: the tray icon (the mark, or a moon while paused) with its menu.
//
// Qt chooses its tray backend once per process, at the first tray call: the D-Bus StatusNotifierItem
// when a StatusNotifierWatcher with a host is on the session bus, the XEmbed tray otherwise. At login
// the panel may come up after Nubra, so no tray call is made until the watcher is there, or an XEmbed
// tray runs and no watcher does, or hostWaitMs have passed, whichever is first.
class TrayIcon : public QObject {
    Q_OBJECT

public:
    static constexpr int hostWaitMs = 3000;
    static constexpr auto watcherService = "org.kde.StatusNotifierWatcher";

    TrayIcon(AppState& state, const Desktop& desktop, QObject* parent = nullptr);
    ~TrayIcon() override;

    TrayMenu& menu() { return *m_menu; }
    // What the tray shows, kept current before the tray exists.
    const QIcon& icon() const { return m_icon; }
    const QString& toolTip() const { return m_toolTip; }
    // Shown after the name in the tooltip (and in the menu), e.g. a download's progress; empty for none.
    void setActivity(const QString& activity);
    // Null until the tray has been made.
    QSystemTrayIcon* systemTrayIcon() const { return m_tray; }

signals:
    // The tray exists and is shown.
    void shown();

private:
    void watchForHost();
    void show();
    void updateLook();

    AppState& m_state;
    std::unique_ptr<TrayMenu> m_menu;
    QSystemTrayIcon* m_tray = nullptr;
    QTimer* m_hostWait = nullptr;
    QIcon m_icon;
    bool m_iconPaused = false;
    QString m_toolTip;
    QString m_activity;
};
