#include "NubraApp/Update/UpdateNoticeView.h"

#include "NubraCore/Vocabulary/L10n.h"

#include <QLabel>
#include <QVBoxLayout>

UpdateNoticeView::UpdateNoticeView(const QString& text, bool isError, QWidget* parent) : QWidget(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(8);
    auto* message = new QLabel(text, this);
    message->setObjectName(QStringLiteral("updateNoticeText"));
    message->setWordWrap(true);
    message->setTextInteractionFlags(Qt::TextSelectableByMouse);
    message->setAlignment(Qt::AlignLeading | Qt::AlignVCenter);
    message->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    QFont font = message->font();
    font.setPixelSize(13); // the card's body size: a point there is a logical pixel here
    message->setFont(font);
    if (isError) {
        QPalette palette = message->palette();
        palette.setColor(QPalette::WindowText, QColor(0xd7, 0x26, 0x1e));
        message->setPalette(palette);
    }
    layout->addWidget(message);
    setFixedWidth(viewWidth);
}

QString UpdateNoticeView::windowTitleText() {
    return L10n::t(QStringLiteral("Check for Updates"), QStringLiteral("检查更新"));
}
