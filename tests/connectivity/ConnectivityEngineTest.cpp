#include "connectivity/ConnectivityEngine.h"

#include "connectivity/StatePrinting.h"
#include "support/FakeProbe.h"
#include "support/FakeSchedule.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <vector>

namespace skylet {
namespace {

using test::FakeProbe;
using test::FakeSchedule;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

const auto checking = ConnectionState::checking();
const auto offline = ConnectionState::offline();
const auto paused = ConnectionState::paused();
constexpr auto online = ConnectionState::online;

const QUrl first(QStringLiteral("https://first.example/generate_204"));
const QUrl second(QStringLiteral("https://second.example/generate_204"));

class ConnectivityEngineTest : public testing::Test {
  protected:
    ConnectivityEngineTest() { makeEngine(); }

    void makeEngine() {
        engine = std::make_unique<ConnectivityEngine>(probe, std::vector<QUrl>{first, second}, schedule);
        engine->onChange = [this](const ConnectionState& state) { reported.push_back(state); };
    }

    /// The states reported since the last call.
    std::vector<ConnectionState> takeReports() { return std::exchange(reported, {}); }

    std::size_t probes() const { return probe->calls.size(); }

    /// Lets every endpoint of the latest cycle fail.
    void failCycle() {
        const auto last = probes();
        probe->complete(last - 2, {});
        probe->complete(last - 1, {});
    }

    void goOnline(std::int64_t latency = 20) {
        engine->start();
        probe->complete(probes() - 2, latency);
        takeReports();
    }

    std::shared_ptr<FakeProbe> probe = std::make_shared<FakeProbe>();
    FakeSchedule schedule;
    std::unique_ptr<ConnectivityEngine> engine;
    std::vector<ConnectionState> reported;
};

TEST_F(ConnectivityEngineTest, ConstructionStartsNothingAndTheStateIsChecking) {
    EXPECT_EQ(engine->state(), checking);
    EXPECT_EQ(probes(), 0U);
    EXPECT_THAT(schedule.timers(), IsEmpty());
    EXPECT_THAT(reported, IsEmpty());
}

TEST_F(ConnectivityEngineTest, StartReportsCheckingAndProbesTheEndpointsInListOrder) {
    engine->start();
    EXPECT_THAT(reported, ElementsAre(checking));
    ASSERT_EQ(probes(), 2U);
    EXPECT_EQ(probe->calls[0]->url, first);
    EXPECT_EQ(probe->calls[1]->url, second);
}

TEST_F(ConnectivityEngineTest, WhenTheFirstEndpointFailsAndTheSecondSucceedsItIsOnlineWithTheSecondsLatency) {
    engine->start();
    takeReports();
    probe->complete(0, {});
    EXPECT_THAT(reported, IsEmpty());
    EXPECT_THAT(schedule.pending(), IsEmpty());
    probe->complete(1, 87);
    EXPECT_THAT(reported, ElementsAre(online(87)));
    EXPECT_EQ(engine->state(), online(87));
}

TEST_F(ConnectivityEngineTest, TheFirstSuccessDecidesAtOnceCancelsTheOtherProbeAndItsLateResultIsIgnored) {
    engine->start();
    takeReports();
    probe->complete(0, 20);
    EXPECT_THAT(takeReports(), ElementsAre(online(20)));
    EXPECT_EQ(probe->calls[1]->cancellations, 1);
    probe->complete(1, 5);
    EXPECT_THAT(reported, IsEmpty());
    EXPECT_EQ(engine->state(), online(20));
    EXPECT_EQ(schedule.pending().size(), 1U);
}

TEST_F(ConnectivityEngineTest, FiveSecondsAfterASuccessANormalCycleRunsWithoutANewReport) {
    goOnline();
    ASSERT_EQ(schedule.pending().size(), 1U);
    EXPECT_EQ(schedule.pending().front()->interval, 5s);
    schedule.fire();
    EXPECT_EQ(probes(), 4U);
    EXPECT_THAT(reported, IsEmpty());
    EXPECT_EQ(engine->state(), online(20));
    failCycle();
    EXPECT_THAT(reported, ElementsAre(checking)) << "a failure of a normal cycle is not yet offline";
}

TEST_F(ConnectivityEngineTest, EverySuccessIsReportedAlsoWithTheSameLatency) {
    goOnline(20);
    schedule.fire();
    probe->complete(2, 20);
    EXPECT_THAT(reported, ElementsAre(online(20)));
}

TEST_F(ConnectivityEngineTest, TwoFailedCyclesInARowMeanOffline) {
    engine->start();
    takeReports();
    failCycle();
    EXPECT_THAT(takeReports(), ElementsAre(checking));
    ASSERT_EQ(schedule.pending().size(), 1U);
    EXPECT_EQ(schedule.pending().front()->interval, 0.5s);
    schedule.fire();
    EXPECT_EQ(probes(), 4U);
    EXPECT_THAT(reported, IsEmpty());
    failCycle();
    EXPECT_THAT(takeReports(), ElementsAre(offline));
    ASSERT_EQ(schedule.pending().size(), 1U);
    EXPECT_EQ(schedule.pending().front()->interval, 3s);
    schedule.fire();
    EXPECT_EQ(probes(), 6U);
    EXPECT_THAT(reported, IsEmpty());
}

TEST_F(ConnectivityEngineTest, WhileTheInternetStaysAwayOfflineAndCheckingAlternate) {
    engine->start();
    takeReports();
    for (int round = 0; round < 3; ++round) {
        failCycle();
        schedule.fire();
        failCycle();
        schedule.fire();
    }
    EXPECT_THAT(reported, ElementsAre(checking, offline, checking, offline, checking, offline));
}

TEST_F(ConnectivityEngineTest, ASuccessOfTheConfirmingCycleIsOnline) {
    engine->start();
    failCycle();
    schedule.fire();
    takeReports();
    probe->complete(3, 150);
    EXPECT_THAT(reported, ElementsAre(online(150)));
    EXPECT_EQ(schedule.pending().front()->interval, 5s);
}

TEST_F(ConnectivityEngineTest, CheckNowDuringACycleDoesNothing) {
    engine->start();
    takeReports();
    engine->checkNow();
    EXPECT_THAT(reported, IsEmpty());
    EXPECT_EQ(probes(), 2U);
}

TEST_F(ConnectivityEngineTest, CheckNowDuringARetryDelayCancelsItAndStartsANormalCycle) {
    engine->start();
    failCycle();
    takeReports();
    const auto delay = schedule.pending().front();
    engine->checkNow();
    EXPECT_TRUE(delay->cancelled);
    EXPECT_THAT(takeReports(), ElementsAre(checking));
    EXPECT_EQ(probes(), 4U);
    failCycle();
    EXPECT_THAT(reported, ElementsAre(checking)) << "the fresh cycle is a normal one, not the confirming one";
}

TEST_F(ConnectivityEngineTest, CheckNowAfterTheOfflineDelayBeganStartsANormalCycle) {
    engine->start();
    failCycle();
    schedule.fire();
    failCycle();
    takeReports();
    engine->checkNow();
    EXPECT_THAT(takeReports(), ElementsAre(checking));
    EXPECT_THAT(schedule.pending(), IsEmpty());
    failCycle();
    EXPECT_THAT(reported, ElementsAre(checking));
}

TEST_F(ConnectivityEngineTest, CheckNowWithoutAPathReportsOfflineAgainAndSendsNoProbe) {
    engine->pathChanged(false);
    takeReports();
    engine->checkNow();
    EXPECT_THAT(reported, ElementsAre(offline));
    EXPECT_EQ(probes(), 0U);
    EXPECT_THAT(schedule.pending(), IsEmpty());
}

TEST_F(ConnectivityEngineTest, ALostPathIsOfflineAtOnceAndEndsTheCycleAndItsTimer) {
    engine->start();
    takeReports();
    engine->pathChanged(false);
    EXPECT_THAT(takeReports(), ElementsAre(offline));
    EXPECT_EQ(probe->calls[0]->cancellations, 1);
    EXPECT_EQ(probe->calls[1]->cancellations, 1);
    EXPECT_THAT(schedule.pending(), IsEmpty());
    probe->complete(0, 20);
    EXPECT_THAT(reported, IsEmpty());
}

TEST_F(ConnectivityEngineTest, ALostPathWhileOnlineCancelsThePendingTimer) {
    goOnline();
    engine->pathChanged(false);
    EXPECT_THAT(reported, ElementsAre(offline));
    EXPECT_THAT(schedule.pending(), IsEmpty());
}

TEST_F(ConnectivityEngineTest, EveryReportOfAnAvailablePathRestartsTheCheckAlsoWhenNothingChanged) {
    goOnline();
    engine->pathChanged(true);
    EXPECT_THAT(takeReports(), ElementsAre(checking));
    EXPECT_EQ(probes(), 4U);
    EXPECT_THAT(schedule.pending(), IsEmpty());
    engine->pathChanged(true);
    EXPECT_THAT(takeReports(), ElementsAre(checking));
    EXPECT_EQ(probes(), 6U);
    EXPECT_EQ(probe->calls[2]->cancellations, 1);
    EXPECT_EQ(probe->calls[3]->cancellations, 1);
}

TEST_F(ConnectivityEngineTest, PauseReportsPausedAndStopsTheCycle) {
    engine->start();
    takeReports();
    engine->setPaused(true);
    EXPECT_THAT(reported, ElementsAre(paused));
    EXPECT_EQ(probe->calls[0]->cancellations, 1);
    EXPECT_THAT(schedule.pending(), IsEmpty());
}

TEST_F(ConnectivityEngineTest, WhilePausedCheckNowDoesNothing) {
    engine->setPaused(true);
    takeReports();
    engine->checkNow();
    EXPECT_THAT(reported, IsEmpty());
    EXPECT_EQ(probes(), 0U);
}

TEST_F(ConnectivityEngineTest, WhilePausedAPathReportIsOnlyRecorded) {
    engine->setPaused(true);
    takeReports();
    engine->pathChanged(false);
    EXPECT_THAT(reported, IsEmpty());
    engine->setPaused(false);
    EXPECT_THAT(reported, ElementsAre(offline));
    EXPECT_EQ(probes(), 0U);
}

TEST_F(ConnectivityEngineTest, ResumingChecksAtOnce) {
    goOnline();
    engine->setPaused(true);
    takeReports();
    engine->setPaused(false);
    EXPECT_THAT(reported, ElementsAre(checking));
    EXPECT_EQ(probes(), 4U);
}

TEST_F(ConnectivityEngineTest, ResumingWhileAsleepReportsNothingUntilTheWake) {
    engine->setPaused(true);
    engine->sleep();
    takeReports();
    engine->setPaused(false);
    EXPECT_EQ(engine->state(), paused);
    EXPECT_THAT(reported, IsEmpty());
    EXPECT_EQ(probes(), 0U);
    engine->wake();
    EXPECT_THAT(reported, ElementsAre(checking));
    EXPECT_EQ(probes(), 2U);
}

TEST_F(ConnectivityEngineTest, PausingWhileAsleepIsReported) {
    engine->sleep();
    takeReports();
    engine->setPaused(true);
    EXPECT_THAT(reported, ElementsAre(paused));
}

TEST_F(ConnectivityEngineTest, SleepReportsCheckingAndEndsAllWork) {
    goOnline();
    engine->sleep();
    EXPECT_THAT(takeReports(), ElementsAre(checking));
    EXPECT_THAT(schedule.pending(), IsEmpty());
    engine->checkNow();
    engine->pathChanged(true);
    EXPECT_THAT(reported, IsEmpty());
    EXPECT_EQ(probes(), 2U);
}

TEST_F(ConnectivityEngineTest, SleepInTheMiddleOfACycleEndsItsProbesAndTheirLateAnswersAreIgnored) {
    engine->start();
    takeReports();
    engine->sleep();
    EXPECT_EQ(probe->calls[0]->cancellations, 1);
    EXPECT_EQ(probe->calls[1]->cancellations, 1);
    probe->complete(0, 20);
    EXPECT_THAT(reported, ElementsAre(checking));
    EXPECT_THAT(schedule.pending(), IsEmpty());
}

TEST_F(ConnectivityEngineTest, SleepWhilePausedReportsNothing) {
    engine->setPaused(true);
    takeReports();
    engine->sleep();
    EXPECT_THAT(reported, IsEmpty());
    EXPECT_EQ(engine->state(), paused);
}

TEST_F(ConnectivityEngineTest, WakeWhilePausedReportsNothingAndStartsNoCycle) {
    engine->setPaused(true);
    engine->sleep();
    takeReports();
    engine->wake();
    EXPECT_THAT(reported, IsEmpty());
    EXPECT_EQ(probes(), 0U);
}

TEST_F(ConnectivityEngineTest, WakeForgetsThatThePathWasUnavailableAndProbes) {
    engine->pathChanged(false);
    engine->sleep();
    takeReports();
    engine->wake();
    EXPECT_THAT(reported, ElementsAre(checking));
    EXPECT_EQ(probes(), 2U);
}

TEST_F(ConnectivityEngineTest, WakeForgetsALossOfThePathThatWasReportedDuringTheSleep) {
    engine->sleep();
    engine->pathChanged(false);
    takeReports();
    engine->wake();
    EXPECT_THAT(reported, ElementsAre(checking));
    EXPECT_EQ(probes(), 2U);
}

TEST_F(ConnectivityEngineTest, WakeDuringACycleStartsAFreshOne) {
    engine->start();
    takeReports();
    engine->wake();
    EXPECT_THAT(reported, ElementsAre(checking));
    EXPECT_EQ(probe->calls[0]->cancellations, 1);
    EXPECT_EQ(probes(), 4U);
}

TEST_F(ConnectivityEngineTest, AfterStopNothingIsReportedAndNothingRuns) {
    goOnline();
    engine->stop();
    EXPECT_THAT(schedule.pending(), IsEmpty());
    engine->checkNow();
    engine->pathChanged(true);
    EXPECT_THAT(reported, IsEmpty());
    EXPECT_EQ(probes(), 2U);
    EXPECT_EQ(engine->state(), online(20));
}

TEST_F(ConnectivityEngineTest, StopInTheMiddleOfACycleEndsItsProbesAndTheirLateAnswersAreIgnored) {
    engine->start();
    takeReports();
    engine->stop();
    EXPECT_EQ(probe->calls[0]->cancellations, 1);
    EXPECT_EQ(probe->calls[1]->cancellations, 1);
    probe->complete(0, 20);
    EXPECT_THAT(reported, IsEmpty());
    EXPECT_THAT(schedule.pending(), IsEmpty());
}

TEST_F(ConnectivityEngineTest, AnObserverThatPausesInItsCallbackGetsNoNextCycle) {
    engine->start();
    engine->onChange = [this](const ConnectionState& state) {
        if (state.kind() == ConnectionState::Kind::online) {
            engine->setPaused(true);
        }
    };
    probe->complete(0, 20);
    while (!schedule.pending().empty()) {
        schedule.fire();
    }
    EXPECT_EQ(probes(), 2U);
    EXPECT_EQ(engine->state(), paused);
}

TEST_F(ConnectivityEngineTest, AnObserverReadsTheStateThatItIsTold) {
    std::vector<ConnectionState> read;
    engine->onChange = [&](const ConnectionState& state) {
        EXPECT_EQ(engine->state(), state);
        read.push_back(engine->state());
    };
    engine->start();
    probe->complete(0, 20);
    EXPECT_THAT(read, ElementsAre(checking, online(20)));
}

TEST_F(ConnectivityEngineTest, AWakeAfterStopWorksAgain) {
    engine->stop();
    engine->wake();
    EXPECT_THAT(reported, ElementsAre(checking));
    EXPECT_EQ(probes(), 2U);
}

TEST_F(ConnectivityEngineTest, ASynchronousSuccessOfTheFirstEndpointCancelsItsHandleAndProbesNoOther) {
    probe->synchronousAnswers = {33};
    engine->start();
    EXPECT_THAT(reported, ElementsAre(checking, online(33)));
    ASSERT_EQ(probes(), 1U);
    EXPECT_EQ(probe->calls[0]->cancellations, 1);
    EXPECT_EQ(schedule.pending().size(), 1U);
}

TEST_F(ConnectivityEngineTest, SynchronousFailuresOfAllEndpointsCloseTheCycleOnce) {
    probe->synchronousAnswers = {std::nullopt, std::nullopt};
    engine->start();
    EXPECT_THAT(reported, ElementsAre(checking, checking));
    EXPECT_EQ(probes(), 2U);
    EXPECT_EQ(schedule.pending().size(), 1U);
    EXPECT_EQ(schedule.pending().front()->interval, 0.5s);
    // The last one closed the cycle inside the call, before anybody had its handle.
    EXPECT_EQ(probe->calls[1]->cancellations, 1);
}

TEST_F(ConnectivityEngineTest, AResultOfAnAbandonedCycleIsIgnored) {
    engine->start();
    engine->pathChanged(true);
    takeReports();
    probe->complete(0, {});
    probe->complete(1, {});
    probe->complete(0, 12);
    EXPECT_THAT(reported, IsEmpty());
    probe->complete(2, 40);
    EXPECT_THAT(reported, ElementsAre(online(40)));
}

TEST_F(ConnectivityEngineTest, ATimerAndACompletionThatRunAfterTheEngineIsGoneDoNothing) {
    goOnline();
    const auto timer = schedule.pending().front();
    timer->action();
    ASSERT_EQ(probes(), 4U);
    engine.reset();
    timer->action();
    probe->complete(2, 20);
    EXPECT_EQ(probes(), 4U);
    EXPECT_THAT(reported, IsEmpty());
}

TEST_F(ConnectivityEngineTest, ReleasingTheEngineCancelsNothingByItself) {
    goOnline();
    schedule.fire();
    engine.reset();
    EXPECT_EQ(probe->calls[2]->cancellations, 0);
    EXPECT_EQ(probe->calls[3]->cancellations, 0);
}

TEST_F(ConnectivityEngineTest, WorksWithoutAnObserver) {
    engine->onChange = nullptr;
    engine->start();
    probe->complete(1, 9);
    EXPECT_EQ(engine->state(), online(9));
}

TEST(ConnectivityEngineDeathTest, AnEmptyListOfEndpointsStopsTheProgram) {
    EXPECT_DEATH(ConnectivityEngine(std::make_shared<FakeProbe>(), {}, FakeSchedule()), "endpoints is empty");
}

TEST(ConnectivityEngineDefaults, TheEndpointsAreTwoOfUnrelatedOperatorsInThisOrder) {
    EXPECT_THAT(ConnectivityEngine::defaultEndpoints(),
                ElementsAre(QUrl(QStringLiteral("https://www.google.com/generate_204")),
                            QUrl(QStringLiteral("https://cp.cloudflare.com/generate_204"))));
}

TEST_F(ConnectivityEngineTest, EveryStateIsLoggedWithItsReason) {
    const test::LogCapture log(QStringLiteral("skylet.*=true"));
    engine->start();
    failCycle();
    schedule.fire();
    failCycle();
    schedule.fire();
    probe->complete(probes() - 1, 20);
    engine->pathChanged(false);
    engine->setPaused(true);
    EXPECT_EQ(log.text(),
              QStringLiteral("skylet.connectivity: checking: a check begins\n"
                             "skylet.connectivity: checking: every endpoint failed, a confirming cycle follows\n"
                             "skylet.connectivity: offline: every endpoint failed in the confirming cycle too\n"
                             "skylet.connectivity: online: an endpoint answered\n"
                             "skylet.connectivity: offline: the network path is gone\n"
                             "skylet.connectivity: paused: paused by the user"));
}

TEST_F(ConnectivityEngineTest, NothingIsLoggedByDefault) {
    const test::LogCapture log;
    engine->start();
    failCycle();
    EXPECT_EQ(log.text(), QString());
}

} // namespace
} // namespace skylet
