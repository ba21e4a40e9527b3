#include "speedtest/SpeedTestMeasurement.h"

#include "BuildConstants.h"
#include "support/FakeBulkTransfers.h"
#include "support/FakeClock.h"
#include "support/FakeSchedule.h"
#include "support/QStringPrinting.h"

#include <QStringList>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

namespace skylet {
namespace {

using End = BulkTransferResult::End;
using test::FakeBulkTransfers;
using testing::ElementsAre;

/// Remembers what stands on the window, and each target that the gauge was given.
class FakeDisplay final : public SpeedTestDisplay {
  public:
    void setResult(ResultColumn column, const QString& text) override { results.at(static_cast<int>(column)) = text; }
    void setRunEnabled(bool enabled) override { runEnabled = enabled; }
    void setGaugePhase(const QString& text) override { phase = text; }
    void setGaugeAccent(const GaugeColor& color) override { accent = color; }
    void setGaugeTarget(double speed) override { targets.push_back(speed); }
    void setGaugeValue(double speed) override { value = speed; }
    void stopGaugeAnimation() override { ++stops; }

    const QString& https() const { return results[0]; }
    const QString& download() const { return results[1]; }
    const QString& upload() const { return results[2]; }

    std::array<QString, 3> results;
    bool runEnabled = false;
    QString phase = QStringLiteral("READY");
    GaugeColor accent;
    std::vector<double> targets;
    double value = -1;
    int stops = 0;
};

class SpeedTestMeasurementTest : public testing::Test {
  protected:
    SpeedTestMeasurementTest() {
        events.onStarted = [this] { reports += QStringLiteral("started"); };
        events.onCancelled = [this] { reports += QStringLiteral("cancelled"); };
        events.onFinished = [this](std::optional<double> down, std::optional<double> up) {
            reports += QStringLiteral("finished");
            finished = {down, up};
        };
    }

    void pass(double seconds) { clock.uptime += Seconds(seconds); }

    /// The deadline of the running phase comes, and the transport reports the cut-off at once.
    void reachDeadline(std::optional<int> statusCode) {
        schedule.fire();
        transfers.complete(End::cancelled, statusCode);
    }

    /// A download of `bytes` that the deadline cuts off 4 s after it began.
    void downloadUntilDeadline(std::int64_t bytes) {
        transfers.respond(200);
        pass(4);
        transfers.receive(bytes);
        reachDeadline(200);
    }

    /// Runs a download to its end and through the pause after it.
    void startUploadPhase() {
        measurement->start();
        downloadUntilDeadline(24'000'000);
        schedule.fire();
    }

    test::FakeClock clock;
    test::FakeSchedule schedule;
    FakeBulkTransfers transfers;
    FakeDisplay display;
    QStringList reports;
    std::array<std::optional<double>, 2> finished;
    SpeedTestEvents events;
    std::unique_ptr<SpeedTestMeasurement> measurement =
        std::make_unique<SpeedTestMeasurement>(display, events, transfers.factory(), clock, schedule,
                                               SessionConfiguration{}, SpeedTestMeasurement::defaultPhaseSeconds);
};

TEST_F(SpeedTestMeasurementTest, MakesItsSessionOnceWithBothLimitsAtFifteenSeconds) {
    EXPECT_TRUE(transfers.tasks.empty());
    EXPECT_TRUE(schedule.timers().empty());
    measurement->start();
    measurement->cancel();
    measurement->start();
    ASSERT_EQ(transfers.configurations.size(), 1U);
    EXPECT_EQ(transfers.configurations[0].timeoutIntervalForRequest, Seconds(15));
    EXPECT_EQ(transfers.configurations[0].timeoutIntervalForResource, Seconds(15));
}

TEST_F(SpeedTestMeasurementTest, DownloadsFromTheHostOfTheBuild) {
    measurement->start();
    EXPECT_FALSE(transfers.last().isUpload);
    EXPECT_EQ(transfers.last().url.toString(),
              QStringLiteral("https://%1/__down?bytes=40000000").arg(QString::fromUtf8(build::speedTestHost)));
}

TEST_F(SpeedTestMeasurementTest, UploadsTwentyMillionZeroBytesInEachPhase) {
    startUploadPhase();
    const auto& upload = transfers.last();
    EXPECT_TRUE(upload.isUpload);
    EXPECT_EQ(upload.url.toString(), QStringLiteral("https://%1/__up").arg(QString::fromUtf8(build::speedTestHost)));
    EXPECT_EQ(upload.contentType, QByteArray("application/octet-stream"));
    EXPECT_EQ(upload.timeoutInterval, Seconds(60));
    EXPECT_EQ(upload.bodySize, 20'000'000);
    measurement->cancel();
    startUploadPhase();
    EXPECT_NE(&transfers.last(), &upload);
    EXPECT_EQ(transfers.last().bodySize, 20'000'000);
}

TEST_F(SpeedTestMeasurementTest, AStartShowsALatencyFromOneMillisecondOn) {
    for (const auto& [latency, text] : {std::pair{std::int64_t{0}, QStringLiteral("—")},
                                        {std::int64_t{1}, QStringLiteral("1 ms")},
                                        {std::int64_t{38}, QStringLiteral("38 ms")},
                                        {std::int64_t{-5}, QStringLiteral("—")}}) {
        measurement->setLatencyMs(latency);
        measurement->start();
        EXPECT_EQ(display.https(), text);
        measurement->cancel();
    }
}

TEST_F(SpeedTestMeasurementTest, AStartClearsTheResultsAndDisablesTheButton) {
    display.runEnabled = true;
    measurement->start();
    EXPECT_TRUE(measurement->isRunning());
    EXPECT_EQ(display.download(), QStringLiteral("—"));
    EXPECT_EQ(display.upload(), QStringLiteral("—"));
    EXPECT_FALSE(display.runEnabled);
    EXPECT_EQ(reports, QStringList{QStringLiteral("started")});
}

TEST_F(SpeedTestMeasurementTest, AStartDuringATestDoesNothing) {
    measurement->start();
    measurement->start();
    EXPECT_EQ(reports, QStringList{QStringLiteral("started")});
    EXPECT_EQ(transfers.tasks.size(), 1U);
    EXPECT_EQ(schedule.timers().size(), 1U);
}

TEST_F(SpeedTestMeasurementTest, EachPhaseDropsTheNeedleAndTakesItsNameAndColour) {
    measurement->start();
    EXPECT_EQ(display.phase, QStringLiteral("DOWNLOAD"));
    EXPECT_EQ(display.accent, (GaugeColor{0.2, 0.83, 0.45}));
    EXPECT_EQ(display.value, 0);
    EXPECT_THAT(display.targets, ElementsAre(0));
    downloadUntilDeadline(24'000'000);
    EXPECT_EQ(display.targets.back(), 48.0);
    schedule.fire();
    EXPECT_EQ(display.phase, QStringLiteral("UPLOAD"));
    EXPECT_EQ(display.accent, (GaugeColor{0.35, 0.62, 1.0}));
    EXPECT_EQ(display.value, 0);
    EXPECT_EQ(display.targets.back(), 0);
}

TEST_F(SpeedTestMeasurementTest, AnAnswerIsAllowedFrom200To299Alone) {
    measurement->start();
    for (const int good : {200, 204, 299}) {
        EXPECT_EQ(transfers.respond(good), ResponseDisposition::allow) << good;
    }
    for (const int bad : {199, 300, 301, 403, 404, 429, 500, 0}) {
        EXPECT_EQ(transfers.respond(bad), ResponseDisposition::cancel) << bad;
    }
    EXPECT_EQ(transfers.respond(std::nullopt), ResponseDisposition::cancel);
}

TEST_F(SpeedTestMeasurementTest, AnAnswerIsJudgedAlsoWhenNoTestRuns) {
    EXPECT_EQ(transfers.delegate().responseReceived(7, 200), ResponseDisposition::allow);
    EXPECT_EQ(transfers.delegate().responseReceived(7, 301), ResponseDisposition::cancel);
}

TEST_F(SpeedTestMeasurementTest, AWholeDownloadInTwoSecondsIsWorth160AndTheUploadFollowsAfterThePause) {
    measurement->start();
    transfers.respond(200);
    pass(2);
    transfers.receive(40'000'000);
    transfers.complete(End::finished, 200);
    EXPECT_EQ(display.download(), QStringLiteral("160.0"));
    EXPECT_EQ(display.targets.back(), 160.0);
    ASSERT_EQ(schedule.timers().size(), 2U);
    EXPECT_EQ(schedule.timers()[0]->interval, Seconds(4));
    EXPECT_TRUE(schedule.timers()[0]->cancelled);
    EXPECT_EQ(schedule.timers()[1]->interval, Seconds(0.6));
    EXPECT_EQ(transfers.tasks.size(), 1U);
    schedule.fire();
    EXPECT_EQ(transfers.tasks.size(), 2U);
    EXPECT_TRUE(transfers.last().isUpload);
}

TEST_F(SpeedTestMeasurementTest, ADownloadCutOffAtTheDeadlineIsWorthItsAverage) {
    measurement->start();
    transfers.respond(200);
    pass(4);
    transfers.receive(24'000'000);
    EXPECT_EQ(transfers.last().cancels, 0);
    schedule.fire();
    EXPECT_EQ(transfers.last().cancels, 1);
    EXPECT_EQ(display.download(), QStringLiteral("—")) << "judged only when the transfer has ended";
    transfers.complete(End::cancelled, 200);
    EXPECT_EQ(display.download(), QStringLiteral("48.0"));
}

TEST_F(SpeedTestMeasurementTest, TheAverageRunsToTheEndOfTheTransferNotToTheDeadline) {
    measurement->start();
    pass(4);
    transfers.receive(25'000'000);
    schedule.fire();
    pass(1);
    transfers.complete(End::cancelled, 200);
    EXPECT_EQ(display.download(), QStringLiteral("40.0"));
}

TEST_F(SpeedTestMeasurementTest, AnUploadCutOffBeforeAnyAnswerCounts) {
    startUploadPhase();
    pass(4);
    transfers.send(5'500'000);
    reachDeadline(std::nullopt);
    EXPECT_EQ(display.upload(), QStringLiteral("11.0"));
    EXPECT_EQ(display.phase, QStringLiteral("DONE"));
    EXPECT_EQ(display.targets.back(), 11.0);
    EXPECT_TRUE(display.runEnabled);
    EXPECT_FALSE(measurement->isRunning());
    EXPECT_EQ(reports, (QStringList{QStringLiteral("started"), QStringLiteral("finished")}));
    EXPECT_EQ(finished[0], 48.0);
    EXPECT_EQ(finished[1], 11.0);
    EXPECT_TRUE(schedule.pending().empty());
}

TEST_F(SpeedTestMeasurementTest, ADownloadCutOffBeforeAnyAnswerCountsByItsBytesAlone) {
    measurement->start();
    pass(4);
    transfers.receive(1'000'000);
    reachDeadline(std::nullopt);
    EXPECT_EQ(display.download(), QStringLiteral("2.0"));
}

TEST_F(SpeedTestMeasurementTest, AWholeUploadIsWorthItsAverage) {
    startUploadPhase();
    transfers.respond(200);
    pass(1);
    transfers.send(20'000'000);
    transfers.complete(End::finished, 200);
    EXPECT_EQ(finished[1], 160.0);
}

TEST_F(SpeedTestMeasurementTest, APhaseThatMoved4095BytesFails) {
    measurement->start();
    downloadUntilDeadline(4095);
    EXPECT_EQ(display.download(), QStringLiteral("failed"));
    EXPECT_EQ(display.targets.back(), 0);
}

TEST_F(SpeedTestMeasurementTest, APhaseThatMoved4096BytesHasAResult) {
    startUploadPhase();
    pass(4);
    transfers.send(4096);
    reachDeadline(std::nullopt);
    EXPECT_EQ(display.upload(), QStringLiteral("0.0"));
    EXPECT_DOUBLE_EQ(finished[1].value(), 4096.0 * 8 / 4 / 1'000'000);
}

TEST_F(SpeedTestMeasurementTest, APhaseWithoutTimeFails) {
    measurement->start();
    transfers.receive(40'000'000);
    transfers.complete(End::finished, 200);
    EXPECT_EQ(display.download(), QStringLiteral("failed"));
}

TEST_F(SpeedTestMeasurementTest, AStatusOutsideTheTwoHundredsFailsThePhaseAtOnce) {
    for (const int status : {404, 500, 301}) {
        measurement->start();
        const auto deadline = schedule.pending().front();
        pass(0.2);
        EXPECT_EQ(transfers.respond(status), ResponseDisposition::cancel);
        transfers.complete(End::cancelled, status);
        EXPECT_EQ(display.download(), QStringLiteral("failed")) << status;
        EXPECT_TRUE(deadline->cancelled);
        ASSERT_EQ(schedule.pending().size(), 1U);
        EXPECT_EQ(schedule.pending().front()->interval, Seconds(0.6)) << "the upload follows";
        measurement->cancel();
    }
}

TEST_F(SpeedTestMeasurementTest, ABadStatusAtTheDeadlineFailsThePhaseWhateverItMoved) {
    measurement->start();
    pass(4);
    transfers.receive(1'000'000);
    reachDeadline(403);
    EXPECT_EQ(display.download(), QStringLiteral("failed"));
}

TEST_F(SpeedTestMeasurementTest, ATransferThatEndsWithoutAnHttpAnswerFails) {
    measurement->start();
    pass(1);
    transfers.receive(1'000'000);
    transfers.complete(End::finished, std::nullopt);
    EXPECT_EQ(display.download(), QStringLiteral("failed"));
}

TEST_F(SpeedTestMeasurementTest, AFinishedAnswerWithABadStatusFails) {
    measurement->start();
    pass(1);
    transfers.receive(1'000'000);
    transfers.complete(End::finished, 301);
    EXPECT_EQ(display.download(), QStringLiteral("failed"));
}

TEST_F(SpeedTestMeasurementTest, AnErrorBeforeTheDeadlineFailsEvenAfterMegabytes) {
    measurement->start();
    transfers.respond(200);
    pass(3);
    transfers.receive(9'000'000);
    transfers.complete(End::failed, 200);
    EXPECT_EQ(display.download(), QStringLiteral("failed"));
    EXPECT_EQ(display.targets.back(), 0);
}

TEST_F(SpeedTestMeasurementTest, AnErrorAfterTheDeadlineIsNotTheCutOff) {
    measurement->start();
    pass(4);
    transfers.receive(9'000'000);
    schedule.fire();
    transfers.complete(End::failed, 200);
    EXPECT_EQ(display.download(), QStringLiteral("failed"));
}

TEST_F(SpeedTestMeasurementTest, ACancelThatTheDeadlineDidNotCauseFails) {
    measurement->start();
    pass(1);
    transfers.receive(9'000'000);
    transfers.complete(End::cancelled, 200);
    EXPECT_EQ(display.download(), QStringLiteral("failed"));
}

TEST_F(SpeedTestMeasurementTest, AFailedDownloadDoesNotStopTheTest) {
    measurement->start();
    transfers.complete(End::failed, std::nullopt);
    schedule.fire();
    pass(4);
    transfers.send(5'500'000);
    reachDeadline(std::nullopt);
    EXPECT_FALSE(finished[0]);
    EXPECT_EQ(finished[1], 11.0);
}

TEST_F(SpeedTestMeasurementTest, AFailedUploadEndsTheTestAllTheSame) {
    startUploadPhase();
    pass(1);
    transfers.complete(End::failed, std::nullopt);
    EXPECT_EQ(display.upload(), QStringLiteral("failed"));
    EXPECT_EQ(display.phase, QStringLiteral("DONE"));
    EXPECT_EQ(display.targets.back(), 0);
    EXPECT_TRUE(display.runEnabled);
    EXPECT_EQ(finished[0], 48.0);
    EXPECT_FALSE(finished[1]);
}

TEST_F(SpeedTestMeasurementTest, TwoFailedPhasesFinishWithNeither) {
    measurement->start();
    transfers.complete(End::failed, std::nullopt);
    schedule.fire();
    transfers.complete(End::failed, std::nullopt);
    EXPECT_EQ(reports.last(), QStringLiteral("finished"));
    EXPECT_FALSE(finished[0]);
    EXPECT_FALSE(finished[1]);
}

TEST_F(SpeedTestMeasurementTest, TheNextTestStartsWithoutTheResultsOfTheLast) {
    startUploadPhase();
    pass(4);
    transfers.send(5'500'000);
    reachDeadline(std::nullopt);
    measurement->start();
    EXPECT_EQ(display.download(), QStringLiteral("—"));
    EXPECT_EQ(display.upload(), QStringLiteral("—"));
    transfers.complete(End::failed, std::nullopt);
    schedule.fire();
    transfers.complete(End::failed, std::nullopt);
    EXPECT_FALSE(finished[0]);
    EXPECT_FALSE(finished[1]);
}

TEST_F(SpeedTestMeasurementTest, TheLiveRateNeedsMoreThanTheLeastSpan) {
    measurement->start();
    display.targets.clear();
    pass(1);
    transfers.receive(1'000'000);
    EXPECT_TRUE(display.targets.empty()) << "a single sample";
    // Binary fractions, so that the sums are exact
    pass(0.125);
    transfers.receive(1'000'000);
    EXPECT_TRUE(display.targets.empty());
    pass(0.125);
    transfers.receive(500'000);
    EXPECT_THAT(display.targets, ElementsAre(1'500'000 * 8 / 0.25 / 1'000'000));
}

TEST_F(SpeedTestMeasurementTest, ASpanOfExactlyTheLeastIsStillTooShort) {
    clock.uptime = Seconds(0);
    measurement->start();
    display.targets.clear();
    transfers.receive(1000);
    clock.uptime = Seconds(0.15);
    transfers.receive(1000);
    EXPECT_TRUE(display.targets.empty());
    clock.uptime = Seconds(0.1500001);
    transfers.receive(1000);
    EXPECT_EQ(display.targets.size(), 1U);
}

TEST_F(SpeedTestMeasurementTest, TheLiveRateLooksBackEightTenthsOfASecond) {
    clock.uptime = Seconds(0);
    measurement->start();
    display.targets.clear();
    transfers.receive(8'000'000);
    clock.uptime = Seconds(0.5);
    transfers.receive(1'000'000);
    clock.uptime = Seconds(0.8);
    transfers.receive(1'000'000);
    EXPECT_DOUBLE_EQ(display.targets.back(), 2'000'000 * 8 / 0.8 / 1'000'000) << "0.8 s back still counts";
    clock.uptime = Seconds(1.0);
    transfers.receive(1'000'000);
    EXPECT_DOUBLE_EQ(display.targets.back(), 2'000'000 * 8 / 0.5 / 1'000'000) << "the first sample is too old";
}

TEST_F(SpeedTestMeasurementTest, TheBytesOfTheOldestSampleAreNotPartOfTheLiveRate) {
    clock.uptime = Seconds(0);
    measurement->start();
    transfers.receive(30'000'000);
    clock.uptime = Seconds(0.5);
    transfers.receive(1'000'000);
    EXPECT_DOUBLE_EQ(display.targets.back(), 16.0);
}

TEST_F(SpeedTestMeasurementTest, AfterALongSilenceTheGaugeKeepsItsTarget) {
    measurement->start();
    transfers.receive(1'000'000);
    pass(0.5);
    transfers.receive(1'000'000);
    const auto targets = display.targets;
    pass(2);
    transfers.receive(1'000'000);
    EXPECT_EQ(display.targets, targets) << "the one sample left spans nothing";
}

TEST_F(SpeedTestMeasurementTest, ThePhasesCountTheirOwnDirectionAlone) {
    measurement->start();
    transfers.send(1'000'000);
    pass(4);
    transfers.receive(5000);
    reachDeadline(200);
    EXPECT_EQ(display.download(), QStringLiteral("0.0"));
    schedule.fire();
    transfers.receive(1'000'000);
    pass(4);
    reachDeadline(std::nullopt);
    EXPECT_EQ(display.upload(), QStringLiteral("failed"));
}

TEST_F(SpeedTestMeasurementTest, BytesOfAnEarlierTransferAreIgnored) {
    startUploadPhase();
    const auto download = transfers.tasks.front()->taskIdentifier();
    pass(4);
    transfers.delegate().bodySent(download, 1'000'000);
    transfers.delegate().dataReceived(download, 1'000'000);
    reachDeadline(std::nullopt);
    EXPECT_EQ(display.upload(), QStringLiteral("failed"));
}

TEST_F(SpeedTestMeasurementTest, ACancelDuringTheDownloadEndsItAndKeepsWhatWasShown) {
    measurement->setLatencyMs(38);
    measurement->start();
    transfers.receive(1'000'000);
    measurement->cancel();
    EXPECT_FALSE(measurement->isRunning());
    EXPECT_EQ(transfers.last().cancels, 1);
    EXPECT_TRUE(schedule.pending().empty());
    EXPECT_EQ(display.stops, 1);
    EXPECT_TRUE(display.runEnabled);
    EXPECT_EQ(display.https(), QStringLiteral("38 ms"));
    EXPECT_EQ(display.phase, QStringLiteral("DOWNLOAD"));
    EXPECT_EQ(reports, (QStringList{QStringLiteral("started"), QStringLiteral("cancelled")}));
}

TEST_F(SpeedTestMeasurementTest, ACancelDuringThePausePreventsTheUpload) {
    measurement->start();
    downloadUntilDeadline(24'000'000);
    const auto transition = schedule.pending().front();
    measurement->cancel();
    EXPECT_TRUE(transition->cancelled);
    transition->action();
    EXPECT_EQ(transfers.tasks.size(), 1U) << "also when the timer was already on its way";
    EXPECT_EQ(display.download(), QStringLiteral("48.0"));
    measurement->cancel();
    EXPECT_EQ(reports, (QStringList{QStringLiteral("started"), QStringLiteral("cancelled")}));
}

TEST_F(SpeedTestMeasurementTest, ACancelDuringTheUploadEndsIt) {
    startUploadPhase();
    measurement->cancel();
    EXPECT_EQ(transfers.last().cancels, 1);
    EXPECT_TRUE(schedule.pending().empty());
    EXPECT_EQ(reports.last(), QStringLiteral("cancelled"));
}

TEST_F(SpeedTestMeasurementTest, ACancelWhileIdleCallsNothing) {
    measurement->cancel();
    EXPECT_TRUE(reports.isEmpty());
}

TEST_F(SpeedTestMeasurementTest, ACancelAfterTheEndCallsNothing) {
    startUploadPhase();
    pass(4);
    transfers.send(5'500'000);
    reachDeadline(std::nullopt);
    measurement->cancel();
    EXPECT_EQ(reports, (QStringList{QStringLiteral("started"), QStringLiteral("finished")}));
}

TEST_F(SpeedTestMeasurementTest, ALateEndOfACancelledTransferChangesNothing) {
    measurement->start();
    transfers.receive(9'000'000);
    const auto old = transfers.tasks.front();
    measurement->cancel();
    pass(1);
    transfers.complete(*old, End::cancelled, 200);
    EXPECT_EQ(display.download(), QStringLiteral("—"));
    measurement->start();
    const auto targets = display.targets;
    transfers.complete(*old, End::finished, 200);
    EXPECT_EQ(display.download(), QStringLiteral("—"));
    EXPECT_EQ(display.targets, targets);
    EXPECT_EQ(schedule.pending().size(), 1U) << "the new test's deadline, no pause";
    EXPECT_TRUE(measurement->isRunning());
}

TEST_F(SpeedTestMeasurementTest, ADeadlineOfAnEarlierPhaseIsIgnored) {
    measurement->start();
    const auto old = schedule.pending().front();
    measurement->cancel();
    measurement->start();
    old->action();
    EXPECT_EQ(transfers.last().cancels, 0);
    measurement->cancel();
    old->action();
    EXPECT_EQ(transfers.tasks.front()->cancels, 1);
}

TEST_F(SpeedTestMeasurementTest, ADeadlineDuringThePauseIsIgnored) {
    measurement->start();
    const auto old = schedule.pending().front();
    transfers.complete(End::failed, std::nullopt);
    old->action();
    EXPECT_EQ(transfers.last().cancels, 0);
}

TEST_F(SpeedTestMeasurementTest, TimersOfAMeasurementThatIsGoneDoNothing) {
    measurement->start();
    const auto deadline = schedule.pending().front();
    downloadUntilDeadline(24'000'000);
    const auto transition = schedule.pending().front();
    measurement.reset();
    deadline->action();
    transition->action();
    EXPECT_EQ(transfers.tasks.size(), 1U);
}

TEST_F(SpeedTestMeasurementTest, EachPhaseHasTheLengthThatWasAskedFor) {
    SpeedTestMeasurement quick(display, events, transfers.factory(), clock, schedule, SessionConfiguration{},
                               Seconds(1.5));
    quick.start();
    EXPECT_EQ(schedule.pending().front()->interval, Seconds(1.5));
}

TEST_F(SpeedTestMeasurementTest, AStartFromWhereTheTestEndedRunsANewTest) {
    events.onFinished = [this](std::optional<double>, std::optional<double>) { measurement->start(); };
    startUploadPhase();
    transfers.complete(End::failed, std::nullopt);
    EXPECT_TRUE(measurement->isRunning());
    EXPECT_EQ(transfers.tasks.size(), 3U);
    EXPECT_FALSE(transfers.last().isUpload);
    EXPECT_EQ(display.phase, QStringLiteral("DOWNLOAD"));
}

TEST_F(SpeedTestMeasurementTest, ATestThatIsCancelledAsItStartsMovesNothing) {
    events.onStarted = [this] { measurement->cancel(); };
    measurement->start();
    EXPECT_TRUE(display.runEnabled);
    EXPECT_TRUE(transfers.tasks.empty());
    EXPECT_TRUE(schedule.pending().empty());
}

using SpeedTestMeasurementDeathTest = SpeedTestMeasurementTest;

TEST_F(SpeedTestMeasurementDeathTest, AnOverflowOfTheCountStopsTheProgram) {
    measurement->start();
    transfers.receive(std::numeric_limits<std::int64_t>::max());
    EXPECT_DEATH(transfers.receive(1), "overflowed");
}

} // namespace
} // namespace skylet
