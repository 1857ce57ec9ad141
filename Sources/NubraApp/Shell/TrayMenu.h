#pragma once

#include "NubraApp/Capture/SelectionSnapshot.h"
#include "NubraPlatform/Desktop.h"

#include <QMenu>
#include <QPointer>

#include <functional>
#include <optional>
#include <vector>

class AppState;
class QActionGroup;
class QMessageBox;

// The tray icon's menu: the permission and status lines, the four explanation choices, pause, the
// lookup of text on the screen, the windows, the diagnostic commands and quit. It is built once and brought
// up to date from the state in place (labels, check marks, which items show) before it opens and whenever a
// setting it shows changes, so a D-Bus menu host, which reads the layout without opening the menu, sees it
// current and item ids stay stable. Main thread only.
class TrayMenu : public QMenu {
    Q_OBJECT

public:
    static constexpr auto debugMenuKey = "ShowDebugMenu";

    // `desktop` serves the capture test and the diagnosis, which read off the main thread.
    TrayMenu(AppState& state, const Desktop& desktop, QWidget* parent = nullptr);
    ~TrayMenu() override;

    // The line shown while capture is paused.
    static QString pausedText();

    // What runs in the background, such as a download, shown with a command to cancel it; empty
    // when nothing does.
    void setActivity(const QString& activity);

    // Where the status line learns whether the selection monitor runs; "not running" until set.
    void setMonitorRunning(std::function<bool()> isRunning);
    // What the diagnosis adds about the features beside capture (text on the screen, Anki), one
    // line each, asked for when it is shown.
    void setFeatureLines(std::function<QStringList()> lines);

public slots:
    // Re-reads the state into every label, check mark and visible item.
    void refresh();
    // Reads the current selection in the background and reports it in an alert.
    void runCaptureTest();
    // Composes the capture-environment diagnosis in the background and shows it in an alert.
    void showDiagnosis();

signals:
    void closeCardRequested();
    void screenTextRequested();
    void checkForUpdatesRequested();
    void cancelActivityRequested();

private:
    struct Labelled {
        QAction* action;
        std::function<QString()> label;
    };
    struct Choice {
        QAction* action;
        std::function<bool()> isChosen;
    };

    QAction* addItem(const char* name, std::function<QString()> label, std::function<void()> onTrigger = {});
    QMenu* addChoices(const char* name, std::function<QString()> title);
    void addChoice(QMenu* submenu, const QString& name, std::function<QString()> label,
                   std::function<bool()> isChosen, std::function<void(bool)> choose);
    void showCaptureResult(const std::optional<SelectionSnapshot>& snapshot, const QString& diagnosis);
    void showAlert(const QString& name, const QString& title, const QString& body, bool warning,
                   const std::optional<QString>& buttonText);
    bool debugMenuShown() const;

    AppState& m_state;
    Desktop m_desktop;
    std::function<bool()> m_monitorRunning;
    std::function<QStringList()> m_featureLines;
    std::vector<Labelled> m_labels;
    std::vector<Choice> m_choices;
    std::vector<QPointer<QMessageBox>> m_alerts;
    bool m_captureTestRunning = false;
    bool m_diagnosisRunning = false;

    QAction* m_permission = nullptr;
    QAction* m_restart = nullptr;
    QAction* m_permissionSeparator = nullptr;
    QAction* m_pausedLine = nullptr;
    QAction* m_statusLine = nullptr;
    std::vector<QAction*> m_debugItems;
    QString m_activity;
    QAction* m_activityLine = nullptr;
    QAction* m_cancelActivity = nullptr;
};
