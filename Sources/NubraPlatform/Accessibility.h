#pragma once

#include <QRectF>
#include <QString>

#include <memory>
#include <optional>

// A selected range as the accessibility interface reports it: UTF-16 code units of the element's value.
struct TextRange {
    qint64 location = 0;
    qint64 length = 0;
    friend bool operator==(const TextRange&, const TextRange&) = default;
};

// Element roles in the vocabulary of the accessibility interface the product was designed against; the
// platform layer maps its own roles onto these, and capture compares with them.
namespace AccessibleRole {
inline const QString textArea = QStringLiteral("AXTextArea");
inline const QString textField = QStringLiteral("AXTextField");
inline const QString comboBox = QStringLiteral("AXComboBox");
inline const QString secureTextField = QStringLiteral("AXSecureTextField");
inline const QString secureComboBox = QStringLiteral("AXSecureComboBox");
inline const QString passwordField = QStringLiteral("AXPasswordField");
// Not in that vocabulary (Terminal shows a text area there); a terminal never receives a synthetic copy.
inline const QString terminal = QStringLiteral("AXTerminal");
inline const QString unknown = QStringLiteral("AXUnknown");
} // namespace AccessibleRole

// One user-interface element of another application. Every read may fail (the application quit, hung
// or does not expose the attribute); a failure is an empty answer.
class AccessibleElement {
public:
    virtual ~AccessibleElement() = default;

    // Lets value() and selectedRange() cover only the selection and at least `radius` UTF-16 units of
    // text on each side (the range then counts from the start of that part), so that a long document is
    // not read whole. Call it before the first read; an element that reads cheaply may ignore it.
    virtual void limitContextTo([[maybe_unused]] int radius) {}
    // Absent when the element has no selected-text attribute or it is not text.
    virtual std::optional<QString> selectedText() = 0;
    // Whether the range read succeeded, and the range when it could be unpacked.
    struct RangeRead {
        bool succeeded = false;
        std::optional<TextRange> range;
    };
    virtual RangeRead selectedRange() = 0;
    virtual std::optional<QString> value() = 0;
    // The screen rectangle of `range` in top-left-origin global coordinates.
    virtual std::optional<QRectF> boundsForRange(const TextRange& range) = 0;
    // One of AccessibleRole.
    virtual std::optional<QString> role() = 0;
    // The process of the application the element belongs to, when the platform says. A sandboxed
    // application may tell its windows another number than the platform sees.
    virtual std::optional<qint64> processId() = 0;
    // Whether the window holding the element is the active one; absent when that cannot be read.
    virtual std::optional<bool> inActiveWindow() = 0;
};

// The answer to "which element has focus", with the status code of the query. The codes are those
// of the accessibility interface the product was designed against, so callers can reason about them.
struct FocusQuery {
    static constexpr int success = 0;
    static constexpr int cannotComplete = -25204;
    static constexpr int attributeUnsupported = -25205;
    static constexpr int apiDisabled = -25211;
    static constexpr int noValue = -25212;

    int status = noValue;
    std::shared_ptr<AccessibleElement> element; // set only with success
};

// The desktop's accessibility service.
class Accessibility {
public:
    virtual ~Accessibility() = default;

    // Whether this process may read other applications' elements (the permission; on Linux, whether
    // the accessibility bus is enabled and reachable).
    virtual bool isTrusted() = 0;
    // Asks the application with this process id to expose its elements. True when it was asked just
    // now and its elements appear a moment later; false when it needs no asking or was asked before.
    virtual bool enableApplication(qint64 processId) = 0;
    virtual FocusQuery focusedElement() = 0;
    // Leads the user to the switch that grants the permission (on Linux it turns the bus on).
    virtual void openSettings() = 0;
};
