#pragma once

#include <QAbstractButton>
#include <QWidget>

class QPainter;

// The few pictograms the onboarding screens show, drawn here as thin vector outlines (or filled discs
// with the mark cut out), so they look the same on every desktop, with or without an icon theme, and
// stay sharp at any scale.
enum class Symbol {
    handTap,         // a hand whose index finger taps
    checkmarkSeal,   // a scalloped seal with a check mark
    circlePath,      // two arrows chasing each other round a circle
    checkmarkCircle, // a filled disc with a check mark cut out
    xmarkCircle,     // a filled disc with a cross cut out
};

// Tints that follow the palette, so a symbol is right in light and dark themes alike.
enum class SymbolTint { accent, orange, green, secondary };

namespace Symbols {

QColor color(SymbolTint tint, const QPalette& palette);
// Draws `symbol` filling the square `box` (centred in it when `box` is not square).
void paint(QPainter& painter, const QRectF& box, Symbol symbol, const QColor& color);

} // namespace Symbols

// A symbol at a fixed size, in a tint taken from the palette whenever it is painted.
class SymbolView final : public QWidget {
    Q_OBJECT

public:
    SymbolView(Symbol symbol, SymbolTint tint, int size, QWidget* parent = nullptr);

    Symbol symbol() const { return m_symbol; }
    SymbolTint tint() const { return m_tint; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Symbol m_symbol;
    SymbolTint m_tint;
};

// A borderless button that is just a symbol, a little faded until the pointer is over it.
class SymbolButton final : public QAbstractButton {
    Q_OBJECT

public:
    SymbolButton(Symbol symbol, SymbolTint tint, int size, QWidget* parent = nullptr);

    QSize sizeHint() const override { return {m_size, m_size}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Symbol m_symbol;
    SymbolTint m_tint;
    int m_size;
};
