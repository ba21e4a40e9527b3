#include "speedtest/GaugeScale.h"

#include "support/QStringPrinting.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <utility>

namespace skylet {
namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double infinite = std::numeric_limits<double>::infinity();

/// How many ticks of an animation move, and where the last one leaves the value.
std::pair<int, double> run(double value, double target) {
    int moving = 0;
    gauge::Step step{value, false};
    while (!(step = gauge::step(step.value, target, true)).isLast) {
        ++moving;
    }
    return {moving, step.value};
}

TEST(GaugeScaleTest, RunsFromLowerLeftOverTheTopToLowerRight) {
    EXPECT_DOUBLE_EQ(gauge::angle(0), 225);
    EXPECT_NEAR(gauge::angle(std::sqrt(1001) - 1), 90, 1e-9);
    EXPECT_NEAR(gauge::angle(30.64), 90, 0.01);
    EXPECT_DOUBLE_EQ(gauge::angle(1000), -45);
}

TEST(GaugeScaleTest, PutsEachTickAtItsAngle) {
    constexpr std::array angles{225.0, 197.9, 155.0, 131.3, 71.3, 44.6, -18.0, -45.0};
    ASSERT_EQ(angles.size(), gauge::ticks.size());
    for (std::size_t i = 0; i < angles.size(); ++i) {
        EXPECT_NEAR(gauge::angle(gauge::ticks[i]), angles[i], 0.05) << gauge::ticks[i];
    }
}

TEST(GaugeScaleTest, GoesOnPastItsEnd) {
    EXPECT_NEAR(gauge::angle(5000), -107.9, 0.05);
    EXPECT_GT(gauge::fraction(1001), 1);
}

TEST(GaugeScaleTest, DividesByTheLogarithmOf1001) {
    EXPECT_DOUBLE_EQ(gauge::fraction(1), std::log10(2.0) / 3.000434077479319);
}

TEST(GaugeScaleTest, TakesLessThanZeroAndWhatIsNoNumberForZero) {
    EXPECT_EQ(gauge::fraction(-3), 0);
    EXPECT_EQ(gauge::fraction(-infinite), 0);
    EXPECT_EQ(gauge::fraction(notANumber), 0);
    EXPECT_EQ(gauge::angle(notANumber), 225);
}

TEST(GaugeScaleTest, WritesWholeNumbersFromOneHundredOn) {
    EXPECT_EQ(gauge::number(0), QStringLiteral("0.0"));
    EXPECT_EQ(gauge::number(48.25), QStringLiteral("48.2"));
    EXPECT_EQ(gauge::number(48.35), QStringLiteral("48.4"));
    EXPECT_EQ(gauge::number(99.94), QStringLiteral("99.9"));
    EXPECT_EQ(gauge::number(99.96), QStringLiteral("100.0"));
    EXPECT_EQ(gauge::number(100), QStringLiteral("100"));
    EXPECT_EQ(gauge::number(100.5), QStringLiteral("100"));
    EXPECT_EQ(gauge::number(101.5), QStringLiteral("102"));
    EXPECT_EQ(gauge::number(5000), QStringLiteral("5000"));
}

TEST(GaugeScaleTest, WritesNegativeNumbersAsTheyAre) {
    EXPECT_EQ(gauge::number(-3), QStringLiteral("-3.0"));
    EXPECT_EQ(gauge::number(-300), QStringLiteral("-300.0"));
}

TEST(GaugeScaleTest, WritesWhatIsNoNumberAsCDoes) {
    EXPECT_EQ(gauge::number(notANumber), QStringLiteral("nan"));
    EXPECT_EQ(gauge::number(infinite), QStringLiteral("inf"));
}

TEST(GaugeScaleTest, ClosesEighteenPercentOfTheGapWithEachTick) {
    const gauge::Step step = gauge::step(50, 100, true);
    EXPECT_DOUBLE_EQ(step.value, 59);
    EXPECT_FALSE(step.isLast);
    EXPECT_DOUBLE_EQ(gauge::step(100, 50, true).value, 91);
}

TEST(GaugeScaleTest, TakesMoreTicksTheWiderTheGapIs) {
    // With the last one, which does not move but stands on the target: 40, 28 and 51 ticks.
    EXPECT_EQ(run(0, 100), std::pair(39, 100.0));
    EXPECT_EQ(run(0, 10), std::pair(27, 10.0));
    EXPECT_EQ(run(0, 1000), std::pair(50, 1000.0));
    EXPECT_EQ(run(100, 0), std::pair(39, 0.0));
}

TEST(GaugeScaleTest, StandsOnTheTargetExactlyOnceTheGapIsSmall) {
    const gauge::Step step = gauge::step(99.96, 100, true);
    EXPECT_EQ(step.value, 100);
    EXPECT_TRUE(step.isLast);
    EXPECT_FALSE(gauge::step(99.94, 100, true).isLast);
}

TEST(GaugeScaleTest, StandsOnTheTargetAtOnceWhenNobodySeesIt) {
    const gauge::Step step = gauge::step(0, 100, false);
    EXPECT_EQ(step.value, 100);
    EXPECT_TRUE(step.isLast);
}

TEST(GaugeScaleTest, SetsOutOnlyForAGapOfMoreThanFiveHundredths) {
    EXPECT_FALSE(gauge::animationIsDue(0, 0));
    EXPECT_FALSE(gauge::animationIsDue(0, 0.05));
    EXPECT_FALSE(gauge::animationIsDue(0.05, 0));
    EXPECT_TRUE(gauge::animationIsDue(0, 0.0501));
    EXPECT_TRUE(gauge::animationIsDue(0.0501, 0));
}

TEST(GaugeScaleTest, ReachesATargetThatIsNoNumberWithTheFirstTick) {
    EXPECT_TRUE(gauge::animationIsDue(7, notANumber));
    const gauge::Step step = gauge::step(7, notANumber, true);
    EXPECT_TRUE(std::isnan(step.value));
    EXPECT_TRUE(step.isLast);
}

TEST(GaugeScaleTest, ComesToRestOnAnInfiniteTarget) {
    EXPECT_EQ(run(0, infinite), std::pair(1, infinite));
}

} // namespace
} // namespace skylet
