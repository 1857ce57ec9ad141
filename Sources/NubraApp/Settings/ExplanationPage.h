#pragma once

#include <QWidget>

class AppSettings;
class QComboBox;
class QLabel;

// The explanation tab: length, style, output language and model tier of every lookup, and where "Add to
// Anki" puts its notes. Changes take effect at once and are saved with the next save of the settings.
class ExplanationPage final : public QWidget {
    Q_OBJECT

public:
    explicit ExplanationPage(AppSettings& settings, QWidget* parent = nullptr);

private:
    QWidget* explanationSection();
    QWidget* modelTierSection();
    // Shows the stored language, and the translation note unless it follows the input.
    void showOutputLanguage();

    AppSettings& m_settings;
    QComboBox* m_outputLanguage = nullptr;
    QLabel* m_translationNote = nullptr;
};
