#pragma once

#include <QColor>
#include <QPalette>

namespace skylet {

/// The colours of texts by their rank, for the palette in force. Each has a contrast of at least `leastContrast` to the
/// palette's window colour, if its text colour has.
struct SemanticColors {
    QColor label;
    QColor secondaryLabel;
    QColor tertiaryLabel;
    /// The user's colour for what is active.
    QColor controlAccent;
    /// Around a control, inside which the palette's base colour is. Has a contrast of at least `leastOutlineContrast`.
    QColor controlOutline;
};

/// For text of any size (WCAG 2.1, 1.4.3).
inline constexpr double leastContrast = 4.5;

/// For what shows where a control is (WCAG 2.1, 1.4.11).
inline constexpr double leastOutlineContrast = 3;

/// From 1 to 21 (WCAG 2.1, "contrast ratio"); for opaque colours.
double contrast(const QColor& a, const QColor& b);

SemanticColors semanticColors(const QPalette& palette);

} // namespace skylet
