#include "SkyletFixture.h"

#include <gmock/gmock.h>

#include <memory>

namespace skylet {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

TEST_F(SkyletTest, MakingItStartsNothing) {
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(schedule.timers(), IsEmpty());
}

TEST_F(SkyletTest, StartsUpInOrder) {
    skylet->applicationDidFinishLaunching();
    EXPECT_EQ(calls.filter(QStringLiteral("setDisplay")).size(), 3) << "first picture, checking, first sample";
    EXPECT_EQ(calls, (QStringList{QStringLiteral("diagnosticLog.append"), QStringLiteral("application.becomeAccessory"),
                                  QStringLiteral("application.makeStatusItem"), QStringLiteral("diagnosticLog.append"),
                                  QStringLiteral("item.setAutosaveName"), QStringLiteral("item.setVisible"),
                                  QStringLiteral("item.setMenu"), QStringLiteral("item.setDisplay"),
                                  QStringLiteral("pathMonitor.start"), QStringLiteral("sleepMonitor.start"),
                                  QStringLiteral("item.setDisplay"), QStringLiteral("probe"),
                                  QStringLiteral("rateTimer.start"), QStringLiteral("interfaceCounters.read"),
                                  QStringLiteral("item.setDisplay")}));
}

TEST_F(SkyletTest, ShutsDownInOrder) {
    launch();
    goOnline();
    skylet->applicationWillTerminate();
    EXPECT_EQ(calls, (QStringList{QStringLiteral("engineTimer.cancel"), QStringLiteral("pathMonitor.cancel"),
                                  QStringLiteral("rateTimer.cancel"), QStringLiteral("speedTest.make"),
                                  QStringLiteral("speedTest.cancel"), QStringLiteral("sleepMonitor.stop")}));
}

TEST_F(SkyletTest, TheFirstTitleShowsTheCheckingState) {
    launch();
    EXPECT_EQ(title(), QStringLiteral("Checking…"));
    EXPECT_TRUE(application.shown->visible);
    EXPECT_EQ(application.shown->autosaveName, QStringLiteral("Skylet"));
}

TEST_F(SkyletTest, TheToolTipOfTheItemSaysWhatTheNumberMeans) {
    launch();
    EXPECT_EQ(application.shown->display.toolTip, QStringLiteral("HTTPS response time, not download speed"));
}

TEST_F(SkyletTest, TheMenuHasItsEntriesInOrderWithTheirKeys) {
    launch();
    QStringList titles;
    QStringList keys;
    for (const auto& entry : application.shown->menu) {
        titles += entry->isSeparator() ? QStringLiteral("---") : entry->title();
        keys += entry->keyEquivalent();
    }
    EXPECT_EQ(
        titles,
        (QStringList{QStringLiteral("Checking connection..."), QStringLiteral("Live traffic:  ↓ 0b/s   ↑ 0b/s"),
                     QStringLiteral("Last speed test:  not run yet"), QStringLiteral("---"),
                     QStringLiteral("Run Speed Test…  (up to ~60 MB of data)"), QStringLiteral("Check Connection Now"),
                     QStringLiteral("---"), QStringLiteral("Show Live Traffic in Menu Bar   (e.g. ↓12.4M ↑210K)"),
                     QStringLiteral("Pause Automatic Checks"), QStringLiteral("Launch at Login"), QStringLiteral("---"),
                     QStringLiteral("About Skylet"), QStringLiteral("Quit")}));
    EXPECT_EQ(keys.join(u','), QStringLiteral(",,,,t,r,,,,,,,q"));
}

TEST_F(SkyletTest, TheInformationLinesAreDisabledAndTheCommandsFollowTheState) {
    launch();
    for (const int line : {status, rate, speed}) {
        EXPECT_FALSE(item(line)->isEnabled());
    }
    EXPECT_FALSE(item(runTest)->isEnabled());
    EXPECT_TRUE(item(check)->isEnabled());
    goOnline();
    EXPECT_TRUE(item(runTest)->isEnabled());
    for (const int line : {status, rate, speed}) {
        EXPECT_FALSE(item(line)->isEnabled());
    }
}

TEST_F(SkyletTest, OnlyTheAboutItemHasAnImage) {
    launch();
    for (int index = 0; index < static_cast<int>(application.shown->menu.size()); ++index) {
        EXPECT_EQ(item(index)->applicationIconSize(), index == about ? 16 : 0);
    }
}

TEST_F(SkyletTest, TheLoginItemIsNotCheckedWithoutAnAgent) {
    launch();
    EXPECT_TRUE(item(login)->isCheckable());
    EXPECT_FALSE(item(login)->isChecked());
}

TEST_F(SkyletTest, TheLoginItemIsCheckedAtStartWhenTheAgentWasThere) {
    launchAgent.present = true;
    launch();
    EXPECT_TRUE(item(login)->isChecked());
}

TEST_F(SkyletTest, TheLoginItemFollowsAnAgentThatIsAnsweredLater) {
    launchAgent.canToggle = false;
    launch();
    item(login)->trigger();
    EXPECT_FALSE(item(login)->isChecked());
    launchAgent.present = true;
    launchAgent.onChange();
    EXPECT_TRUE(item(login)->isChecked());
}

TEST_F(SkyletTest, TheQuitItemTerminatesTheApplication) {
    launch();
    item(quit)->trigger();
    EXPECT_THAT(calls, ElementsAre(QStringLiteral("application.terminate")));
}

TEST_F(SkyletTest, TrafficIsShownAtTheFirstLaunch) {
    EXPECT_TRUE(skylet->displayState().showTraffic);
}

TEST_F(SkyletTest, TheStoredChoiceOfTrafficIsRead) {
    defaults.stored[QStringLiteral("showTraffic")] = false;
    makeSkylet();
    EXPECT_FALSE(skylet->displayState().showTraffic);
}

TEST_F(SkyletTest, LogsTheStartWithDatesInUtc) {
    launch();
    EXPECT_THAT(log.lines, ElementsAre(QStringLiteral("2024-03-05 14:07:09 +0000 didFinishLaunching\n"),
                                       QStringLiteral("2024-03-05 14:07:09 +0000 item created button=fake button "
                                                      "window=no window\n")));
}

TEST_F(SkyletTest, LogsTheDateInUtcAlsoWhenTheClockSpeaksAnotherZone) {
    clock.date = clock.date.toOffsetFromUtc(2 * 3600);
    launch();
    EXPECT_TRUE(log.lines.front().startsWith(QStringLiteral("2024-03-05 14:07:09 +0000 ")));
}

TEST_F(SkyletTest, EachConnectionStateBecomesWhatIsShown) {
    launch();
    goOnline(1234);
    EXPECT_EQ(skylet->displayState().online, true);
    EXPECT_EQ(skylet->displayState().latencyMs, 1234);
    EXPECT_EQ(title(), QStringLiteral("1.2 s  Very high delay  ↓0 ↑0"));
    pathMonitor.report(false);
    EXPECT_EQ(skylet->displayState().online, false);
    EXPECT_EQ(skylet->displayState().latencyMs, 0);
    EXPECT_EQ(title(), QStringLiteral("Offline"));
    pathMonitor.report(true);
    EXPECT_EQ(skylet->displayState().online, std::nullopt);
    EXPECT_EQ(title(), QStringLiteral("Checking…"));
    skylet->togglePause();
    EXPECT_EQ(skylet->displayState().online, std::nullopt);
    EXPECT_EQ(title(), QStringLiteral("Paused"));
    EXPECT_EQ(item(status)->title(), QStringLiteral("Automatic checks paused"));
}

TEST_F(SkyletTest, WithoutAnAnswerThereIsNoLatency) {
    launch();
    goOnline(1234);
    skylet->checkNow();
    ASSERT_EQ(skylet->displayState().online, std::nullopt);
    EXPECT_EQ(skylet->displayState().latencyMs, 0) << "checking";
    goOnline(1234);
    skylet->togglePause();
    ASSERT_EQ(skylet->displayState().online, std::nullopt);
    EXPECT_EQ(skylet->displayState().latencyMs, 0) << "paused";
}

TEST_F(SkyletTest, ThePauseCommandTogglesChecksAndItsCheckMark) {
    launch();
    goOnline();
    item(pause)->trigger();
    EXPECT_TRUE(item(pause)->isChecked());
    EXPECT_FALSE(item(check)->isEnabled());
    EXPECT_THAT(schedule.pending(), IsEmpty());
    item(pause)->trigger();
    EXPECT_FALSE(item(pause)->isChecked());
    EXPECT_EQ(calls.count(QStringLiteral("probe")), 1);
    EXPECT_EQ(title(), QStringLiteral("Checking…"));
}

TEST_F(SkyletTest, ThePauseCommandDrawsEvenWhenTheEngineHasNothingToReport) {
    launch();
    skylet->togglePause();
    sleepMonitor.sleep();
    calls.clear();
    skylet->togglePause();
    EXPECT_THAT(calls, ElementsAre(QStringLiteral("item.setDisplay")));
    EXPECT_EQ(title(), QStringLiteral("Checking…"));
    EXPECT_FALSE(item(pause)->isChecked());
}

TEST_F(SkyletTest, TheCheckCommandChecksAtOnceAndDrawsNothingItself) {
    launch();
    goOnline();
    item(check)->trigger();
    EXPECT_EQ(calls, (QStringList{QStringLiteral("engineTimer.cancel"), QStringLiteral("item.setDisplay"),
                                  QStringLiteral("probe")}));
}

TEST_F(SkyletTest, CheckNowWhilePausedStillReachesTheEngine) {
    launch();
    skylet->togglePause();
    // The engine alone decides; this one was told behind the application's back that it may go on.
    engine->setPaused(false);
    goOnline();
    ASSERT_TRUE(skylet->displayState().paused);
    skylet->checkNow();
    EXPECT_EQ(calls.count(QStringLiteral("probe")), 1);
}

TEST_F(SkyletTest, CheckNowWhilePausedIsIgnoredByTheEngine) {
    launch();
    skylet->togglePause();
    calls.clear();
    skylet->checkNow();
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(SkyletTest, TheFirstSampleOnlySetsTheBaseline) {
    counters.set(1'000'000, 1'000'000);
    launch();
    goOnline();
    EXPECT_EQ(skylet->displayState().downRate, 0);
    sample(1'000'000 + 3'100'000, 1'000'000 + 52'500);
    EXPECT_EQ(skylet->displayState().downRate, 1'550'000);
    EXPECT_EQ(skylet->displayState().upRate, 26'250);
    EXPECT_EQ(title(), QStringLiteral("87 ms  Responsive  ↓12.4M ↑210K"));
    EXPECT_EQ(item(rate)->title(), QStringLiteral("Live traffic:  ↓ 12.4Mb/s   ↑ 210Kb/s"));
}

TEST_F(SkyletTest, WithoutAnyPortTheRatesAreZero) {
    counters.set(1000, 1000);
    launch();
    sample(5000, 3000);
    ASSERT_EQ(item(rate)->title(), QStringLiteral("Live traffic:  ↓ 16Kb/s   ↑ 8Kb/s"));
    counters.interfaces = std::vector<InterfaceCounter>{};
    clock.uptime += 2s;
    rateTimers.pending().front()->action();
    EXPECT_EQ(item(rate)->title(), QStringLiteral("Live traffic:  ↓ 0b/s   ↑ 0b/s"));
}

TEST_F(SkyletTest, AFailedListingOfThePortsCountsAsTotalsOfZero) {
    counters.set(5000, 3000);
    launch();
    sample(9000, 5000);
    counters.interfaces.reset();
    clock.uptime += 2s;
    rateTimers.pending().front()->action();
    EXPECT_EQ(skylet->displayState().downRate, 0);
    EXPECT_EQ(skylet->displayState().upRate, 0);
    sample(4000, 2000);
    EXPECT_EQ(skylet->displayState().downRate, 2000);
    EXPECT_EQ(skylet->displayState().upRate, 1000);
}

TEST_F(SkyletTest, ATotalThatWentDownShowsZeroForThatIntervalAndIsTheNewBaseline) {
    counters.set(1000, 1000);
    launch();
    sample(5000, 3000);
    sample(4000, 9000);
    EXPECT_EQ(skylet->displayState().downRate, 0);
    EXPECT_EQ(skylet->displayState().upRate, 0);
    sample(4200, 9000);
    EXPECT_EQ(skylet->displayState().downRate, 100);
}

TEST_F(SkyletTest, WithoutElapsedTimeTheRatesStayAndTheBaselineMovesOn) {
    counters.set(0, 0);
    launch();
    sample(4000, 0);
    counters.set(8000, 0);
    rateTimers.pending().front()->action();
    EXPECT_EQ(skylet->displayState().downRate, 2000);
    sample(8000, 0);
    EXPECT_EQ(skylet->displayState().downRate, 0);
}

TEST_F(SkyletTest, TheRateTimerRunsEveryTwoSecondsWithATenthOfSlack) {
    launch();
    ASSERT_EQ(rateTimers.timers().size(), 1U);
    EXPECT_EQ(rateTimers.timers().front()->interval, 2s);
    EXPECT_THAT(tolerances, ElementsAre(Seconds(0.2)));
}

TEST_F(SkyletTest, APathChangeForgetsTheTrafficBeforeTheEngineIsTold) {
    counters.set(1000, 1000);
    launch();
    sample(5000, 3000);
    ASSERT_NE(skylet->displayState().downRate, 0);
    pathMonitor.report(false);
    EXPECT_EQ(item(rate)->title(), QStringLiteral("Live traffic:  ↓ 0b/s   ↑ 0b/s"))
        << "the picture that the engine's report draws has the rates at zero";
    sample(900'000, 900'000);
    EXPECT_EQ(skylet->displayState().downRate, 0) << "the next sample is only a baseline";
    sample(900'200, 900'000);
    EXPECT_EQ(skylet->displayState().downRate, 100);
}

TEST_F(SkyletTest, APathChangeThatTheEngineKeepsToItselfDrawsNothing) {
    counters.set(1000, 1000);
    launch();
    sample(5000, 3000);
    skylet->togglePause();
    calls.clear();
    pathMonitor.report(false);
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_EQ(skylet->displayState().downRate, 0);
}

TEST_F(SkyletTest, AskedTwiceTheTrafficCommandRestoresTheChoiceAndTheTitle) {
    launch();
    goOnline();
    const auto before = title();
    item(traffic)->trigger();
    EXPECT_EQ(defaults.stored.value(QStringLiteral("showTraffic"), true), false);
    EXPECT_FALSE(item(traffic)->isChecked());
    EXPECT_EQ(title(), QStringLiteral("87 ms  Responsive"));
    item(traffic)->trigger();
    EXPECT_EQ(defaults.stored.value(QStringLiteral("showTraffic"), false), true);
    EXPECT_TRUE(item(traffic)->isChecked());
    EXPECT_EQ(title(), before);
}

TEST_F(SkyletTest, SleepTellsTheEngineAndStopsTheSamplesWithoutDrawingItself) {
    counters.set(1000, 1000);
    launch();
    goOnline();
    sample(5000, 3000);
    calls.clear();
    sleepMonitor.sleep();
    EXPECT_EQ(calls, (QStringList{QStringLiteral("engineTimer.cancel"), QStringLiteral("item.setDisplay"),
                                  QStringLiteral("rateTimer.cancel"), QStringLiteral("speedTest.make"),
                                  QStringLiteral("speedTest.cancel")}));
    EXPECT_EQ(skylet->displayState().downRate, 0);
    EXPECT_THAT(rateTimers.pending(), IsEmpty());
}

TEST_F(SkyletTest, WakeChecksAtOnceAndStartsTheSamplesAfresh) {
    counters.set(1000, 1000);
    launch();
    goOnline();
    sleepMonitor.sleep();
    calls.clear();
    counters.set(9'000'000, 9'000'000);
    sleepMonitor.wake();
    EXPECT_EQ(calls, (QStringList{QStringLiteral("item.setDisplay"), QStringLiteral("probe"),
                                  QStringLiteral("rateTimer.cancel"), QStringLiteral("rateTimer.start"),
                                  QStringLiteral("interfaceCounters.read"), QStringLiteral("item.setDisplay")}));
    EXPECT_EQ(skylet->displayState().downRate, 0) << "what moved during the sleep is no rate";
    sample(9'000'200, 9'000'000);
    EXPECT_EQ(skylet->displayState().downRate, 100);
}

TEST_F(SkyletTest, AWakeWithoutASleepBeforeItForgetsTheTrafficToo) {
    counters.set(1000, 1000);
    launch();
    sample(5000, 3000);
    ASSERT_NE(skylet->displayState().downRate, 0);
    counters.set(9'000'000, 9'000'000);
    clock.uptime += 2s;
    sleepMonitor.wake();
    EXPECT_EQ(skylet->displayState().downRate, 0);
    EXPECT_EQ(skylet->displayState().upRate, 0);
}

TEST_F(SkyletTest, TwoWakesInARowLeaveOneRateTimer) {
    launch();
    sleepMonitor.wake();
    sleepMonitor.wake();
    EXPECT_EQ(rateTimers.pending().size(), 1U);
    EXPECT_EQ(rateTimers.timers().size(), 3U);
}

TEST_F(SkyletTest, HandlersThatRunAfterItIsGoneDoNothing) {
    launch();
    goOnline();
    const auto menu = application.shown->menu;
    skylet.reset();
    calls.clear();
    pathMonitor.report(true);
    sleepMonitor.sleep();
    sleepMonitor.wake();
    rateTimers.timers().front()->action();
    schedule.timers().front()->action();
    for (const auto& entry : menu) {
        entry->trigger();
    }
    EXPECT_THAT(calls, IsEmpty());
}

using SkyletDeathTest = SkyletTest;

TEST_F(SkyletDeathTest, RenderingBeforeTheStartUpStopsTheProgram) {
    EXPECT_DEATH(skylet->render(), "before the start-up");
}

TEST_F(SkyletDeathTest, AMissingApplicationIconStopsTheProgram) {
    application.hasIcon = false;
    EXPECT_DEATH(skylet->applicationDidFinishLaunching(), "icon is missing");
}

} // namespace
} // namespace skylet
