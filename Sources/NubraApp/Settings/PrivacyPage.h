#pragma once

#include <QWidget>

class AppState;
class QCheckBox;
class QFormLayout;
class QLabel;
class SyntheticKeyboard;

// The privacy tab: whether lookups are kept, how many, and clearing them all; whether the desktop's
// remote control may press Ctrl+C for Nubra.
class PrivacyPage final : public QWidget {
    Q_OBJECT

public:
    // `keyboard` must outlive the page.
    PrivacyPage(AppState& state, SyntheticKeyboard& keyboard, QWidget* parent = nullptr);

private:
    QWidget* remoteControlSection();
    // The switch's explanation follows what the desktop said.
    void renderRemoteControl();
    void clearHistory();
    // What the last clear reported, under the history controls.
    void setHistoryMessage(const QString& text);

    AppState& m_state;
    SyntheticKeyboard& m_keyboard;
    QCheckBox* m_remoteControl = nullptr;
    QLabel* m_remoteControlNote = nullptr;
    QFormLayout* m_form = nullptr;
    QLabel* m_messageLabel = nullptr;
};
