#pragma once

#include "platform/desktop/StatusDisplay.h"

#include <array>

/// Displays of the kinds that the program shows.
namespace skylet::sample {

inline constexpr std::array allStatuses = {Status::paused, Status::checking, Status::online, Status::slow,
                                           Status::offline};
/// One for each colour.
inline constexpr std::array allColors = {Status::paused, Status::checking, Status::online, Status::offline};

inline constexpr TitleFont numberFont{12, FontWeight::regular, true};
inline constexpr TitleFont unitFont{9, FontWeight::medium, false};
inline constexpr TitleFont bannerFont{12, FontWeight::medium, false};

inline const auto toolTip = QStringLiteral("response time");

inline StatusDisplay latency(Status status, const QString& number, const QString& unit, const QString& word) {
    return {status,
            unit == QLatin1String("s") ? number + unit : number,
            {{QStringLiteral("  ") + number, numberFont},
             {QStringLiteral(" ") + unit, unitFont, 0.5},
             {QStringLiteral("  ") + word, numberFont},
             {QStringLiteral("  ↓12.4M ↑210K"), numberFont, 0, true}},
            toolTip};
}

/// The usual word and unit with another number or in Hebrew.
inline StatusDisplay responsive(const QString& number, const QString& word = QStringLiteral("Responsive")) {
    return latency(Status::online, number, QStringLiteral("ms"), word);
}

inline StatusDisplay stateWord(Status status, const QString& word) {
    return {status, QString(), {{QStringLiteral("  ") + word, numberFont}}, toolTip};
}

inline StatusDisplay banner(Status status) {
    return {status, QString(), {{QStringLiteral("  ↓ 48.2 Mbps  ↑ 11.0 Mbps"), bannerFont}}, toolTip};
}

inline StatusDisplay fast() {
    return responsive(QStringLiteral("87"));
}

inline StatusDisplay hebrew() {
    return responsive(QStringLiteral("87"), QStringLiteral("מגיב מהר"));
}

inline StatusDisplay slow() {
    return latency(Status::slow, QStringLiteral("1.2"), QStringLiteral("s"), QStringLiteral("Very high delay"));
}

inline StatusDisplay checking() {
    return stateWord(Status::checking, QStringLiteral("Checking…"));
}
inline StatusDisplay offline() {
    return stateWord(Status::offline, QStringLiteral("Offline"));
}
inline StatusDisplay paused() {
    return stateWord(Status::paused, QStringLiteral("Paused"));
}

} // namespace skylet::sample
