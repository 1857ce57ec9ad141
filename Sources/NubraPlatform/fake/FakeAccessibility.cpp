#include "NubraPlatform/fake/FakeAccessibility.h"

std::optional<QRectF> FakeElement::boundsForRange(const TextRange& r) {
    boundsQueries.append(r);
    return bounds;
}

std::shared_ptr<FakeElement> FakeElement::textArea(const QString& text, qint64 location, qint64 length) {
    auto element = std::make_shared<FakeElement>();
    element->fullText = text;
    element->range = TextRange{location, length};
    element->selected = text.mid(location, length);
    return element;
}

FocusQuery FakeAccessibility::focusedElement() {
    ++focusQueries;
    if (!m_statuses.empty()) {
        const int status = m_statuses.front();
        m_statuses.pop_front();
        return {status, status == FocusQuery::success ? focused : nullptr};
    }
    if (!trusted)
        return {FocusQuery::apiDisabled, nullptr};
    if (!focused)
        return {statusWithoutFocus, nullptr};
    return {FocusQuery::success, focused};
}

void FakeAccessibility::openSettings() {
    ++settingsOpened;
    trusted = true;
}
