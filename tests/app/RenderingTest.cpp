#include "app/Rendering.h"

#include "support/QStringPrinting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

namespace skylet {
namespace {

using testing::ElementsAre;

const Lookup english = [](const QString& key) { return key; };
const Lookup hebrew = [strings = std::make_shared<Strings>(QStringList{QStringLiteral("he-IL")})](const QString& key) {
    return strings->text(key);
};

DisplayState onlineAt(std::int64_t latencyMs) {
    DisplayState state;
    state.online = true;
    state.latencyMs = latencyMs;
    state.showTraffic = false;
    state.lastSpeed = QStringLiteral("not run yet");
    return state;
}

DisplayState offline() {
    auto state = onlineAt(0);
    state.online = false;
    return state;
}

DisplayState checking() {
    auto state = onlineAt(0);
    state.online.reset();
    return state;
}

DisplayState paused() {
    auto state = onlineAt(87);
    state.paused = true;
    return state;
}

DisplayState withBanner(DisplayState state) {
    state.banner = QStringLiteral("Speed test running…");
    return state;
}

DisplayState withTraffic(DisplayState state) {
    state.showTraffic = true;
    state.downRate = 1'550'000;
    state.upRate = 26'250;
    return state;
}

Display display(const DisplayState& state) {
    return renderDisplay(state, english);
}

Display inHebrew(const DisplayState& state) {
    return renderDisplay(state, hebrew);
}

QString joined(const StatusTitle& title) {
    QString text;
    for (const auto& segment : title) {
        text += segment.text;
    }
    // Without the gap after the dot.
    return text.mid(2);
}

QString titleText(const DisplayState& state) {
    return joined(display(state).item.title);
}

Status status(const DisplayState& state) {
    return display(state).item.status;
}

TEST(Title, OfAFastConnectionIsNumberSmallRaisedUnitAndClass) {
    EXPECT_THAT(display(onlineAt(87)).item.title,
                ElementsAre(TitleSegment{QStringLiteral("  87"), {12, FontWeight::regular, true}, 0},
                            TitleSegment{QStringLiteral(" ms"), {9, FontWeight::medium, false}, 0.5},
                            TitleSegment{QStringLiteral("  Responsive"), {12, FontWeight::regular, true}, 0}));
}

TEST(Title, ShowsTrafficAsOneSegmentWithoutAUnit) {
    const auto title = display(withTraffic(onlineAt(1234))).item.title;
    EXPECT_EQ(joined(title), QStringLiteral("1.2 s  Very high delay  ↓12.4M ↑210K"));
    ASSERT_EQ(title.size(), 4U);
    EXPECT_EQ(title.back(), (TitleSegment{QStringLiteral("  ↓12.4M ↑210K"), {12, FontWeight::regular, true}, 0, true}));
}

TEST(Title, ABannerWhileOnlineHidesLatencyClassAndTraffic) {
    const auto item = display(withBanner(withTraffic(onlineAt(87)))).item;
    EXPECT_EQ(item.status, Status::online);
    EXPECT_EQ(item.number, QString());
    EXPECT_THAT(item.title,
                ElementsAre(TitleSegment{QStringLiteral("  Speed test running…"), {12, FontWeight::medium, false}, 0}));
}

TEST(Title, ABannerIsNotShownWhileOfflineCheckingOrPaused) {
    EXPECT_EQ(titleText(withBanner(offline())), QStringLiteral("Offline"));
    EXPECT_EQ(titleText(withBanner(checking())), QStringLiteral("Checking…"));
    EXPECT_EQ(titleText(withBanner(paused())), QStringLiteral("Paused"));
}

TEST(Title, OfOfflineCheckingAndPausedIsTheStateWordInTheNumberFont) {
    for (const auto& state : {offline(), checking(), paused()}) {
        const auto title = display(state).item.title;
        ASSERT_EQ(title.size(), 1U);
        EXPECT_EQ(title.back().font, (TitleFont{12, FontWeight::regular, true}));
        EXPECT_EQ(title.back().baselineOffset, 0);
    }
}

TEST(Title, ShowsNoTrafficWhileOfflineCheckingOrPaused) {
    EXPECT_EQ(titleText(withTraffic(offline())), QStringLiteral("Offline"));
    EXPECT_EQ(titleText(withTraffic(checking())), QStringLiteral("Checking…"));
    EXPECT_EQ(titleText(withTraffic(paused())), QStringLiteral("Paused"));
}

TEST(Title, WhileCheckingWithTrafficOnTheMenuLineIsStillFilled) {
    EXPECT_EQ(display(withTraffic(checking())).rateLine, QStringLiteral("Live traffic:  ↓ 12.4Mb/s   ↑ 210Kb/s"));
}

TEST(Title, At999MillisecondsIsInMillisecondsAndAt1000InSeconds) {
    EXPECT_EQ(titleText(onlineAt(999)), QStringLiteral("999 ms  High delay"));
    EXPECT_EQ(titleText(onlineAt(1000)), QStringLiteral("1.0 s  Very high delay"));
    EXPECT_EQ(titleText(onlineAt(2960)), QStringLiteral("3.0 s  Very high delay"));
}

TEST(Title, HalvesOfATenthOfASecondAreRoundedAsCDoes) {
    EXPECT_EQ(titleText(onlineAt(1250)), QStringLiteral("1.2 s  Very high delay"));
    EXPECT_EQ(titleText(onlineAt(1750)), QStringLiteral("1.8 s  Very high delay"));
    EXPECT_EQ(titleText(onlineAt(2250)), QStringLiteral("2.2 s  Very high delay"));
}

TEST(Title, InHebrewUsesTheTranslatedClassAndStateWords) {
    EXPECT_EQ(joined(inHebrew(onlineAt(87)).item.title), QStringLiteral("87 ms  מגיב מהר"));
    EXPECT_EQ(joined(inHebrew(offline()).item.title), QStringLiteral("אין רשת"));
    EXPECT_EQ(joined(inHebrew(checking()).item.title), QStringLiteral("בודק…"));
    EXPECT_EQ(joined(inHebrew(paused()).item.title), QStringLiteral("מושהה"));
}

TEST(Number, IsThatOfTheTitleAndHasItsUnitFromOneSecondOn) {
    EXPECT_EQ(display(onlineAt(62)).item.number, QStringLiteral("62"));
    EXPECT_EQ(display(onlineAt(999)).item.number, QStringLiteral("999"));
    EXPECT_EQ(display(onlineAt(1000)).item.number, QStringLiteral("1.0s"));
    EXPECT_EQ(display(onlineAt(1250)).item.number, QStringLiteral("1.2s"));
    for (const auto& state : {withBanner(onlineAt(87)), offline(), checking(), paused()}) {
        EXPECT_EQ(display(state).item.number, QString());
    }
}

TEST(StatusOfTheItem, IsPausedWhateverElse) {
    EXPECT_EQ(status(paused()), Status::paused);
    auto pausedOffline = offline();
    pausedOffline.paused = true;
    EXPECT_EQ(status(pausedOffline), Status::paused);
}

TEST(StatusOfTheItem, IsCheckingBeforeTheFirstAnswer) {
    EXPECT_EQ(status(checking()), Status::checking);
}

TEST(StatusOfTheItem, IsOffline) {
    EXPECT_EQ(status(offline()), Status::offline);
}

TEST(StatusOfTheItem, TurnsFromOnlineToSlowBetween399And400Milliseconds) {
    EXPECT_EQ(status(onlineAt(399)), Status::online);
    EXPECT_EQ(titleText(onlineAt(399)), QStringLiteral("399 ms  Moderate delay"));
    EXPECT_EQ(status(onlineAt(400)), Status::slow);
    EXPECT_EQ(titleText(onlineAt(400)), QStringLiteral("400 ms  High delay"));
}

TEST(ToolTip, IsTheSameInEveryState) {
    for (const auto& state : {onlineAt(87), offline(), checking(), paused(), withBanner(onlineAt(87))}) {
        EXPECT_EQ(display(state).item.toolTip, QStringLiteral("HTTPS response time, not download speed"));
        EXPECT_EQ(inHebrew(state).item.toolTip, QStringLiteral("זמן תגובת HTTPS, לא מהירות הורדה"));
    }
}

TEST(StatusLine, NamesTheStatePauseBeforeEverything) {
    EXPECT_EQ(display(paused()).statusLine, QStringLiteral("Automatic checks paused"));
    EXPECT_EQ(display(checking()).statusLine, QStringLiteral("Checking connection..."));
    EXPECT_EQ(display(onlineAt(1234)).statusLine, QStringLiteral("Online — 1234 ms (Very high delay)"));
    EXPECT_EQ(display(offline()).statusLine, QStringLiteral("No internet (hotspot without signal?)"));
}

TEST(StatusLine, InHebrewIsFormattedAfterTheLookUp) {
    EXPECT_EQ(inHebrew(onlineAt(42)).statusLine, QStringLiteral("מחובר — \u200E42 ms\u200E (תגובה מהירה)"));
}

TEST(StatusLine, InHebrewNamesEachState) {
    EXPECT_EQ(inHebrew(paused()).statusLine, QStringLiteral("הבדיקות האוטומטיות מושהות"));
    EXPECT_EQ(inHebrew(checking()).statusLine, QStringLiteral("בודק חיבור..."));
    EXPECT_EQ(inHebrew(offline()).statusLine, QStringLiteral("אין אינטרנט (נקודה חמה בלי קליטה?)"));
}

TEST(RateLine, IsFilledInEveryState) {
    for (const auto& state : {onlineAt(87), offline(), checking(), paused()}) {
        EXPECT_EQ(display(state).rateLine, QStringLiteral("Live traffic:  ↓ 0b/s   ↑ 0b/s"));
    }
}

TEST(RateLine, InHebrewIsFormattedAfterTheLookUp) {
    EXPECT_EQ(inHebrew(withTraffic(onlineAt(87))).rateLine,
              QStringLiteral("תעבורה חיה:  \u200E↓ 12.4Mb/s   ↑ 210Kb/s"));
}

TEST(SpeedLine, InHebrewEndsInTheSummaryAsItWasMade) {
    EXPECT_EQ(inHebrew(onlineAt(1)).speedLine, QStringLiteral("מבחן מהירות אחרון:  not run yet"));
}

TEST(SpeedLine, EndsInTheSummaryOfTheLastTest) {
    EXPECT_EQ(display(onlineAt(1)).speedLine, QStringLiteral("Last speed test:  not run yet"));
}

TEST(Items, TheSpeedTestIsEnabledOnlyWhileOnlineNotPausedAndNotTesting) {
    EXPECT_TRUE(display(onlineAt(87)).testEnabled);
    EXPECT_FALSE(display(offline()).testEnabled);
    EXPECT_FALSE(display(checking()).testEnabled);
    EXPECT_FALSE(display(paused()).testEnabled);
    auto testing = onlineAt(87);
    testing.testing = true;
    EXPECT_FALSE(display(testing).testEnabled);
}

TEST(Items, CheckingIsEnabledUnlessPaused) {
    EXPECT_TRUE(display(onlineAt(87)).checkEnabled);
    EXPECT_TRUE(display(offline()).checkEnabled);
    EXPECT_TRUE(display(checking()).checkEnabled);
    EXPECT_FALSE(display(paused()).checkEnabled);
}

TEST(Items, PausedWhileOnlineIsGrayWithTheCommandsOffAndThePauseChecked) {
    const auto shown = display(paused());
    EXPECT_EQ(joined(shown.item.title), QStringLiteral("Paused"));
    EXPECT_EQ(shown.item.status, Status::paused);
    EXPECT_EQ(shown.statusLine, QStringLiteral("Automatic checks paused"));
    EXPECT_FALSE(shown.testEnabled);
    EXPECT_FALSE(shown.checkEnabled);
    EXPECT_TRUE(shown.pauseChecked);
}

TEST(Items, CheckMarksFollowTheirFlags) {
    EXPECT_FALSE(display(onlineAt(1)).pauseChecked);
    EXPECT_FALSE(display(onlineAt(1)).trafficChecked);
    EXPECT_TRUE(display(withTraffic(onlineAt(1))).trafficChecked);
}

struct LatencyClass {
    std::int64_t milliseconds;
    const char* name;
};

void PrintTo(const LatencyClass& row, std::ostream* out) {
    *out << row.milliseconds << " ms: " << row.name;
}

class LabelTest : public testing::TestWithParam<LatencyClass> {};

TEST_P(LabelTest, NamesTheClass) {
    EXPECT_EQ(label(GetParam().milliseconds, english), QString::fromUtf8(GetParam().name));
}

INSTANTIATE_TEST_SUITE_P(EveryRowAndItsBounds, LabelTest,
                         testing::Values(LatencyClass{-5, "Quick response"}, LatencyClass{1, "Quick response"},
                                         LatencyClass{59, "Quick response"}, LatencyClass{60, "Responsive"},
                                         LatencyClass{149, "Responsive"}, LatencyClass{150, "Moderate delay"},
                                         LatencyClass{399, "Moderate delay"}, LatencyClass{400, "High delay"},
                                         LatencyClass{999, "High delay"}, LatencyClass{1000, "Very high delay"},
                                         LatencyClass{3'000'000'000, "Very high delay"}),
                         [](const auto& row) { return "Row" + std::to_string(row.index); });

struct Rate {
    double bytesPerSecond;
    const char* text;
};

void PrintTo(const Rate& rate, std::ostream* out) {
    *out << rate.bytesPerSecond << " bytes/s: " << rate.text;
}

class FmtRateTest : public testing::TestWithParam<Rate> {};

TEST_P(FmtRateTest, ShortensBitsPerSecond) {
    EXPECT_EQ(fmtRate(GetParam().bytesPerSecond), QString::fromUtf8(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(EveryRangeAndItsBounds, FmtRateTest,
                         testing::Values(Rate{0, "0"}, Rate{105, "840"}, Rate{124.9, "999"}, Rate{124.95, "1000"},
                                         Rate{125, "1K"}, Rate{26'250, "210K"}, Rate{124'950, "1000K"},
                                         Rate{125'000, "1.0M"}, Rate{1'550'000, "12.4M"}, Rate{125'000'000, "1000.0M"}),
                         [](const auto& row) { return "Row" + std::to_string(row.index); });

} // namespace
} // namespace skylet
