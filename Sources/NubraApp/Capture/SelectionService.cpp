#include "NubraApp/Capture/SelectionService.h"

#include "NubraApp/Capture/SessionCapabilities.h"
#include "NubraApp/Foundation/PlatformTexts.h"

#include "NubraCore/Capture/ClipboardSnapshot.h"
#include "NubraCore/Capture/ContextExtractor.h"
#include "NubraCore/Capture/TerminalEmulators.h"
#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/Clock.h"
#include "NubraPlatform/Coordinates.h"
#include "NubraPlatform/DesktopCapabilities.h"
#include "NubraPlatform/FrontApplications.h"
#include "NubraPlatform/PrimarySelection.h"
#include "NubraPlatform/ScreenGeometry.h"
#include "NubraPlatform/SyntheticKeyboard.h"
#include "NubraPlatform/TreelessApplications.h"

#include <QStringList>

#include <mutex>

namespace {

// An embedded object (an image, a widget in a document) stands in text as U+FFFC; it is nothing to
// explain.
const QChar embeddedObject(0xFFFC);

QString withoutEmbeddedObjects(QString text) {
    return text.remove(embeddedObject);
}

bool isBlank(const std::optional<QString>& text) {
    return !text || withoutEmbeddedObjects(*text).trimmed().isEmpty();
}

// An application that builds its accessibility tree only when asked, and how to turn the tree on for
// good should asking not be enough (a line of its own, so that the switch is not broken in two where
// the alert wraps).
QStringList treelessAdvice(const TreelessApp& app) {
    const QString& name = app.name;
    const QString switchText = app.enablingSwitch();
    const QString cost = L10n::t(
        name + QStringLiteral(" shares its text with accessibility only when asked, and Nubra asks it at the "
                              "first selection. If its selections still come without the text around them "
                              "and the card at the pointer:"),
        name + QStringLiteral(" 只在被请求时才向辅助功能公开文字，Nubra 会在第一次选中时请求。"
                              "如果之后选中的内容仍不含前后文、卡片仍出现在鼠标指针处："));
    if (app.kind == TreelessApp::Kind::electron)
        return {cost,
                L10n::t(QStringLiteral("→ Start it with the environment variable ") + switchText + u'.',
                        QStringLiteral("→ 请设置环境变量 ") + switchText + QStringLiteral(" 后再启动它。"))};
    return {cost, L10n::t(QStringLiteral("→ Start it with ") + switchText + u'.',
                          QStringLiteral("→ 请加上 ") + switchText + QStringLiteral(" 参数启动它。"))};
}

} // namespace

QString capturePathName(CapturePath path) {
    switch (path) {
    case CapturePath::accessibility:
        return QStringLiteral("accessibility");
    case CapturePath::primary:
        return QStringLiteral("primary");
    case CapturePath::clipboard:
        return QStringLiteral("clipboard");
    }
    return {};
}

std::shared_ptr<AccessibleElement> SelectionService::focusedElement() {
    return elementInFront(m_desktop.accessibility.focusedElement());
}

std::shared_ptr<AccessibleElement> SelectionService::elementInFront(const FocusQuery& query) {
    if (query.status != FocusQuery::success || !query.element)
        return nullptr;
    // Focus is known from the last application that reported it; when one without accessibility has
    // come to the front since, that element is not what the user is looking at. A sandboxed application
    // (Flatpak, firejail) numbers its processes its own way, so a different number only rules the
    // element out when its window is not the active one either.
    const std::optional<FrontApp> front = m_desktop.frontApplications.frontmost();
    if (front && front->processId > 0) {
        const std::optional<qint64> owner = query.element->processId();
        if (owner && *owner != front->processId && query.element->inActiveWindow() != true)
            return nullptr;
    }
    return query.element;
}

SelectionService::Probe SelectionService::probeOnce(int contextRadius) {
    Probe probe;
    probe.element = focusedElement();
    if (!probe.element)
        return probe;
    probe.element->limitContextTo(contextRadius);
    probe.selected = probe.element->selectedText().value_or(QString());
    const AccessibleElement::RangeRead range = probe.element->selectedRange();
    probe.hasRange = range.succeeded;
    if (range.range)
        probe.range = *range.range;
    probe.fullText = probe.element->value().value_or(QString());
    return probe;
}

QRectF SelectionService::selectionBounds(AccessibleElement& element, const TextRange& range) {
    return element.boundsForRange(range).value_or(QRectF());
}

QRectF SelectionService::mouseRect() {
    const QPointF mouse = m_desktop.screen.mouseLocation();
    return {mouse.x(), mouse.y(), 1, 1};
}

QString SelectionService::frontName() {
    const std::optional<FrontApp> front = m_desktop.frontApplications.frontmost();
    return front ? front->name : QString();
}

std::optional<SelectionSnapshot> SelectionService::currentSelection(int contextRadius) {
    std::optional<CaptureOutcome> outcome = capture(contextRadius);
    if (!outcome)
        return std::nullopt;
    return outcome->snapshot;
}

std::optional<CaptureOutcome> SelectionService::capture(int contextRadius, const CaptureTrigger& trigger,
                                                        FocusGuard guard) {
    if (guard == FocusGuard::password)
        return std::nullopt;
    if (const std::optional<FrontApp> front = m_desktop.frontApplications.frontmost())
        m_desktop.accessibility.enableApplication(front->processId);

    // When focus could not be read, neither can the selection through it.
    const bool ordinary = guard == FocusGuard::ordinary;
    const bool toldByPrimaryOnly = trigger.settledSelection && !trigger.accessibilityChanged;
    Probe probe = ordinary ? probeOnce(contextRadius) : Probe{};
    if (ordinary && !toldByPrimaryOnly && isBlank(probe.selected)) {
        // Some editors publish the selection a moment after the button comes up.
        m_desktop.clock.sleepFor(probeRetryMs);
        probe = probeOnce(contextRadius);
    }
    // A selection only PRIMARY told of was made where accessibility does not reach, or in an application
    // that tells accessibility later than the desktop hands PRIMARY on (GTK 4 on GNOME): only the same
    // words, now or a moment later, confirm that the element accessibility knows holds it; otherwise it
    // holds an older selection.
    if (ordinary && toldByPrimaryOnly) {
        const std::optional<QString> primary = m_desktop.primarySelection.text();
        const auto confirmed = [&primary](const Probe& read) {
            return primary && !isBlank(read.selected) &&
                   withoutEmbeddedObjects(*primary).trimmed() ==
                       withoutEmbeddedObjects(*read.selected).trimmed();
        };
        if (!confirmed(probe) && probe.element && !isBlank(primary)) {
            m_desktop.clock.sleepFor(probeRetryMs);
            probe = probeOnce(contextRadius);
        }
        if (!confirmed(probe))
            probe = Probe{};
    }

    if (probe.element && !isBlank(probe.selected) && probe.hasRange) {
        const ContextExtractor extractor(contextRadius);
        const ContextExtractor::Result cut =
            probe.fullText.isEmpty()
                ? ContextExtractor::fallback(*probe.selected)
                : extractor.extract(probe.fullText, probe.range.location, probe.range.length);
        const QRectF reported = selectionBounds(*probe.element, probe.range);
        const bool known = reported.width() > 0 && reported.height() > 0;
        const QRectF bounds =
            known ? Coordinates::flipRect(reported, m_desktop.screen.primaryScreenHeight()) : mouseRect();
        return CaptureOutcome{{withoutEmbeddedObjects(cut.selected), withoutEmbeddedObjects(cut.before),
                               withoutEmbeddedObjects(cut.after), frontName(), bounds},
                              CapturePath::accessibility,
                              known || !trigger.settledSelection};
    }

    // A click that selected nothing must capture nothing: PRIMARY still holds an old selection then, and
    // a copy would take whatever the application has selected from before.
    const bool primaryAllowed = trigger.explicitRequest ||
                                (trigger.settledSelection ? trigger.primaryChanged : primaryIsFresh(trigger));
    // A copy into an element of unknown kind could be one into a password field.
    const bool copyAllowed =
        guard == FocusGuard::ordinary &&
        (trigger.explicitRequest || (trigger.selecting && !trigger.settledSelection && !probe.element)) &&
        !isTerminal(probe.element);
    std::optional<PasteboardText> copied;
    if (primaryAllowed || copyAllowed) {
        copied = selectedTextViaPasteboard(primaryAllowed, copyAllowed);
        if (!copied) {
            m_desktop.clock.sleepFor(copyRetryMs);
            copied = selectedTextViaPasteboard(primaryAllowed, copyAllowed);
        }
    }
    if (copied) {
        logTreelessSource(copied->path);
        const QString text = ContextExtractor::fallback(withoutEmbeddedObjects(copied->text)).selected;
        return CaptureOutcome{
            {text, QString(), QString(), frontName(), mouseRect()}, copied->path, !trigger.settledSelection};
    }

    const std::optional<FrontApp> front = m_desktop.frontApplications.frontmost();
    const QString id = front && front->identifier && !front->identifier->isEmpty() ? *front->identifier
                                                                                   : QStringLiteral("?");
    const QString name = front && !front->name.isEmpty() ? front->name : QStringLiteral("?");
    nbDebug(QStringLiteral("selection: failed app=") + id + QStringLiteral(" name=") + name);
    return std::nullopt;
}

void SelectionService::logTreelessSource(CapturePath path) {
    const std::optional<FrontApp> front = m_desktop.frontApplications.frontmost();
    if (!front || front->processId <= 0)
        return;
    const std::optional<TreelessApp> app = m_desktop.treelessApplications.application(front->processId);
    if (!app)
        return;
    const QString how =
        app->kind == TreelessApp::Kind::electron ? QStringLiteral("the environment variable ") : QString();
    nbDebug(QStringLiteral("selection: ") + capturePathName(path) + QStringLiteral(" from ") + app->name +
            QStringLiteral(", which runs without its accessibility tree (no context, card at the pointer); "
                           "start it with ") +
            how + app->enablingSwitch());
}

bool SelectionService::primaryIsFresh(const CaptureTrigger& trigger) {
    const std::optional<quint64> changedAt = m_desktop.primarySelection.ownerChangedAt();
    // Without owner changes to go by, trust PRIMARY only after a gesture that selects.
    if (!changedAt || trigger.pressTime == 0)
        return trigger.selecting;
    if (*changedAt == 0)
        return false;
    // Server time is a 32-bit millisecond count that wraps around every 49.7 days.
    return qint32(quint32(*changedAt) - quint32(trigger.pressTime)) >= 0;
}

bool SelectionService::isTerminal(const std::shared_ptr<AccessibleElement>& element) {
    if (element && element->role() == AccessibleRole::terminal)
        return true;
    const std::optional<FrontApp> front = m_desktop.frontApplications.frontmost();
    return front && front->identifier && TerminalEmulators::isTerminalClass(*front->identifier);
}

std::optional<SelectionService::PasteboardText>
SelectionService::selectedTextViaPasteboard(bool primaryAllowed, bool copyAllowed) {
    // PRIMARY already holds what the user selected, and reading it leaves the clipboard alone.
    if (primaryAllowed) {
        const std::optional<QString> primary = m_desktop.primarySelection.text();
        if (!isBlank(primary))
            return PasteboardText{*primary, CapturePath::primary};
    }
    if (copyAllowed) {
        if (std::optional<QString> copied = selectedTextViaClipboard())
            return PasteboardText{*copied, CapturePath::clipboard};
    }
    return std::nullopt;
}

std::optional<QString> SelectionService::selectedTextViaClipboard() {
    // Two copies at once (the hot key during a mouse capture) would each save what the other copied
    // and could leave it behind: one at a time, across every reader.
    static std::mutex oneCopyAtATime;
    std::lock_guard guard(oneCopyAtATime);
    Pasteboard& pasteboard = m_desktop.pasteboard;
    const qint64 changeCount = pasteboard.changeCount();
    const ClipboardSnapshot saved = ClipboardSnapshot::capture(pasteboard);

    SyntheticKeyboard& keyboard = m_desktop.keyboard;
    if (!keyboard.beginCopy())
        return std::nullopt;
    keyboard.post(SyntheticKeyboard::CopyStroke::modifierDown);
    keyboard.post(SyntheticKeyboard::CopyStroke::keyDown);
    m_desktop.clock.sleepFor(keyHoldMs);
    keyboard.post(SyntheticKeyboard::CopyStroke::keyUp);
    keyboard.post(SyntheticKeyboard::CopyStroke::modifierUp);

    bool changed = false;
    for (int poll = 0; poll < pasteboardPolls; ++poll) {
        if (pasteboard.changeCount() != changeCount) {
            changed = true;
            break;
        }
        m_desktop.clock.sleepFor(pasteboardPollMs);
    }

    std::optional<QString> result;
    if (changed) {
        const std::optional<QString> text = pasteboard.string();
        if (!isBlank(text))
            result = text;
    }
    // Only a copy that changed the clipboard is undone. On X11 putting the saved formats back makes
    // Nubra their owner, which a clipboard the copy never touched does not need.
    if (changed)
        saved.restore(pasteboard);
    return result;
}

FocusGuard SelectionService::focusGuard() {
    // An application that builds its elements only when asked (a browser putting even a password on
    // PRIMARY) is asked before anything is read from it, and given the moment it takes.
    if (const std::optional<FrontApp> front = m_desktop.frontApplications.frontmost()) {
        if (m_desktop.accessibility.enableApplication(front->processId))
            m_desktop.clock.sleepFor(applicationWakeMs);
    }
    // Fails closed: an element whose role cannot be read may be a password field. Nothing focused at
    // all is no password field.
    const FocusQuery query = m_desktop.accessibility.focusedElement();
    if (query.status == FocusQuery::cannotComplete) {
        nbDebug(
            QStringLiteral("selection: the focused element did not answer in time; reading PRIMARY only"));
        return FocusGuard::unknown;
    }
    const std::shared_ptr<AccessibleElement> element = elementInFront(query);
    if (!element)
        return FocusGuard::ordinary;
    const std::optional<QString> role = element->role();
    if (!role) {
        nbDebug(QStringLiteral("selection: the focused element's role is unknown; reading PRIMARY only"));
        return FocusGuard::unknown;
    }
    static const QStringList secureRoles{AccessibleRole::secureTextField, AccessibleRole::secureComboBox,
                                         AccessibleRole::passwordField};
    if (secureRoles.contains(*role)) {
        nbDebug(QStringLiteral("selection: refused, the focused element is a password field"));
        return FocusGuard::password;
    }
    return FocusGuard::ordinary;
}

AXSelfCheckResult SelectionService::selfCheck() {
    for (int attempt = 0; attempt < selfCheckAttempts; ++attempt) {
        const int status = m_desktop.accessibility.focusedElement().status;
        if (status == FocusQuery::success || status == FocusQuery::attributeUnsupported ||
            status == FocusQuery::noValue)
            return AXSelfCheckResult::ok;
        if (status == FocusQuery::apiDisabled)
            return AXSelfCheckResult::apiDisabled;
        m_desktop.clock.sleepFor(selfCheckRetryMs);
    }
    return AXSelfCheckResult::apiDisabled;
}

QString SelectionService::diagnose() {
    QStringList lines;
    const bool trusted = m_desktop.accessibility.isTrusted();
    lines << L10n::t(QStringLiteral("Accessibility: ") +
                         (trusted ? QStringLiteral("granted ✓") : QStringLiteral("not granted ✗")),
                     QStringLiteral("辅助功能授权：") +
                         (trusted ? QStringLiteral("已授权 ✓") : QStringLiteral("未授权 ✗")));

    const int status = m_desktop.accessibility.focusedElement().status;
    if (status == FocusQuery::success) {
        lines << L10n::t(QStringLiteral("Accessibility bus probe (focused element): OK ✓"),
                         QStringLiteral("辅助功能总线探测（focused element）：成功 ✓"));
        lines << L10n::t(QStringLiteral("→ Permission chain is fine. Select text in another app, then run "
                                        "diagnosis again."),
                         QStringLiteral("→ 权限链路正常。请先在其他应用里选中一段文字，再点一次诊断。"));
    } else if (status == FocusQuery::apiDisabled) {
        lines << PlatformTexts::text(PlatformText::diagnosisApiDisabled);
        lines << PlatformTexts::text(PlatformText::diagnosisToggleAdvice);
    } else {
        lines << L10n::t(QStringLiteral("Accessibility bus probe: ") + QString::number(status) +
                             QStringLiteral(" (may be no focused element right now)"),
                         QStringLiteral("辅助功能总线探测：") + QString::number(status) +
                             QStringLiteral("（此刻可能无焦点元素，可忽略）"));
    }
    const QList<TreelessApp> treeless = m_desktop.treelessApplications.running();
    if (!treeless.isEmpty())
        lines << QString();
    for (const TreelessApp& app : treeless)
        lines << treelessAdvice(app);
    lines << QString();
    lines << SessionCapabilities::now(m_desktop).report();
    lines << QString();
    lines << PlatformTexts::text(PlatformText::diagnosisCommonCause);
    lines << PlatformTexts::text(PlatformText::diagnosisCommonCauseFix);
    return lines.join(QLatin1Char('\n'));
}

void SelectionService::openAccessibilitySettings() {
    m_desktop.accessibility.openSettings();
}
