#pragma once

#include <QAbstractButton>
#include <QPointer>

class Pronouncer;

// The card's read-aloud button: reads the looked-up text through the application's pronouncer, or
// stops it while it is being read. It never takes the keyboard focus, and it shows only while the
// pronouncer can speak.
class SpeakerButton final : public QAbstractButton {
    Q_OBJECT
public:
    // The card's keyboard shortcut for the button.
    static QKeySequence shortcut();

    SpeakerButton(Pronouncer* pronouncer, QWidget* parent);

    // The text a click reads aloud.
    void setSpokenText(const QString& text);
    // This button's text is being read.
    bool isSpeaking() const;
    // Shown, because the pronouncer can speak.
    bool isOffered() const;

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void refresh();

    QPointer<Pronouncer> m_pronouncer;
    QString m_spokenText;
};
