#include "NubraApp/Overlay/AnkiCardRow.h"

#include "NubraCore/Vocabulary/L10n.h"

#include <QEvent>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

AnkiCardRow::AnkiCardRow(QWidget* parent)
    : QWidget(parent), m_button(new QPushButton(this)), m_message(new QLabel(this)) {
    setObjectName(QStringLiteral("ankiRow"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 4, 0, 0);
    column->setSpacing(6);

    m_button->setObjectName(QStringLiteral("addToAnkiButton"));
    m_button->setAutoDefault(false);
    // A click must not take the focus from the application being read in.
    m_button->setFocusPolicy(Qt::NoFocus);
    QFont small = m_button->font();
    small.setPixelSize(12);
    m_button->setFont(small);
    column->addWidget(m_button, 0, Qt::AlignLeading);

    m_message->setObjectName(QStringLiteral("ankiMessage"));
    small.setPixelSize(11);
    m_message->setFont(small);
    m_message->setWordWrap(true);
    m_message->setTextFormat(Qt::PlainText);
    m_message->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_message->hide();
    column->addWidget(m_message);

    connect(m_button, &QPushButton::clicked, this, &AnkiCardRow::addRequested);
    retranslate();
    applyColors();
}

void AnkiCardRow::applyColors() {
    // As dim as the card's other secondary texts.
    QPalette palette = m_message->palette();
    QColor color = this->palette().color(QPalette::WindowText);
    color.setAlphaF(0.62f);
    palette.setColor(QPalette::WindowText, color);
    m_message->setPalette(palette);
}

void AnkiCardRow::reset() {
    m_sending = false;
    m_message->clear();
    m_message->hide();
    retranslate();
    emit changed();
}

void AnkiCardRow::showSending() {
    m_sending = true;
    retranslate();
}

void AnkiCardRow::showResult(const QString& message) {
    m_sending = false;
    m_message->setText(message);
    m_message->show();
    retranslate();
    emit changed();
}

QString AnkiCardRow::message() const {
    return m_message->isVisibleTo(this) ? m_message->text() : QString();
}

void AnkiCardRow::retranslate() {
    m_button->setEnabled(!m_sending);
    m_button->setText(m_sending ? L10n::t(QStringLiteral("Adding…"), QStringLiteral("添加中…"))
                                : L10n::t(QStringLiteral("Add to Anki"), QStringLiteral("添加到 Anki")));
}

void AnkiCardRow::changeEvent(QEvent* event) {
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::ApplicationPaletteChange)
        applyColors();
    QWidget::changeEvent(event);
}
