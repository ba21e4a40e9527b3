#include "SkyletFixture.h"

#include <gmock/gmock.h>

#include <optional>

namespace skylet {
namespace {

using testing::IsEmpty;

/// How the application follows a speed test.
class SkyletSpeedTestTest : public SkyletTest {
  protected:
    SkyletSpeedTestTest() {
        clock.date = QDateTime(QDate(2024, 3, 5), QTime(14, 5));
        launch();
    }

    void goOnlineAndTest() {
        goOnline(38);
        item(runTest)->trigger();
        calls.clear();
    }

    QString lastSpeed() const { return item(speed)->title(); }
};

TEST_F(SkyletSpeedTestTest, NoneIsMadeBeforeItIsNeeded) {
    goOnline();
    EXPECT_EQ(speedTests.last, nullptr);
    EXPECT_EQ(lastSpeed(), QStringLiteral("Last speed test:  not run yet"));
}

TEST_F(SkyletSpeedTestTest, TheCommandHandsTheLatencyOverAndShowsTheWindow) {
    goOnline(38);
    item(runTest)->trigger();
    ASSERT_NE(speedTests.last, nullptr);
    EXPECT_EQ(speedTests.last->latencyMs, 38);
    EXPECT_EQ(calls.filter(QStringLiteral("speedTest")),
              (QStringList{QStringLiteral("speedTest.make"), QStringLiteral("speedTest.show")}));
}

TEST_F(SkyletSpeedTestTest, ItIsMadeOnceForTheWholeRun) {
    goOnlineAndTest();
    speedTests.last->finish(48.2, 11);
    skylet->runSpeedTest();
    sleepMonitor.sleep();
    EXPECT_FALSE(calls.contains(QStringLiteral("speedTest.make")));
}

TEST_F(SkyletSpeedTestTest, TheCommandDoesNothingWhileCheckingOfflineOrPaused) {
    skylet->runSpeedTest();
    pathMonitor.report(false);
    skylet->runSpeedTest();
    pathMonitor.report(true);
    goOnline();
    skylet->togglePause();
    skylet->runSpeedTest();
    EXPECT_EQ(speedTests.last, nullptr);
}

TEST_F(SkyletSpeedTestTest, TheCommandDoesNothingWhilePausedAlsoWithAnAnswerThatTheEngineHad) {
    skylet->togglePause();
    // This engine was told behind the application's back that it may go on.
    engine->setPaused(false);
    goOnline();
    skylet->runSpeedTest();
    EXPECT_EQ(speedTests.last, nullptr);
}

TEST_F(SkyletSpeedTestTest, TheCommandDoesNothingWhileATestRuns) {
    goOnlineAndTest();
    skylet->runSpeedTest();
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_FALSE(item(runTest)->isEnabled());
}

TEST_F(SkyletSpeedTestTest, ARunningTestIsShownWithoutAnEnd) {
    goOnlineAndTest();
    EXPECT_TRUE(skylet->displayState().testing);
    EXPECT_EQ(lastSpeed(), QStringLiteral("Last speed test:  running..."));
    EXPECT_EQ(skylet->displayState().banner, QStringLiteral("Speed test running…"));
    EXPECT_TRUE(title().contains(QStringLiteral("Speed test running…")));
    EXPECT_THAT(bannerTimers.timers(), IsEmpty());
}

TEST_F(SkyletSpeedTestTest, AResultIsKeptInTheMenuAndStandsInTheTitleForTenSeconds) {
    goOnlineAndTest();
    speedTests.last->finish(48.2, 11);
    EXPECT_FALSE(skylet->displayState().testing);
    EXPECT_TRUE(item(runTest)->isEnabled());
    EXPECT_EQ(lastSpeed(), QStringLiteral("Last speed test:  Download 48.2 Mbps  ·  Upload 11.0 Mbps   (14:05)"));
    EXPECT_EQ(skylet->displayState().banner, QStringLiteral("↓ 48.2 Mbps  ↑ 11.0 Mbps"));
    EXPECT_TRUE(title().contains(QStringLiteral("↓ 48.2 Mbps  ↑ 11.0 Mbps")));
    ASSERT_EQ(bannerTimers.pending().size(), 1U);
    EXPECT_EQ(bannerTimers.pending().front()->interval, Seconds(10));
    bannerTimers.fire();
    EXPECT_EQ(skylet->displayState().banner, std::nullopt);
    EXPECT_TRUE(title().contains(QStringLiteral("38 ms"))) << "drawn anew at once";
    EXPECT_EQ(lastSpeed(), QStringLiteral("Last speed test:  Download 48.2 Mbps  ·  Upload 11.0 Mbps   (14:05)"));
}

TEST_F(SkyletSpeedTestTest, TheTimeOfAResultIsTheLocalOne) {
    clock.date = QDateTime(QDate(2024, 3, 5), QTime(23, 59)).toUTC();
    goOnlineAndTest();
    speedTests.last->finish(1, 1);
    EXPECT_TRUE(lastSpeed().endsWith(QStringLiteral("   (23:59)")));
}

TEST_F(SkyletSpeedTestTest, AFailedPhaseReadsFailedBesideTheOther) {
    goOnlineAndTest();
    speedTests.last->finish(std::nullopt, 11);
    EXPECT_EQ(lastSpeed(), QStringLiteral("Last speed test:  Download failed  ·  Upload 11.0 Mbps   (14:05)"));
    EXPECT_EQ(skylet->displayState().banner, QStringLiteral("↓ failed  ↑ 11.0 Mbps"));
}

TEST_F(SkyletSpeedTestTest, TwoFailedPhasesReadFailedTwiceForTenSeconds) {
    goOnlineAndTest();
    speedTests.last->finish(std::nullopt, std::nullopt);
    EXPECT_EQ(skylet->displayState().lastSpeed, QStringLiteral("Download failed  ·  Upload failed   (14:05)"));
    EXPECT_EQ(skylet->displayState().banner, QStringLiteral("↓ failed  ↑ failed"));
    EXPECT_EQ(bannerTimers.pending().front()->interval, Seconds(10));
}

TEST_F(SkyletSpeedTestTest, ACancelledTestLosesItsBannerAtOnce) {
    goOnlineAndTest();
    speedTests.last->cancel();
    EXPECT_FALSE(skylet->displayState().testing);
    EXPECT_EQ(lastSpeed(), QStringLiteral("Last speed test:  Cancelled"));
    EXPECT_EQ(skylet->displayState().banner, std::nullopt);
    EXPECT_TRUE(title().contains(QStringLiteral("38 ms")));
}

TEST_F(SkyletSpeedTestTest, ACancelledTestLeavesNoTimerOfAnEarlierBanner) {
    goOnlineAndTest();
    speedTests.last->finish(48.2, 11);
    ASSERT_EQ(bannerTimers.pending().size(), 1U);
    speedTests.last->onCancelled();
    EXPECT_THAT(bannerTimers.pending(), IsEmpty());
}

TEST_F(SkyletSpeedTestTest, AResultWhileOfflineIsShownForTheRestOfItsTimeOnceBackOnline) {
    goOnlineAndTest();
    pathMonitor.report(false);
    speedTests.last->finish(48.2, 11);
    EXPECT_EQ(title(), QStringLiteral("Offline"));
    pathMonitor.report(true);
    goOnline();
    EXPECT_TRUE(title().contains(QStringLiteral("↓ 48.2 Mbps  ↑ 11.0 Mbps")));
    bannerTimers.fire();
    EXPECT_TRUE(title().contains(QStringLiteral("87 ms")));
}

TEST_F(SkyletSpeedTestTest, AResultWhilePausedIsKeptForTheTitleButNotShownYet) {
    goOnlineAndTest();
    item(pause)->trigger();
    speedTests.last->finish(48.2, 11);
    EXPECT_EQ(title(), QStringLiteral("Paused"));
    EXPECT_EQ(lastSpeed(), QStringLiteral("Last speed test:  Download 48.2 Mbps  ·  Upload 11.0 Mbps   (14:05)"));
    item(pause)->trigger();
    goOnline();
    EXPECT_TRUE(title().contains(QStringLiteral("↓ 48.2 Mbps  ↑ 11.0 Mbps")));
}

TEST_F(SkyletSpeedTestTest, ASecondResultWithinTenSecondsLastsItsFullTime) {
    goOnlineAndTest();
    speedTests.last->finish(48.2, 11);
    const auto first = bannerTimers.pending().front();
    speedTests.last->show();
    EXPECT_TRUE(first->cancelled);
    speedTests.last->finish(50, 12);
    ASSERT_EQ(bannerTimers.pending().size(), 1U);
    EXPECT_NE(bannerTimers.pending().front(), first);
    EXPECT_EQ(skylet->displayState().banner, QStringLiteral("↓ 50.0 Mbps  ↑ 12.0 Mbps"));
}

TEST_F(SkyletSpeedTestTest, ARunAgainFromTheWindowIsFollowedWithoutTheGuardAndWithoutANewLatency) {
    goOnlineAndTest();
    speedTests.last->finish(48.2, 11);
    pathMonitor.report(false);
    speedTests.last->latencyMs = 7;
    speedTests.last->show();
    EXPECT_TRUE(skylet->displayState().testing);
    EXPECT_EQ(speedTests.last->latencyMs, 7);
}

TEST_F(SkyletSpeedTestTest, SleepCancelsARunningTest) {
    goOnlineAndTest();
    sleepMonitor.sleep();
    EXPECT_EQ(lastSpeed(), QStringLiteral("Last speed test:  Cancelled"));
    EXPECT_EQ(skylet->displayState().banner, std::nullopt);
}

TEST_F(SkyletSpeedTestTest, SleepWithoutATestChangesNothing) {
    goOnline();
    sleepMonitor.sleep();
    EXPECT_EQ(lastSpeed(), QStringLiteral("Last speed test:  not run yet"));
}

TEST_F(SkyletSpeedTestTest, TheShutDownStopsTheBannerTimerAndThenTheTest) {
    goOnlineAndTest();
    speedTests.last->finish(48.2, 11);
    calls.clear();
    skylet->applicationWillTerminate();
    EXPECT_EQ(calls, (QStringList{QStringLiteral("engineTimer.cancel"), QStringLiteral("pathMonitor.cancel"),
                                  QStringLiteral("rateTimer.cancel"), QStringLiteral("bannerTimer.cancel"),
                                  QStringLiteral("speedTest.cancel"), QStringLiteral("sleepMonitor.stop")}));
}

TEST_F(SkyletSpeedTestTest, ABannerTimerOfAnApplicationThatIsGoneDoesNothing) {
    goOnlineAndTest();
    speedTests.last->finish(48.2, 11);
    skylet.reset();
    calls.clear();
    bannerTimers.fire();
    EXPECT_THAT(calls, IsEmpty());
}

} // namespace
} // namespace skylet
