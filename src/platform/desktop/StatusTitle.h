#pragma once

#include <QString>

#include <optional>
#include <vector>

namespace skylet {

/// The colour of the dot. The shade on screen is the painter's business.
enum class DotColor { systemGreen, systemYellow, systemRed, systemGray };

enum class FontWeight { regular, medium };

/// A cut of the desktop's general font.
struct TitleFont {
    /// Logical pixels.
    int size = 0;
    FontWeight weight = FontWeight::regular;
    /// All digits have the same advance.
    bool monospacedDigits = false;

    bool operator==(const TitleFont&) const = default;
};

/// A run of the title in one font.
struct TitleSegment {
    QString text;
    TitleFont font;
    /// Logical pixels upwards.
    double baselineOffset = 0;
    /// Absent: the panel's default text colour.
    std::optional<DotColor> color;

    bool operator==(const TitleSegment&) const = default;
};

/// What stands in the panel, from left to right in both languages. The first segment is the dot.
using StatusTitle = std::vector<TitleSegment>;

} // namespace skylet
