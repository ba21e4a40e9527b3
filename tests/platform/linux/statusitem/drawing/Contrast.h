#pragma once

#include <QColor>

#include <algorithm>
#include <cmath>

namespace skylet {

/// Relative luminance as WCAG 2.1 defines it, 0 to 1.
inline double luminance(const QColor& color) {
    const auto linear = [](double share) {
        return share <= 0.03928 ? share / 12.92 : std::pow((share + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

/// The contrast ratio of WCAG 2.1, 1 to 21.
inline double contrast(const QColor& one, const QColor& other) {
    const auto [darker, lighter] = std::minmax({luminance(one), luminance(other)});
    return (lighter + 0.05) / (darker + 0.05);
}

} // namespace skylet
