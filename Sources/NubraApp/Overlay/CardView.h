#pragma once

#include <QString>
#include <QWidget>

#include <optional>

class AnkiCardRow;
class LookupProgress;
class QLabel;
class SpeakerButton;

// The inside of the card: the loading row, the error text, or the explanation in up to two sections,
// re-rendered piece by piece as the lookup it is given changes. Its width is fixed; its height follows
// the content (heightForWidth), and contentChanged() says when it may have changed.
class CardView : public QWidget {
    Q_OBJECT
public:
    enum class Content { nothing, loading, error, explanation };
    Q_ENUM(Content)

    static constexpr int cardWidth = 356;
    static constexpr int padding = 13;

    explicit CardView(QWidget* parent = nullptr);

    // Shows the lookup as it stands; only what differs from the last call is rendered again.
    void present(const LookupProgress& progress);

    Content content() const { return m_content; }
    // The height the card needs at its fixed width.
    int fittingHeight() const;
    // "Add to Anki", shown under a complete explanation.
    AnkiCardRow* ankiRow() const { return m_ankiRow; }

    // The looked-up text, which the read-aloud button reads.
    void setSpokenText(const QString& text);
    // The read-aloud button's action, for the card's shortcut: false when the button is not offered.
    bool readAloud();
    SpeakerButton* speakerButton() const { return m_speaker; }

signals:
    void contentChanged();

protected:
    void changeEvent(QEvent* event) override;

private:
    // Chooses what shows; cheap, so it runs after every change.
    void renderChoice();
    void applyColors();

    QString m_gloss;
    QString m_contextualMeaning;
    std::optional<QString> m_errorMessage;
    bool m_loading = false;
    bool m_complete = false;
    Content m_content = Content::nothing;

    QWidget* m_loadingRow = nullptr;
    QLabel* m_loadingText = nullptr;
    QLabel* m_errorText = nullptr;
    QWidget* m_glossSection = nullptr;
    QLabel* m_glossHeading = nullptr;
    QLabel* m_glossText = nullptr;
    SpeakerButton* m_speaker = nullptr;
    QWidget* m_contextSection = nullptr;
    QLabel* m_contextHeading = nullptr;
    QLabel* m_contextText = nullptr;
    AnkiCardRow* m_ankiRow = nullptr;
};
