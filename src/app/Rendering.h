#pragma once

#include "platform/desktop/StatusDisplay.h"
#include "ui/Strings.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <optional>

namespace skylet {

/// Looks a text up in the user's language.
using Lookup = std::function<QString(const QString&)>;

/// All that the status item and its menu depend on.
struct DisplayState {
    /// Automatic checks are paused.
    bool paused = false;
    /// Absent: still checking.
    std::optional<bool> online;
    /// Meaningful only while `online` is true.
    std::int64_t latencyMs = 0;
    /// Temporary text in the place of the latency.
    std::optional<QString> banner;
    bool showTraffic = true;
    /// Interface traffic, bytes/s.
    double downRate = 0;
    double upRate = 0;
    /// Summary of the last speed test.
    QString lastSpeed;
    /// A speed test is running.
    bool testing = false;
};

/// What the user sees of a DisplayState, the whole of it.
struct Display {
    StatusDisplay item;
    QString statusLine;
    QString rateLine;
    QString speedLine;
    bool pauseChecked = false;
    bool trafficChecked = false;
    bool testEnabled = false;
    bool checkEnabled = false;
};

/// The fonts of the title after the dot.
namespace titlefont {
inline constexpr TitleFont number{12, FontWeight::regular, true};
inline constexpr TitleFont unit{9, FontWeight::medium, false};
inline constexpr TitleFont banner{12, FontWeight::medium, false};
} // namespace titlefont

/// Turns state into what is shown, from scratch each time; pure apart from the look-up.
Display renderDisplay(const DisplayState& state, const Lookup& text = L);

/// The latency class of a response time, in the user's language.
QString label(std::int64_t milliseconds, const Lookup& text = L);

/// A rate in bytes per second as bits per second, with K or M where it needs one: "840", "210K", "12.4M". The unit is
/// the caller's. The thresholds apply before rounding: 999.6 bit/s reads "1000".
QString fmtRate(double bytesPerSecond);

} // namespace skylet
