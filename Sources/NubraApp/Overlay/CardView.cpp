#include "NubraApp/Overlay/CardView.h"

#include "NubraApp/Foundation/Pronouncer.h"
#include "NubraApp/Overlay/AnkiCardRow.h"
#include "NubraApp/Overlay/SpeakerButton.h"
#include "NubraCore/Lookup/LookupProgress.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QTimer>
#include <QVBoxLayout>

namespace {

// A small indeterminate spinner: a rotating arc. It only ticks while it is on screen.
class Spinner final : public QWidget {
public:
    explicit Spinner(QWidget* parent) : QWidget(parent) {
        setFixedSize(16, 16);
        m_timer.setInterval(80);
        connect(&m_timer, &QTimer::timeout, this, [this] {
            m_angle = (m_angle + 30) % 360;
            update();
        });
    }

protected:
    void showEvent(QShowEvent*) override { m_timer.start(); }
    void hideEvent(QHideEvent*) override { m_timer.stop(); }
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        QColor color = palette().color(QPalette::WindowText);
        color.setAlphaF(0.55f);
        painter.setPen(QPen(color, 2, Qt::SolidLine, Qt::RoundCap));
        painter.drawArc(QRectF(rect()).adjusted(2, 2, -2, -2), -m_angle * 16, 270 * 16);
    }

private:
    QTimer m_timer;
    int m_angle = 0;
};

QFont systemFont(int pixelSize, QFont::Weight weight = QFont::Normal) {
    QFont font;
    font.setPixelSize(pixelSize);
    font.setWeight(weight);
    return font;
}

QLabel* makeLabel(QWidget* parent, const QString& name, int pixelSize, QFont::Weight weight = QFont::Normal) {
    auto* label = new QLabel(parent);
    label->setObjectName(name);
    label->setFont(systemFont(pixelSize, weight));
    label->setWordWrap(true);
    label->setAlignment(Qt::AlignLeading | Qt::AlignTop);
    return label;
}

// Streamed text as rich text, so that it keeps its own line breaks and gets extra space between lines.
QString spacedHtml(const QString& text, int lineSpacing) {
    return QStringLiteral("<div style=\"white-space:pre-wrap; line-height:%1px; "
                          "-qt-line-height-type:line-distance;\">%2</div>")
        .arg(lineSpacing)
        .arg(text.toHtmlEscaped());
}

QLabel* makeSelectableText(QWidget* parent, const QString& name, int pixelSize) {
    QLabel* label = makeLabel(parent, name, pixelSize);
    label->setTextFormat(Qt::RichText);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    label->setCursor(Qt::IBeamCursor);
    return label;
}

void setTextColor(QLabel* label, const QPalette& source, qreal alpha) {
    QPalette palette = label->palette();
    QColor color = source.color(QPalette::WindowText);
    color.setAlphaF(float(alpha));
    palette.setColor(QPalette::WindowText, color);
    palette.setColor(QPalette::Text, color);
    label->setPalette(palette);
}

// Emphasis levels of the card's texts, as fractions of the palette's text colour.
constexpr qreal secondary = 0.62;
constexpr qreal tertiary = 0.42;

} // namespace

CardView::CardView(QWidget* parent) : QWidget(parent) {
    setFixedWidth(cardWidth);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(padding, padding, padding, padding);
    layout->setSpacing(8);

    m_loadingRow = new QWidget(this);
    m_loadingRow->setObjectName(QStringLiteral("loadingRow"));
    auto* row = new QHBoxLayout(m_loadingRow);
    row->setContentsMargins(0, 6, 0, 6);
    row->setSpacing(8);
    row->addWidget(new Spinner(m_loadingRow), 0, Qt::AlignVCenter);
    m_loadingText = makeLabel(m_loadingRow, QStringLiteral("loadingText"), 13);
    m_loadingText->setWordWrap(false);
    row->addWidget(m_loadingText, 1, Qt::AlignVCenter);
    layout->addWidget(m_loadingRow);

    m_errorText = makeLabel(this, QStringLiteral("errorText"), 13);
    m_errorText->setTextFormat(Qt::RichText);
    layout->addWidget(m_errorText);

    auto makeSection = [this, layout](const QString& name, QLabel*& heading, QLabel*& text, int textSize,
                                      int extraTop) {
        auto* section = new QWidget(this);
        section->setObjectName(name);
        auto* column = new QVBoxLayout(section);
        column->setContentsMargins(0, extraTop, 0, 0);
        column->setSpacing(5);
        heading = makeLabel(section, name + QStringLiteral("Heading"), 11, QFont::DemiBold);
        text = makeSelectableText(section, name + QStringLiteral("Text"), textSize);
        auto* headingRow = new QHBoxLayout;
        headingRow->setSpacing(6);
        headingRow->addWidget(heading, 1, Qt::AlignVCenter);
        column->addLayout(headingRow);
        column->addWidget(text);
        layout->addWidget(section);
        return headingRow;
    };
    QHBoxLayout* glossHeadingRow = makeSection(QStringLiteral("gloss"), m_glossHeading, m_glossText, 14, 0);
    makeSection(QStringLiteral("context"), m_contextHeading, m_contextText, 13, 2);
    m_glossSection = m_glossHeading->parentWidget();
    m_contextSection = m_contextHeading->parentWidget();
    // The read-aloud button ends the first heading, across from "Definition".
    m_speaker = new SpeakerButton(Pronouncer::installed(), m_glossSection);
    glossHeadingRow->addWidget(m_speaker, 0, Qt::AlignVCenter);
    m_ankiRow = new AnkiCardRow(this);
    connect(m_ankiRow, &AnkiCardRow::changed, this, &CardView::contentChanged);
    layout->addWidget(m_ankiRow);
    layout->addStretch(1);

    applyColors();
    renderChoice();
}

int CardView::fittingHeight() const {
    QLayout* column = layout();
    column->activate();
    // Without wrapped text showing (an empty card) there is no height-for-width, only the plain hint.
    return column->hasHeightForWidth() ? column->totalHeightForWidth(cardWidth)
                                       : column->totalSizeHint().height();
}

void CardView::setSpokenText(const QString& text) {
    m_speaker->setSpokenText(text);
}

bool CardView::readAloud() {
    if (!m_speaker->isOffered() || !m_glossSection->isVisible())
        return false;
    m_speaker->click();
    return true;
}

void CardView::present(const LookupProgress& progress) {
    bool changed = false;
    auto follow = [&changed](auto& shown, const auto& now) {
        if (shown == now)
            return false;
        shown = now;
        changed = true;
        return true;
    };
    if (follow(m_gloss, progress.gloss()))
        m_glossText->setText(spacedHtml(m_gloss, 5));
    if (follow(m_contextualMeaning, progress.contextualMeaning()))
        m_contextText->setText(spacedHtml(m_contextualMeaning, 4));
    if (follow(m_errorMessage, progress.errorMessage()))
        m_errorText->setText(spacedHtml(m_errorMessage.value_or(QString()), 3));
    follow(m_loading, progress.isLoading());
    // A new explanation starts without the last one's Anki message.
    if (follow(m_complete, progress.result().has_value()) && m_complete)
        m_ankiRow->reset();
    if (changed)
        renderChoice();
}

void CardView::renderChoice() {
    Content content = Content::explanation;
    if (m_loading && m_gloss.isEmpty())
        content = Content::loading;
    else if (m_errorMessage)
        content = Content::error;
    else if (m_gloss.isEmpty() && m_contextualMeaning.isEmpty())
        content = Content::nothing;

    // The language may have changed since the last lookup.
    m_loadingText->setText(L10n::t(QStringLiteral("Explaining…"), QStringLiteral("解释中…")));
    m_glossHeading->setText(L10n::t(QStringLiteral("Definition"), QStringLiteral("释义")));
    m_contextHeading->setText(L10n::t(QStringLiteral("In this context"), QStringLiteral("在此语境中")));

    m_loadingRow->setVisible(content == Content::loading);
    m_errorText->setVisible(content == Content::error);
    m_glossSection->setVisible(content == Content::explanation && !m_gloss.isEmpty());
    m_contextSection->setVisible(content == Content::explanation && !m_contextualMeaning.isEmpty());
    m_ankiRow->setVisible(content == Content::explanation && m_complete);
    m_content = content;
    emit contentChanged();
}

void CardView::applyColors() {
    const QPalette& source = palette();
    setTextColor(m_loadingText, source, secondary);
    setTextColor(m_errorText, source, secondary);
    setTextColor(m_glossHeading, source, tertiary);
    setTextColor(m_contextHeading, source, tertiary);
    setTextColor(m_glossText, source, 1.0);
    setTextColor(m_contextText, source, secondary);
}

void CardView::changeEvent(QEvent* event) {
    // Light and dark follow the system palette.
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::ApplicationPaletteChange)
        applyColors();
    QWidget::changeEvent(event);
}
