#include "NubraApp/Settings/AboutPage.h"
#include "NubraBuildInfo/BuildInfo.h"

#include "NubraApp/Foundation/BrandIcon.h"
#include "NubraApp/Foundation/PlatformTexts.h"
#include "NubraApp/Settings/SettingsStyle.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

namespace {

constexpr int markSize = 72;

QLabel* centredLine(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setAlignment(Qt::AlignHCenter);
    label->setWordWrap(true);
    return label;
}

QLabel* link(const char* name, const QString& text, const QString& url, QWidget* parent) {
    auto* label = new QLabel(
        QStringLiteral("<a href=\"%1\">%2</a>").arg(url.toHtmlEscaped(), text.toHtmlEscaped()), parent);
    label->setObjectName(QString::fromLatin1(name));
    label->setTextFormat(Qt::RichText);
    label->setOpenExternalLinks(true);
    label->setCursor(Qt::PointingHandCursor);
    return label;
}

} // namespace

AboutPage::AboutPage(QWidget* parent) : QWidget(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(6);
    layout->addSpacing(12);

    auto* mark = new QLabel(this);
    mark->setPixmap(BrandIcon::bubbleImage(markSize));
    mark->setAlignment(Qt::AlignHCenter);
    layout->addWidget(mark);

    auto* name = centredLine(QStringLiteral("Nubra"), this);
    QFont title = name->font();
    title.setBold(true);
    title.setPointSizeF(title.pointSizeF() > 0 ? title.pointSizeF() * 1.6 : 18);
    name->setFont(title);
    layout->addWidget(name);

    auto* version = centredLine(versionText(), this);
    version->setObjectName(QStringLiteral("versionLabel"));
    SettingsStyle::setSecondary(version);
    layout->addWidget(version);
    layout->addSpacing(8);

    layout->addWidget(centredLine(
        L10n::t(QStringLiteral("Select. Glance. Keep reading."), QStringLiteral("选中，瞥一眼，继续读。")),
        this));
    layout->addWidget(centredLine(PlatformTexts::text(PlatformText::aboutTagline), this));
    layout->addSpacing(8);

    auto* links = new QHBoxLayout;
    links->setSpacing(20);
    links->addStretch(1);
    links->addWidget(link("websiteLink", L10n::t(QStringLiteral("Website"), QStringLiteral("官网")),
                          QStringLiteral(NUBRA_WEBSITE_URL), this));
    links->addWidget(link("privacyPolicyLink",
                          L10n::t(QStringLiteral("Privacy Policy"), QStringLiteral("隐私政策")),
                          QStringLiteral(NUBRA_PRIVACY_URL), this));
    links->addStretch(1);
    layout->addLayout(links);
    layout->addSpacing(12);

    auto* support = new QGroupBox(L10n::t(QStringLiteral("Support"), QStringLiteral("售后支持")), this);
    auto* form = new QFormLayout(support);
    auto* email = new QLabel(QStringLiteral(NUBRA_SUPPORT_EMAIL), support);
    email->setObjectName(QStringLiteral("supportEmail"));
    email->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    email->setCursor(Qt::IBeamCursor);
    form->addRow(L10n::t(QStringLiteral("Email"), QStringLiteral("邮箱")), email);
    layout->addWidget(support);
    layout->addStretch(1);
}

QString AboutPage::versionText() {
    const QString version = BuildInfo::version();
    return u'v' + (version.isEmpty() ? QStringLiteral("1.0.0") : version);
}
