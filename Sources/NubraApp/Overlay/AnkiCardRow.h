#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

// The card's last row once an explanation is complete: "Add to Anki" and what became of the note.
class AnkiCardRow final : public QWidget {
    Q_OBJECT
public:
    explicit AnkiCardRow(QWidget* parent = nullptr);

    // A new explanation: the button ready, no message.
    void reset();
    void showSending();
    // What became of the note; the button is ready again, since Anki never doubles a note.
    void showResult(const QString& message);

    QString message() const;

signals:
    void addRequested();
    // The row's height may have changed.
    void changed();

protected:
    void changeEvent(QEvent* event) override;

private:
    void retranslate();
    void applyColors();

    QPushButton* m_button;
    QLabel* m_message;
    bool m_sending = false;
};
