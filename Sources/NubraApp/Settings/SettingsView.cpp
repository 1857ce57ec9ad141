#include "NubraApp/Settings/SettingsView.h"

#include "NubraApp/Foundation/AppServices.h"
#include "NubraApp/Foundation/AppState.h"
#include "NubraApp/Settings/AboutPage.h"
#include "NubraApp/Settings/ExplanationPage.h"
#include "NubraApp/Settings/GeneralPage.h"
#include "NubraApp/Settings/PrivacyPage.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/Desktop.h"

#include <QIcon>
#include <QTabWidget>
#include <QVBoxLayout>

SettingsView::SettingsView(AppState& state, const AppServices& services, std::optional<Tab> initialTab,
                           QWidget* parent)
    : QWidget(parent), m_tabs(new QTabWidget(this)) {
    m_tabs->setObjectName(QStringLiteral("settingsTabs"));
    m_tabs->setDocumentMode(true);
    // In the order of SettingsTab.
    m_tabs->addTab(new GeneralPage(state, services, m_tabs),
                   QIcon::fromTheme(QStringLiteral("preferences-system")),
                   L10n::t(QStringLiteral("General"), QStringLiteral("通用")));
    m_tabs->addTab(new ExplanationPage(state.settings(), m_tabs),
                   QIcon::fromTheme(QStringLiteral("accessories-dictionary")),
                   L10n::t(QStringLiteral("Explanation"), QStringLiteral("解释")));
    m_tabs->addTab(new PrivacyPage(state, services.desktop.keyboard, m_tabs),
                   QIcon::fromTheme(QStringLiteral("security-high")),
                   L10n::t(QStringLiteral("Privacy"), QStringLiteral("隐私")));
    m_tabs->addTab(new AboutPage(m_tabs), QIcon::fromTheme(QStringLiteral("help-about")),
                   L10n::t(QStringLiteral("About"), QStringLiteral("关于")));
    m_tabs->setCurrentIndex(int(initialTab.value_or(Tab::general)));

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(8, 8, 8, 8);
    layout->addWidget(m_tabs);
}

QString SettingsView::windowTitleText() {
    return L10n::t(QStringLiteral("Nubra Settings"), QStringLiteral("Nubra 设置"));
}

SettingsView::Tab SettingsView::currentTab() const {
    return Tab(m_tabs->currentIndex());
}
