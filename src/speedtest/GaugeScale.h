#pragma once

#include <QString>

#include <array>

/// What a gauge shows for a speed, and how the speed that it shows moves: a logarithmic scale from 0 to 1000 Mbit/s on
/// an arc of 270 degrees, and steps that close the gap to a target. Speeds in Mbit/s. Draws nothing and keeps no time.
namespace skylet::gauge {

inline constexpr double lowest = 0;
inline constexpr double highest = 1000;
/// Degrees, counter-clockwise from the direction to the right: lower left, and clockwise over the top to lower right.
inline constexpr double startAngle = 225;
inline constexpr double sweep = 270;
inline constexpr std::array<int, 8> ticks{0, 1, 5, 10, 50, 100, 500, 1000};

/// Share of the sweep at which a speed stands: 0 for 0 and less and for what is not a number, 1 for 1000, more beyond.
double fraction(double speed);
/// In degrees as above. Speeds over 1000 go on clockwise, past the end of the arc.
double angle(double speed);
/// The speed in digits: whole from 100 on, else with one decimal, as C's printf rounds.
QString number(double speed);

/// Whether the shown speed is so far from its target that it should set out for it.
bool animationIsDue(double value, double target);

/// A step of an animation.
struct Step {
    double value = 0;
    /// The last step stands on the target exactly.
    bool isLast = false;
};

/// The step from `value` towards `target`: 18 percent of the gap, or all of it when it is small or the gauge not
/// visible.
Step step(double value, double target, bool visible);

} // namespace skylet::gauge
