#include "NubraApp/Shell/TrayMenu.h"

#include "NubraApp/Capture/SelectionService.h"
#include "NubraApp/Foundation/Alert.h"
#include "NubraApp/Foundation/AppState.h"
#include "NubraApp/Foundation/PlatformTexts.h"
#include "NubraApp/Foundation/Pronouncer.h"
#include "NubraApp/Shell/NubraWindows.h"
#include "NubraCore/Lookup/SelectionLimit.h"
#include "NubraCore/Settings/SettingsBindings.h"
#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/TaskRunner.h"

#include <QActionGroup>
#include <QCoreApplication>
#include <QMessageBox>

namespace {

constexpr int captureTestPreviewCharacters = 40;

// Whether looked-up texts can be read aloud, and why not.
QString speechLine() {
    const Pronouncer* pronouncer = Pronouncer::installed();
    const QString label = L10n::t(QStringLiteral("Read aloud: "), QStringLiteral("朗读："));
    if (!pronouncer || pronouncer->availability() == Pronouncer::Availability::unknown ||
        pronouncer->availability() == Pronouncer::Availability::checking)
        return label + L10n::t(QStringLiteral("still being checked"), QStringLiteral("正在检查"));
    if (pronouncer->isAvailable())
        return label + L10n::t(QStringLiteral("available ✓"), QStringLiteral("可用 ✓"));
    return label + QStringLiteral("✗ ") + pronouncer->unavailableReason();
}

} // namespace

QString TrayMenu::pausedText() {
    return L10n::t(QStringLiteral("Paused"), QStringLiteral("已暂停，选中不再弹出"));
}

TrayMenu::TrayMenu(AppState& state, const Desktop& desktop, QWidget* parent)
    : QMenu(parent), m_state(state), m_desktop(desktop) {
    setObjectName(QStringLiteral("trayMenu"));
    AppSettings& settings = m_state.settings();

    m_permission = addItem(
        "permissionItem",
        [] {
            return L10n::t(QStringLiteral("⚠️ Not activated — click to enable Accessibility"),
                           QStringLiteral("⚠️ 未授权——点此开启辅助功能"));
        },
        [this] { NubraWindows::showPermissionFlow(m_state); });
    m_restart = addItem(
        "restartItem",
        [] {
            return L10n::t(QStringLiteral("⚠️ Restart to finish activation"),
                           QStringLiteral("⚠️ 授权待生效——点此重启 Nubra"));
        },
        [] { NubraWindows::restartApp(); });
    // The restart item gets the separator too: both are calls to action, set apart from the status.
    m_permissionSeparator = addSeparator();

    m_pausedLine = addItem("pausedLine", pausedText);
    m_pausedLine->setEnabled(false);
    m_statusLine = addItem("statusLine", [this] {
        return m_monitorRunning && m_monitorRunning()
                   ? L10n::t(QStringLiteral("● selection monitor running"),
                             QStringLiteral("● 选区监听运行中"))
                   : L10n::t(QStringLiteral("○ selection monitor not running"),
                             QStringLiteral("○ 选区监听未运行"));
    });
    m_statusLine->setEnabled(false); // drawn in the secondary colour
    QFont caption = font();
    if (caption.pointSizeF() > 0)
        caption.setPointSizeF(caption.pointSizeF() * 0.85);
    m_statusLine->setFont(caption);
    addSeparator();

    QMenu* lengths = addChoices("lengthMenu", [] {
        return L10n::t(QStringLiteral("Explanation Length"), QStringLiteral("解释长度"));
    });
    for (const GlossLength length : allCases<GlossLength>()) {
        const BoolBinding binding = lengthBinding(settings, length);
        addChoice(
            lengths, rawValue(length), [length] { return displayName(length); }, binding.get, binding.set);
    }
    QMenu* styles = addChoices(
        "styleMenu", [] { return L10n::t(QStringLiteral("Explanation Style"), QStringLiteral("解释风格")); });
    for (const GlossStyle style : allCases<GlossStyle>()) {
        const BoolBinding binding = styleBinding(settings, style);
        addChoice(
            styles, rawValue(style), [style] { return displayName(style); }, binding.get, binding.set);
    }
    QMenu* tiers = addChoices(
        "modelTierMenu", [] { return L10n::t(QStringLiteral("Model Tier"), QStringLiteral("模型档位")); });
    for (const ModelTier tier : allCases<ModelTier>()) {
        const BoolBinding binding = modelTierBinding(settings, tier);
        addChoice(
            tiers, rawValue(tier), [tier] { return displayName(tier); }, binding.get, binding.set);
    }
    QMenu* languages = addChoices("outputLangMenu", [] {
        return L10n::t(QStringLiteral("Output Language"), QStringLiteral("输出语言"));
    });
    const std::pair<QString, std::function<QString()>> outputLanguages[] = {
        {QStringLiteral("auto"),
         [] { return L10n::t(QStringLiteral("Match input"), QStringLiteral("跟随输入语言")); }},
        {QStringLiteral("zh"), [] { return L10n::t(QStringLiteral("Chinese"), QStringLiteral("中文")); }},
        {QStringLiteral("en"), [] { return L10n::t(QStringLiteral("English"), QStringLiteral("英文")); }},
    };
    for (const auto& [code, label] : outputLanguages) {
        const BoolBinding binding = outputLangBinding(settings, code);
        addChoice(languages, code, label, binding.get, binding.set);
    }
    addSeparator();

    addItem(
        "pauseItem",
        [this] {
            return m_state.settings().paused()
                       ? L10n::t(QStringLiteral("Resume selection"), QStringLiteral("恢复划词"))
                       : L10n::t(QStringLiteral("Pause selection"), QStringLiteral("暂停划词"));
        },
        [this] { m_state.settings().setPaused(!m_state.settings().paused()); });
    addItem(
        "screenTextItem",
        [] {
            return L10n::t(QStringLiteral("Explain Text on Screen…"), QStringLiteral("解释屏幕上的文字…"));
        },
        [this] { emit screenTextRequested(); });
    addItem(
        "closeCardItem",
        [] { return L10n::t(QStringLiteral("Close current card"), QStringLiteral("关闭当前卡片")); },
        [this] { emit closeCardRequested(); });
    addSeparator();

    addItem(
        "historyItem", [] { return L10n::t(QStringLiteral("History"), QStringLiteral("历史记录")); },
        [this] { NubraWindows::showHistory(m_state); });
    m_debugItems.push_back(addItem(
        "captureTestItem",
        [] {
            return L10n::t(QStringLiteral("Test capture (select text in another app first)…"),
                           QStringLiteral("测试捕获（先在其他应用选中文字）…"));
        },
        [this] { runCaptureTest(); }));
    m_debugItems.push_back(addItem(
        "onboardingStatusItem",
        [] {
            return L10n::t(QStringLiteral("Permission / onboarding status…"),
                           QStringLiteral("引导 / 授权状态…"));
        },
        [this] { NubraWindows::showPermissionFlow(m_state); }));
    m_debugItems.push_back(addItem(
        "diagnoseItem",
        [] {
            return L10n::t(QStringLiteral("Diagnose capture environment…"), QStringLiteral("诊断取词环境…"));
        },
        [this] { showDiagnosis(); }));
    m_activityLine = addItem("activityLine", [this] { return m_activity; });
    m_activityLine->setEnabled(false);
    m_cancelActivity = addItem(
        "cancelActivityItem",
        [] { return L10n::t(QStringLiteral("Cancel Download"), QStringLiteral("取消下载")); },
        [this] { emit cancelActivityRequested(); });
    addItem(
        "checkForUpdatesItem",
        [] { return L10n::t(QStringLiteral("Check for Updates…"), QStringLiteral("检查更新…")); },
        [this] {
            nbDebug(QStringLiteral("menu: CheckForUpdates clicked"));
            emit checkForUpdatesRequested();
        });
    addItem(
        "settingsItem", [] { return L10n::t(QStringLiteral("Settings…"), QStringLiteral("设置…")); },
        [this] { NubraWindows::showSettings(m_state); });
    // The application saves the settings on its way out.
    addItem(
        "quitItem", [] { return L10n::t(QStringLiteral("Quit"), QStringLiteral("退出")); },
        [] { QCoreApplication::quit(); });

    connect(this, &QMenu::aboutToShow, this, &TrayMenu::refresh);
    for (auto signal :
         {&AppSettings::styleChanged, &AppSettings::lengthChanged, &AppSettings::modelTierChanged,
          &AppSettings::outputLangChanged, &AppSettings::pausedChanged, &AppSettings::permissionPhaseChanged})
        connect(&settings, signal, this, &TrayMenu::refresh);
    refresh();
}

TrayMenu::~TrayMenu() {
    for (const QPointer<QMessageBox>& alert : m_alerts)
        delete alert.data();
}

void TrayMenu::setActivity(const QString& activity) {
    m_activity = activity;
    refresh();
}

void TrayMenu::setFeatureLines(std::function<QStringList()> lines) {
    m_featureLines = std::move(lines);
}

void TrayMenu::setMonitorRunning(std::function<bool()> isRunning) {
    m_monitorRunning = std::move(isRunning);
    refresh();
}

QAction* TrayMenu::addItem(const char* name, std::function<QString()> label,
                           std::function<void()> onTrigger) {
    QAction* action = addAction(QString());
    action->setObjectName(QLatin1String(name));
    if (onTrigger)
        connect(action, &QAction::triggered, this, std::move(onTrigger));
    m_labels.push_back({action, std::move(label)});
    return action;
}

QMenu* TrayMenu::addChoices(const char* name, std::function<QString()> title) {
    auto* submenu = new QMenu(this);
    submenu->setObjectName(QLatin1String(name));
    submenu->menuAction()->setObjectName(QLatin1String(name));
    addMenu(submenu);
    m_labels.push_back({submenu->menuAction(), std::move(title)});
    auto* group = new QActionGroup(submenu);
    group->setExclusive(true);
    return submenu;
}

void TrayMenu::addChoice(QMenu* submenu, const QString& name, std::function<QString()> label,
                         std::function<bool()> isChosen, std::function<void(bool)> choose) {
    QAction* action = submenu->addAction(QString());
    action->setObjectName(name);
    action->setCheckable(true);
    submenu->findChild<QActionGroup*>()->addAction(action);
    // An exclusive group keeps a chosen item checked when it is chosen again; the setting, which is
    // already that value, is then neither changed nor saved.
    connect(action, &QAction::triggered, this, [isChosen, choose] {
        if (!isChosen())
            choose(true);
    });
    m_labels.push_back({action, std::move(label)});
    m_choices.push_back({action, std::move(isChosen)});
}

bool TrayMenu::debugMenuShown() const {
    return m_state.defaults().boolean(QLatin1String(debugMenuKey)).value_or(false);
}

void TrayMenu::refresh() {
    for (const Labelled& item : m_labels)
        item.action->setText(item.label());
    for (const Choice& choice : m_choices)
        choice.action->setChecked(choice.isChosen());

    const PermissionPhase phase = m_state.settings().permissionPhase();
    m_permission->setVisible(phase == PermissionPhase::notTrusted);
    m_restart->setVisible(phase == PermissionPhase::needsRestart);
    m_permissionSeparator->setVisible(m_permission->isVisible() || m_restart->isVisible());
    m_pausedLine->setVisible(m_state.settings().paused());
    m_activityLine->setVisible(!m_activity.isEmpty());
    m_cancelActivity->setVisible(!m_activity.isEmpty());
    const bool debug = debugMenuShown();
    for (QAction* item : m_debugItems)
        item->setVisible(debug);
}

void TrayMenu::runCaptureTest() {
    if (m_captureTestRunning)
        return;
    m_captureTestRunning = true;
    const int radius = m_state.settings().contextRadius();
    const Desktop desktop = m_desktop;
    QPointer<TrayMenu> self(this);
    // The read blocks for up to about 1.3 s.
    m_desktop.tasks.runInBackground([desktop, radius, self] {
        SelectionService service(desktop);
        std::optional<SelectionSnapshot> snapshot = service.currentSelection(radius);
        QString diagnosis;
        if (!snapshot || snapshot->selectedText.isEmpty())
            diagnosis = service.diagnose();
        desktop.tasks.runOnMain([self, snapshot = std::move(snapshot), diagnosis] {
            if (!self)
                return;
            self->m_captureTestRunning = false;
            self->showCaptureResult(snapshot, diagnosis);
        });
    });
}

void TrayMenu::showCaptureResult(const std::optional<SelectionSnapshot>& snapshot, const QString& diagnosis) {
    if (snapshot && !snapshot->selectedText.isEmpty()) {
        const QString& text = snapshot->selectedText;
        const QString count = QString::number(SelectionLimit::characterCount(text));
        const QString preview = SelectionLimit::prefix(text, captureTestPreviewCharacters);
        showAlert(QStringLiteral("captureTestAlert"),
                  L10n::t(QStringLiteral("✓ Captured (") + count + QStringLiteral(" chars)"),
                          QStringLiteral("✓ 捕获成功（") + count + QStringLiteral(" 字符）")),
                  L10n::t(QStringLiteral("First 40 chars: ") + preview +
                              QStringLiteral("\n\nIf no bubble appeared, take a screenshot and tell me where "
                                             "it should be."),
                          QStringLiteral("选中内容前 40 字：") + preview +
                              QStringLiteral("\n\n如果刚才没有看到气泡，请截图告诉我气泡应出现的位置。")),
                  false, std::nullopt);
        return;
    }
    showAlert(QStringLiteral("captureTestAlert"),
              L10n::t(QStringLiteral("✗ No selected text captured"), QStringLiteral("✗ 未捕获到选中文本")),
              diagnosis + PlatformTexts::text(PlatformText::selectTextFirst), true, std::nullopt);
}

void TrayMenu::showDiagnosis() {
    if (m_diagnosisRunning)
        return;
    m_diagnosisRunning = true;
    if (Pronouncer* pronouncer = Pronouncer::installed())
        pronouncer->prepare();
    const Desktop desktop = m_desktop;
    QPointer<TrayMenu> self(this);
    // On Linux both probes are D-Bus calls that a busy accessibility bus can hold up.
    m_desktop.tasks.runInBackground([desktop, self] {
        const QString diagnosis = SelectionService(desktop).diagnose();
        desktop.tasks.runOnMain([self, diagnosis] {
            if (!self)
                return;
            self->m_diagnosisRunning = false;
            QStringList features{speechLine()};
            if (self->m_featureLines)
                features += self->m_featureLines();
            self->showAlert(
                QStringLiteral("diagnosisAlert"),
                L10n::t(QStringLiteral("Capture environment diagnosis"), QStringLiteral("取词环境诊断")),
                diagnosis + QStringLiteral("\n\n") + features.join(u'\n'), false,
                L10n::t(QStringLiteral("Got it"), QStringLiteral("知道了")));
        });
    });
}

void TrayMenu::showAlert(const QString& name, const QString& title, const QString& body, bool warning,
                         const std::optional<QString>& buttonText) {
    QMessageBox* alert =
        Alert::make(name, warning ? QMessageBox::Warning : QMessageBox::Information, title, body);
    if (buttonText)
        Alert::addButton(alert, *buttonText, QMessageBox::AcceptRole);
    else
        Alert::addOk(alert);
    std::erase_if(m_alerts, [](const QPointer<QMessageBox>& open) { return open.isNull(); });
    m_alerts.emplace_back(alert);
    Alert::present(alert);
}
