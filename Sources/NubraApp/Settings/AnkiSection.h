#pragma once

#include <QGroupBox>

class AppSettings;
class QComboBox;
class QLabel;

// The Anki group of the explanation tab: the deck and the note type "Add to Anki" uses. The choices are
// Anki's own while it runs (asked each time the tab is shown); any name can be typed either way.
class AnkiSection final : public QGroupBox {
    Q_OBJECT
public:
    explicit AnkiSection(AppSettings& settings, QWidget* parent = nullptr);

protected:
    void showEvent(QShowEvent* event) override;

private:
    // Asks AnkiConnect for the decks and note types and says whether it runs.
    void askAnki();
    void offer(QComboBox* picker, const QStringList& names, const QString& current);

    AppSettings& m_settings;
    QComboBox* m_deck;
    QComboBox* m_noteType;
    QLabel* m_status;
};
