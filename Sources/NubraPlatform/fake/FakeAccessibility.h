#pragma once

#include "NubraPlatform/Accessibility.h"

#include <QList>

#include <deque>

// An element whose attributes a test sets directly; absent fields read as failures.
class FakeElement final : public AccessibleElement {
public:
    std::optional<QString> selected;
    bool rangeSucceeds = true;
    std::optional<TextRange> range;
    std::optional<QString> fullText;
    std::optional<QRectF> bounds; // top-left-origin, as the platform reports it
    std::optional<QString> roleName = AccessibleRole::textArea;
    std::optional<qint64> owner; // the owning process; unknown unless a test sets it
    std::optional<bool> activeWindow = false;
    QList<TextRange> boundsQueries;

    std::optional<QString> selectedText() override { return selected; }
    RangeRead selectedRange() override { return {rangeSucceeds, range}; }
    std::optional<QString> value() override { return fullText; }
    std::optional<QRectF> boundsForRange(const TextRange& r) override;
    std::optional<QString> role() override { return roleName; }
    std::optional<qint64> processId() override { return owner; }
    std::optional<bool> inActiveWindow() override { return activeWindow; }

    // A text element showing `text` with [location, location + length) selected.
    static std::shared_ptr<FakeElement> textArea(const QString& text, qint64 location, qint64 length);
};

class FakeAccessibility final : public Accessibility {
public:
    bool trusted = true;
    std::shared_ptr<AccessibleElement> focused; // none: the query answers noValue
    int statusWithoutFocus = FocusQuery::noValue;
    QList<qint64> enabledApplications;
    int settingsOpened = 0;
    int focusQueries = 0;

    // Statuses the next focus queries answer, one each, before the element above applies again.
    void queueStatuses(std::initializer_list<int> statuses) { m_statuses.insert(m_statuses.end(), statuses); }

    bool isTrusted() override { return trusted; }
    bool wakesApplications = false; // whether an application asked for the first time builds its elements
    bool enableApplication(qint64 processId) override {
        const bool first = !enabledApplications.contains(processId);
        enabledApplications.append(processId);
        return wakesApplications && first;
    }
    FocusQuery focusedElement() override;
    void openSettings() override;

private:
    std::deque<int> m_statuses;
};
