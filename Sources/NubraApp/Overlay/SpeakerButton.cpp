#include "NubraApp/Overlay/SpeakerButton.h"

#include "NubraApp/Foundation/Pronouncer.h"
#include "NubraApp/Foundation/SpeakerGlyph.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QKeySequence>
#include <QPainter>

namespace {
constexpr int side = 20;
}

QKeySequence SpeakerButton::shortcut() {
    return QKeySequence(Qt::CTRL | Qt::Key_R);
}

SpeakerButton::SpeakerButton(Pronouncer* pronouncer, QWidget* parent)
    : QAbstractButton(parent), m_pronouncer(pronouncer) {
    setObjectName(QStringLiteral("speakerButton"));
    // A click must leave the keyboard focus where it was, so Escape and the shortcut keep working.
    setFocusPolicy(Qt::NoFocus);
    setCursor(Qt::PointingHandCursor);
    setAttribute(Qt::WA_Hover);
    setFixedSize(side, side);
    // Keeps the heading row's height when hidden, so the card does not jump when speech becomes ready.
    QSizePolicy policy = sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    setSizePolicy(policy);
    connect(this, &QAbstractButton::clicked, this, [this] {
        if (m_pronouncer)
            m_pronouncer->toggle(m_spokenText);
    });
    if (m_pronouncer) {
        connect(m_pronouncer, &Pronouncer::availabilityChanged, this, &SpeakerButton::refresh);
        connect(m_pronouncer, &Pronouncer::speakingChanged, this, &SpeakerButton::refresh);
        m_pronouncer->prepare();
    }
    refresh();
}

void SpeakerButton::setSpokenText(const QString& text) {
    m_spokenText = text;
    refresh();
}

bool SpeakerButton::isSpeaking() const {
    return m_pronouncer && !m_spokenText.isEmpty() && m_pronouncer->speakingText() == m_spokenText;
}

bool SpeakerButton::isOffered() const {
    return m_pronouncer && m_pronouncer->isAvailable();
}

QSize SpeakerButton::sizeHint() const {
    return {side, side};
}

void SpeakerButton::refresh() {
    const QString keys = shortcut().toString(QKeySequence::NativeText);
    setToolTip(isSpeaking()
                   ? L10n::t(QStringLiteral("Stop Reading (%1)"), QStringLiteral("停止朗读（%1）")).arg(keys)
                   : L10n::t(QStringLiteral("Read Aloud (%1)"), QStringLiteral("朗读（%1）")).arg(keys));
    setAccessibleName(isSpeaking() ? L10n::t(QStringLiteral("Stop Reading"), QStringLiteral("停止朗读"))
                                   : L10n::t(QStringLiteral("Read Aloud"), QStringLiteral("朗读")));
    setVisible(isOffered());
    update();
}

void SpeakerButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    QColor color = palette().color(QPalette::WindowText);
    if (underMouse() || isDown()) {
        QColor hover = color;
        hover.setAlphaF(isDown() ? 0.16f : 0.08f);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(hover);
        painter.drawEllipse(QRectF(rect()));
    }
    if (!isSpeaking())
        color.setAlphaF(0.62f);
    SpeakerGlyph::paint(painter, QRectF(rect()).adjusted(3, 3, -3, -3), isSpeaking(), color);
}
