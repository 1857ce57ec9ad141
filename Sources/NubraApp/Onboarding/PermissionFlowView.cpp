#include "NubraApp/Onboarding/PermissionFlowView.h"

#include "NubraApp/Foundation/PlatformTexts.h"
#include "NubraApp/Onboarding/BusySpinner.h"
#include "NubraApp/Onboarding/Symbols.h"
#include "NubraCore/Settings/AppSettings.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QStackedWidget>

namespace {

constexpr int padding = 24;
constexpr int guidePadding = 20;
constexpr int spacing = 14;
constexpr int waitingSymbolSize = 44;
constexpr int symbolSize = 40;

// The main action of a screen: filled with the accent colour, taller than an ordinary button.
class ProminentButton final : public QPushButton {
public:
    ProminentButton(const QString& text, QWidget* parent) : QPushButton(text, parent) {
        setAttribute(Qt::WA_Hover);
        setCursor(Qt::PointingHandCursor);
        setMinimumHeight(fontMetrics().height() + 18);
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        QColor fill = palette().color(QPalette::Highlight);
        if (isDown())
            fill = fill.darker(115);
        else if (underMouse())
            fill = fill.lighter(108);
        const QRectF face = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
        painter.setPen(Qt::NoPen);
        painter.setBrush(fill);
        painter.drawRoundedRect(face, 7, 7);
        const QColor text = palette().color(QPalette::HighlightedText);
        if (hasFocus() && window()->testAttribute(Qt::WA_KeyboardFocusChange)) {
            QColor ring = text;
            ring.setAlphaF(0.6f);
            painter.setPen(QPen(ring, 1.5));
            painter.setBrush(Qt::NoBrush);
            painter.drawRoundedRect(face.adjusted(2.5, 2.5, -2.5, -2.5), 5, 5);
        }
        painter.setPen(text);
        painter.drawText(rect(), Qt::AlignCenter, this->text());
    }
};

// A wrapping label that asks for its whole text on one line and wraps only when the row is too narrow
// for that. A plain wrapping label settles for a narrower block, so a short status line beside a
// spinner would break in two for no reason.
class LineLabel final : public QLabel {
public:
    using QLabel::QLabel;

    QSize sizeHint() const override {
        const QMargins margins = contentsMargins();
        const int line =
            fontMetrics().horizontalAdvance(text()) + 2 * margin() + margins.left() + margins.right() + 1;
        return {line, heightForWidth(line)};
    }
};

QLabel* label(const QString& text, QWidget* parent, Qt::Alignment alignment = Qt::AlignHCenter) {
    auto* result = new LineLabel(text, parent);
    result->setTextFormat(Qt::PlainText);
    result->setWordWrap(true);
    result->setAlignment(alignment | Qt::AlignVCenter);
    return result;
}

// A wrapped line may end after any hyphen, which would cut a command-line flag in two; a word joiner after
// each hyphen keeps the flag whole. Only for labels that cannot be selected, or the joiners would be
// copied along with the flag.
QString unbrokenAtHyphens(QString text) {
    return text.replace(u'-', QStringLiteral("-\u2060"));
}

void scaleFont(QWidget* widget, qreal factor, bool bold = false) {
    QFont font = widget->font();
    if (font.pointSizeF() > 0)
        font.setPointSizeF(font.pointSizeF() * factor);
    else
        font.setPixelSize(qRound(font.pixelSize() * factor));
    font.setBold(bold);
    widget->setFont(font);
}

// Bold, a size up from the body text.
QLabel* title(const QString& text, QWidget* parent, Qt::Alignment alignment = Qt::AlignHCenter) {
    QLabel* result = label(text, parent, alignment);
    scaleFont(result, 1.3, true);
    return result;
}

// Greyed: drawn in the palette's placeholder colour, which follows light and dark themes.
QLabel* secondary(QLabel* label) {
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

QBoxLayout* column(QWidget* screen, int margin) {
    auto* layout = new QVBoxLayout(screen);
    layout->setContentsMargins(margin, margin, margin, margin);
    layout->setSpacing(spacing);
    return layout;
}

// A spinner (when `busy`) and a status line, centred as a pair.
QBoxLayout* statusRow(const QString& text, bool busy, QWidget* parent) {
    auto* row = new QHBoxLayout;
    row->setSpacing(8);
    row->addStretch(1);
    if (busy)
        row->addWidget(new BusySpinner(16, parent), 0, Qt::AlignVCenter);
    row->addWidget(secondary(label(text, parent, Qt::AlignLeft)));
    row->addStretch(1);
    return row;
}

// The screen of a passing phase: a large symbol, a title and a status line.
QWidget* phaseScreen(Symbol symbol, SymbolTint tint, const QString& heading, const QString& status,
                     bool busy) {
    auto* screen = new QWidget;
    QBoxLayout* layout = column(screen, padding);
    layout->addWidget(new SymbolView(symbol, tint, symbolSize, screen), 0, Qt::AlignHCenter);
    layout->addWidget(title(heading, screen));
    layout->addLayout(statusRow(status, busy, screen));
    return screen;
}

// A page of the stack with `screen` in its middle: at `width` when given, else as wide as the page.
QWidget* page(QWidget* screen, int width = 0) {
    auto* result = new QWidget;
    auto* vertical = new QVBoxLayout(result);
    vertical->setContentsMargins(0, 0, 0, 0);
    vertical->addStretch(1);
    auto* horizontal = new QHBoxLayout;
    if (width > 0) {
        // Stretches rather than an alignment, so the text is measured at the screen's own width.
        screen->setFixedWidth(width);
        horizontal->addStretch(1);
        horizontal->addWidget(screen);
        horizontal->addStretch(1);
    } else {
        horizontal->addWidget(screen);
    }
    vertical->addLayout(horizontal);
    vertical->addStretch(1);
    return result;
}

} // namespace

PermissionFlowView::PermissionFlowView(AppSettings& settings, QWidget* parent)
    : QWidget(parent), m_settings(settings), m_screens(new QStackedWidget(this)) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_screens);

    m_pages[size_t(PermissionPhase::notTrusted)] = page(waitingScreen(), waitingWidth);
    m_pages[size_t(PermissionPhase::checking)] = page(phaseScreen(
        Symbol::checkmarkSeal, SymbolTint::accent,
        L10n::t(QStringLiteral("Permission detected"), QStringLiteral("已检测到授权")),
        L10n::t(QStringLiteral("Verifying that it takes effect…"), QStringLiteral("正在验证权限是否生效…")),
        true));
    m_pages[size_t(PermissionPhase::needsRestart)] = page(restartScreen());
    m_pages[size_t(PermissionPhase::active)] = page(guideScreen(), guideWidth);
    m_pages[size_t(PermissionPhase::done)] =
        page(phaseScreen(Symbol::checkmarkCircle, SymbolTint::green,
                         L10n::t(QStringLiteral("All set!"), QStringLiteral("搞定！")),
                         L10n::t(QStringLiteral("Start reading — select any text to gloss it."),
                                 QStringLiteral("开始阅读吧。选中内容随时可以划词解释。")),
                         false));
    for (QWidget* screen : m_pages)
        m_screens->addWidget(screen);

    connect(&m_settings, &AppSettings::permissionPhaseChanged, this, &PermissionFlowView::showCurrentPhase);
    showCurrentPhase();
}

QString PermissionFlowView::windowTitleText() {
    return L10n::t(QStringLiteral("Get Started with Nubra"), QStringLiteral("开启 Nubra"));
}

void PermissionFlowView::showCurrentPhase() {
    m_screens->setCurrentWidget(m_pages[size_t(m_settings.permissionPhase())]);
    if (isVisible() && m_settings.permissionPhase() == PermissionPhase::active)
        emit guideShown();
}

void PermissionFlowView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (m_settings.permissionPhase() == PermissionPhase::active)
        emit guideShown();
}

void PermissionFlowView::showTreelessApplications(const QStringList& names) {
    m_treelessRunning->setText(
        names.isEmpty()
            ? QString()
            : L10n::t(QStringLiteral("Running now without the switch: ") + names.join(QStringLiteral(", ")) + u'.',
                      QStringLiteral("正在运行、未加开关的：") + names.join(QStringLiteral("、")) +
                          QStringLiteral("。")));
    m_treelessRunning->setVisible(!names.isEmpty());
}

void PermissionFlowView::showDesktopCapabilities(const QStringList& lines) {
    m_capabilities->setText(lines.join(u'\n'));
    m_capabilities->setVisible(!lines.isEmpty());
}

QWidget* PermissionFlowView::waitingScreen() {
    auto* screen = new QWidget;
    QBoxLayout* layout = column(screen, padding);
    layout->addWidget(new SymbolView(Symbol::handTap, SymbolTint::accent, waitingSymbolSize, screen), 0,
                      Qt::AlignHCenter);
    layout->addWidget(
        title(L10n::t(QStringLiteral("Enable Accessibility"), QStringLiteral("开启辅助功能权限")), screen));
    layout->addWidget(label(L10n::t(QStringLiteral("Nubra needs this permission to read your selected text "
                                                   "and its position."),
                                    QStringLiteral("Nubra 需要该权限来读取你选中的文本与选区位置。")),
                            screen));

    auto* steps = new QVBoxLayout;
    steps->setSpacing(6);
    steps->addWidget(
        label(PlatformTexts::text(PlatformText::onboardingStepOpenSettings), screen, Qt::AlignLeft));
    steps->addWidget(
        label(PlatformTexts::text(PlatformText::onboardingStepFindSwitch), screen, Qt::AlignLeft));
    layout->addLayout(steps);

    auto* open = new ProminentButton(PlatformTexts::text(PlatformText::openSettingsButton), screen);
    open->setObjectName(QStringLiteral("openSettingsButton"));
    connect(open, &QPushButton::clicked, this, &PermissionFlowView::openSettingsRequested);
    layout->addWidget(open);

    layout->addLayout(statusRow(PlatformTexts::text(PlatformText::waitingForSwitch), true, screen));
    return screen;
}

QWidget* PermissionFlowView::restartScreen() {
    auto* screen = new QWidget;
    QBoxLayout* layout = column(screen, padding);
    layout->addWidget(new SymbolView(Symbol::circlePath, SymbolTint::orange, symbolSize, screen), 0,
                      Qt::AlignHCenter);
    layout->addWidget(title(L10n::t(QStringLiteral("One more step"), QStringLiteral("还差一步")), screen));
    layout->addWidget(label(L10n::t(QStringLiteral("System shows the permission is on, but Nubra needs one "
                                                   "restart to take effect."),
                                    QStringLiteral("系统显示已授权，但 Nubra 需要重启一次才能生效。")),
                            screen));
    QLabel* hint =
        secondary(label(L10n::t(QStringLiteral("Still not working? Toggle it off and on, or just "
                                               "restart the app."),
                                QStringLiteral("开关已打开仍无效？把它关掉再打开，或直接重启应用。")),
                        screen));
    scaleFont(hint, 0.88);
    layout->addWidget(hint);

    auto* restart =
        new ProminentButton(L10n::t(QStringLiteral("Restart Nubra"), QStringLiteral("重启 Nubra")), screen);
    restart->setObjectName(QStringLiteral("restartButton"));
    connect(restart, &QPushButton::clicked, this, &PermissionFlowView::restartRequested);
    layout->addWidget(restart);

    auto* later = new QPushButton(
        L10n::t(QStringLiteral("Restart later manually"), QStringLiteral("稍后手动重启")), screen);
    later->setObjectName(QStringLiteral("restartLaterButton"));
    later->setFlat(true);
    later->setCursor(Qt::PointingHandCursor);
    connect(later, &QPushButton::clicked, this, &PermissionFlowView::closeRequested);
    layout->addWidget(later, 0, Qt::AlignHCenter);
    return screen;
}

QWidget* PermissionFlowView::guideScreen() {
    auto* screen = new QWidget;
    QBoxLayout* layout = column(screen, guidePadding);
    auto* heading = new QHBoxLayout;
    heading->setSpacing(10);
    heading->addWidget(new SymbolView(Symbol::checkmarkCircle, SymbolTint::green, symbolSize, screen));
    heading->addWidget(
        title(L10n::t(QStringLiteral("Authorized"), QStringLiteral("已授权")), screen, Qt::AlignLeft), 1);
    layout->addLayout(heading);
    layout->addWidget(label(L10n::t(QStringLiteral("Now select some text in any app to try it."),
                                    QStringLiteral("现在去任意应用选中一段文字试试。")),
                            screen, Qt::AlignLeft));

    // Browsers and Electron applications that keep their text from accessibility unless started with a
    // switch, and those of them running now.
    auto* notes = new QVBoxLayout;
    notes->setSpacing(4);
    if (const QString text = PlatformTexts::text(PlatformText::guideTreelessNote); !text.isEmpty()) {
        QLabel* note = secondary(label(unbrokenAtHyphens(text), screen, Qt::AlignLeft));
        scaleFont(note, 0.88);
        notes->addWidget(note);
    }
    m_treelessRunning = label(QString(), screen, Qt::AlignLeft);
    m_treelessRunning->setObjectName(QStringLiteral("treelessRunning"));
    scaleFont(m_treelessRunning, 0.88);
    m_treelessRunning->hide();
    notes->addWidget(m_treelessRunning);
    m_capabilities = label(QString(), screen, Qt::AlignLeft);
    m_capabilities->setObjectName(QStringLiteral("desktopCapabilities"));
    scaleFont(m_capabilities, 0.88);
    m_capabilities->hide();
    notes->addWidget(m_capabilities);
    layout->addLayout(notes);
    layout->addWidget(secondary(label(L10n::t(QStringLiteral("This window will finish automatically."),
                                              QStringLiteral("完成后这里会自动打勾收尾。")),
                                      screen, Qt::AlignLeft)));
    return screen;
}
