#pragma once

#include "NubraCore/Settings/PermissionPhase.h"

#include <QWidget>

#include <array>

class AppSettings;
class QLabel;
class QStackedWidget;

// The onboarding window's content: one screen per permission phase, following the phase as it moves.
// The request to turn accessibility on, a short check, the restart screen, the first-use guide and
// the closing confirmation. Its buttons only announce what the user asked for; the window that hosts
// the view carries it out. Main thread only.
class PermissionFlowView final : public QWidget {
    Q_OBJECT

public:
    // The waiting screen and the first-use guide have widths of their own; the others fill the view.
    static constexpr int waitingWidth = 380;
    static constexpr int guideWidth = 340;

    // `settings` must outlive the view.
    explicit PermissionFlowView(AppSettings& settings, QWidget* parent = nullptr);

    // "开启 Nubra" / "Get Started with Nubra": the title of the window that hosts this view.
    static QString windowTitleText();

    // Names the running applications that keep their text from accessibility under the guide's note
    // about them; none hides the line.
    void showTreelessApplications(const QStringList& names);
    // What capture can do on this desktop, one line each, under the guide.
    void showDesktopCapabilities(const QStringList& lines);

signals:
    // Lead the user to the desktop's accessibility switch.
    void openSettingsRequested();
    // Start Nubra again, now.
    void restartRequested();
    // The user will restart later: put the window away.
    void closeRequested();
    // The first-use guide came on screen: time to tell it which applications keep their text.
    void guideShown();

protected:
    void showEvent(QShowEvent* event) override;

private:
    QWidget* waitingScreen();
    QWidget* restartScreen();
    QWidget* guideScreen();
    void showCurrentPhase();

    AppSettings& m_settings;
    QStackedWidget* m_screens;
    // One screen per phase, in the order of PermissionPhase.
    std::array<QWidget*, 5> m_pages{};
    QLabel* m_treelessRunning = nullptr;
    QLabel* m_capabilities = nullptr;
};
