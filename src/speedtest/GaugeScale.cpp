#include "speedtest/GaugeScale.h"

#include "ui/Strings.h"

#include <cmath>

namespace skylet::gauge {

namespace {

constexpr double easing = 0.18;
constexpr double stopThreshold = 0.05;

} // namespace

double fraction(double speed) {
    // fmax, unlike max, prefers the number to what is none.
    return std::log10(std::fmax(speed, lowest) + 1) / std::log10(highest + 1);
}

double angle(double speed) {
    return startAngle - sweep * fraction(speed);
}

QString number(double speed) {
    return fixed(speed, speed >= 100 ? 0 : 1);
}

bool animationIsDue(double value, double target) {
    // A target that is no number is due as well: its first step shows it and is the last.
    return !(std::abs(target - value) <= stopThreshold);
}

Step step(double value, double target, bool visible) {
    const double gap = target - value;
    if (visible && std::abs(gap) > stopThreshold) {
        return {value + gap * easing, false};
    }
    return {target, true};
}

} // namespace skylet::gauge
