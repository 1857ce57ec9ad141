#include "NubraApp/Onboarding/WelcomeView.h"

#include "NubraApp/Foundation/PlatformTexts.h"
#include "NubraApp/Onboarding/Symbols.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QBoxLayout>
#include <QLabel>
#include <QPainter>

namespace {

QLabel* label(const QString& text, QWidget* parent) {
    auto* result = new QLabel(text, parent);
    result->setTextFormat(Qt::PlainText);
    result->setWordWrap(true);
    return result;
}

} // namespace

WelcomeView::WelcomeView(QWidget* parent) : QWidget(parent) {
    setFocusPolicy(Qt::NoFocus);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(padding, padding, padding, padding);
    layout->setSpacing(6);
    layout->addStretch(1);

    auto* row = new QHBoxLayout;
    row->setSpacing(6);
    row->addWidget(new SymbolView(Symbol::checkmarkCircle, SymbolTint::green, 16, this));
    QLabel* running =
        label(L10n::t(QStringLiteral("Nubra is running"), QStringLiteral("Nubra 已启动")), this);
    QFont bold = running->font();
    bold.setBold(true);
    running->setFont(bold);
    row->addWidget(running, 1);
    auto* close = new SymbolButton(Symbol::xmarkCircle, SymbolTint::secondary, 16, this);
    close->setObjectName(QStringLiteral("closeButton"));
    close->setFocusPolicy(Qt::NoFocus);
    close->setAccessibleName(L10n::t(QStringLiteral("Close"), QStringLiteral("关闭")));
    connect(close, &SymbolButton::clicked, this, &WelcomeView::closeRequested);
    row->addWidget(close);
    layout->addLayout(row);

    QLabel* location = label(PlatformTexts::text(PlatformText::welcomeIconLocation), this);
    QFont smaller = location->font();
    if (smaller.pointSizeF() > 0)
        smaller.setPointSizeF(smaller.pointSizeF() * 0.92);
    location->setFont(smaller);
    layout->addWidget(location);
    layout->addStretch(1);
}

void WelcomeView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    QColor fill = palette().color(QPalette::Window);
    if (window()->testAttribute(Qt::WA_TranslucentBackground)) {
        QColor border = palette().color(QPalette::WindowText);
        border.setAlphaF(0.08f);
        // A thin, slightly see-through card with rounded corners.
        fill.setAlphaF(0.88f);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(border, 1));
        painter.setBrush(fill);
        painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), cornerRadius, cornerRadius);
        return;
    }
    // Without a compositor there is no shadow either: a firmer hairline keeps the card apart from the
    // desktop behind it.
    painter.fillRect(rect(), fill);
    painter.setPen(palette().color(QPalette::Mid));
    painter.drawRect(rect().adjusted(0, 0, -1, -1));
}
