#pragma once

#include <QString>

#include <vector>

namespace skylet {

/// What is known of the connection; the painter chooses the dot's colour and sign by it.
enum class Status {
    paused,
    checking,
    online,
    /// Online with a response time that a user notices.
    slow,
    offline,
};

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

/// A run of the title in one font and the panel's default text colour.
struct TitleSegment {
    QString text;
    TitleFont font;
    /// Logical pixels upwards.
    double baselineOffset = 0;
    /// It changes every other second: no screen reader is told.
    bool isTraffic = false;

    bool operator==(const TitleSegment&) const = default;
};

/// What follows the dot in the panel, from left to right in both languages.
using StatusTitle = std::vector<TitleSegment>;

/// All that the status item shows beside its menu.
struct StatusDisplay {
    Status status = Status::checking;
    /// The response time in few characters: milliseconds as a bare number of at most three digits, "87", or seconds
    /// with their unit, "1.2s". Empty where the title has none.
    QString number;
    StatusTitle title;
    QString toolTip;

    bool operator==(const StatusDisplay&) const = default;
};

} // namespace skylet
