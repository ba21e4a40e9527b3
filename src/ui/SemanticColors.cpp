#include "ui/SemanticColors.h"

#include <algorithm>
#include <cmath>

namespace skylet {

namespace {

constexpr double secondaryShare = 0.75;
constexpr double tertiaryShare = 0.6;
constexpr int steps = 20;

double linear(double part) {
    return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
}

double luminance(const QColor& color) {
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

/// `share` of `color`, the rest of `other`.
QColor mixed(const QColor& color, const QColor& other, double share) {
    const auto part = [share](int a, int b) { return static_cast<int>(std::lround(share * a + (1 - share) * b)); };
    return {part(color.red(), other.red()), part(color.green(), other.green()), part(color.blue(), other.blue())};
}

/// `color`, or as little nearer to `text` as gives it that contrast.
QColor legible(const QColor& color, const QColor& text, const QColor& background, double least = leastContrast) {
    for (int step = 0; step < steps; ++step) {
        const QColor candidate = mixed(color, text, 1 - static_cast<double>(step) / steps);
        if (contrast(candidate, background) >= least) {
            return candidate;
        }
    }
    return text;
}

} // namespace

double contrast(const QColor& a, const QColor& b) {
    const double first = luminance(a);
    const double second = luminance(b);
    return (std::max(first, second) + 0.05) / (std::min(first, second) + 0.05);
}

SemanticColors semanticColors(const QPalette& palette) {
    const QColor background = palette.color(QPalette::Active, QPalette::Window);
    const QColor text = palette.color(QPalette::Active, QPalette::WindowText);
    return {.label = text,
            .secondaryLabel = legible(mixed(text, background, secondaryShare), text, background),
            .tertiaryLabel = legible(mixed(text, background, tertiaryShare), text, background),
            .controlAccent = legible(palette.color(QPalette::Active, QPalette::Highlight), text, background),
            .controlOutline = legible(legible(background, text, background, leastOutlineContrast), text,
                                      palette.color(QPalette::Active, QPalette::Base), leastOutlineContrast)};
}

} // namespace skylet
