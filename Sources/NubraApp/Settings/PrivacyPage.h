#pragma once

#include <QWidget>

class AppState;
class QFormLayout;
class QLabel;

// The privacy tab: whether lookups are kept, how many, and clearing them all.
class PrivacyPage final : public QWidget {
    Q_OBJECT

public:
    explicit PrivacyPage(AppState& state, QWidget* parent = nullptr);

private:
    void clearHistory();
    // What the last clear reported, under the history controls.
    void setHistoryMessage(const QString& text);

    AppState& m_state;
    QFormLayout* m_form = nullptr;
    QLabel* m_messageLabel = nullptr;
};
