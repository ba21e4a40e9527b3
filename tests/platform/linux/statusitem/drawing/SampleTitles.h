#pragma once

#include "platform/desktop/StatusTitle.h"

#include <array>

/// Titles of the kinds that the program shows.
namespace skylet::sample {

inline constexpr std::array allColors = {DotColor::systemGreen, DotColor::systemYellow, DotColor::systemRed,
                                         DotColor::systemGray};

inline constexpr TitleFont dotFont{12, FontWeight::regular, false};
inline constexpr TitleFont numberFont{12, FontWeight::regular, true};
inline constexpr TitleFont unitFont{9, FontWeight::medium, false};
inline constexpr TitleFont bannerFont{12, FontWeight::medium, false};

inline TitleSegment dot(DotColor color) {
    return {QStringLiteral("●"), dotFont, 0, color};
}

inline StatusTitle latency(DotColor color, const QString& number, const QString& unit, const QString& word) {
    return {dot(color),
            {QStringLiteral("  ") + number, numberFont, 0, {}},
            {QStringLiteral(" ") + unit, unitFont, 0.5, {}},
            {QStringLiteral("  ") + word, numberFont, 0, {}},
            {QStringLiteral("  ↓12.4M ↑210K"), numberFont, 0, {}}};
}

inline StatusTitle stateWord(DotColor color, const QString& word) {
    return {dot(color), {QStringLiteral("  ") + word, numberFont, 0, {}}};
}

inline StatusTitle banner(DotColor color) {
    return {dot(color), {QStringLiteral("  ↓ 48.2 Mbps  ↑ 11.0 Mbps"), bannerFont, 0, {}}};
}

inline StatusTitle fast() {
    return latency(DotColor::systemGreen, QStringLiteral("87"), QStringLiteral("ms"), QStringLiteral("Responsive"));
}

inline StatusTitle slow() {
    return latency(DotColor::systemYellow, QStringLiteral("1.2"), QStringLiteral("s"),
                   QStringLiteral("Very high delay"));
}

inline StatusTitle checking() {
    return stateWord(DotColor::systemYellow, QStringLiteral("Checking…"));
}
inline StatusTitle offline() {
    return stateWord(DotColor::systemRed, QStringLiteral("Offline"));
}
inline StatusTitle paused() {
    return stateWord(DotColor::systemGray, QStringLiteral("Paused"));
}

} // namespace skylet::sample
