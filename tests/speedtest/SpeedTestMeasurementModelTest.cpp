#include "speedtest/SpeedTestMeasurement.h"
#include "support/FakeBulkTransfers.h"
#include "support/FakeClock.h"
#include "support/FakeSchedule.h"
#include "support/QStringPrinting.h"
#include "support/RandomEvents.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace skylet {
namespace {

using End = BulkTransferResult::End;

// A time is a whole number of these, so that every difference between two is exact.
constexpr double ticksPerSecond = 1024;
constexpr double phaseSeconds = 4;

/// What the window shows.
struct Shown {
    std::array<QString, 3> results;
    bool runEnabled = true;
    QString phase;
    GaugeColor accent;
    double target = 0;
    double value = 0;
    int animationStops = 0;
};

/// How often each event was reported, and the last results.
struct Reported {
    int started = 0;
    int cancelled = 0;
    int finished = 0;
    std::optional<double> down;
    std::optional<double> up;

    bool operator==(const Reported&) const = default;
};

class RecordingDisplay final : public SpeedTestDisplay {
  public:
    void setResult(ResultColumn column, const QString& text) override {
        shown.results.at(static_cast<std::size_t>(column)) = text;
    }
    void setRunEnabled(bool enabled) override { shown.runEnabled = enabled; }
    void setGaugePhase(const QString& phase) override { shown.phase = phase; }
    void setGaugeAccent(const GaugeColor& accent) override { shown.accent = accent; }
    void setGaugeTarget(double speed) override { shown.target = speed; }
    void setGaugeValue(double speed) override { shown.value = speed; }
    void stopGaugeAnimation() override { ++shown.animationStops; }

    Shown shown;
};

/// What the rules ask of a measurement.
struct MeasurementRules {
    enum class Doing { nothing, download, pause, upload };
    struct Piece {
        std::int64_t time;
        /// Of the phase, with this piece.
        std::int64_t bytes;
    };

    Doing doing = Doing::nothing;
    std::int64_t now = 0;
    std::int64_t latency = 0;
    std::int64_t phaseStart = 0;
    std::deque<Piece> pieces;
    bool isCutOff = false;
    std::optional<double> down;
    std::size_t transfersBegun = 0;
    Shown shown;
    Reported reported;

    bool isTransferring() const { return doing == Doing::download || doing == Doing::upload; }
    std::int64_t bytes() const { return pieces.empty() ? 0 : pieces.back().bytes; }

    void start() {
        if (doing != Doing::nothing) {
            return;
        }
        ++reported.started;
        const auto dash = QStringLiteral("—");
        shown.results = {latency >= 1 ? QStringLiteral("%1 ms").arg(latency) : dash, dash, dash};
        shown.runEnabled = false;
        begin(Doing::download);
    }

    void begin(Doing phase) {
        doing = phase;
        phaseStart = now;
        pieces.clear();
        isCutOff = false;
        ++transfersBegun;
        shown.phase = phase == Doing::upload ? QStringLiteral("UPLOAD") : QStringLiteral("DOWNLOAD");
        shown.accent = phase == Doing::upload ? GaugeColor{0.35, 0.62, 1.0} : GaugeColor{0.2, 0.83, 0.45};
        shown.target = 0;
        shown.value = 0;
    }

    void move(std::int64_t count) {
        pieces.push_back({now, bytes() + count});
        // The earliest of the last 0.8 s; of what lies behind it in time nothing is needed any more.
        while (static_cast<double>(now - pieces.front().time) > 0.8 * ticksPerSecond) {
            pieces.pop_front();
        }
        const double ticks = static_cast<double>(now - pieces.front().time);
        if (ticks > 0.15 * ticksPerSecond) {
            shown.target = megabits(bytes() - pieces.front().bytes, ticks);
        }
    }

    static double megabits(std::int64_t count, double ticks) {
        return static_cast<double>(count) * 8e-6 * ticksPerSecond / ticks;
    }

    void end(End how, std::optional<int> status) {
        const bool isGood = status && *status / 100 == 2;
        const bool counts = how == End::finished ? isGood : how == End::cancelled && isCutOff && (isGood || !status);
        const double ticks = static_cast<double>(now - phaseStart);
        std::optional<double> result;
        if (counts && bytes() >= 4096 && ticks > 0) {
            result = megabits(bytes(), ticks);
        }
        const QString text = result ? QString::number(*result, 'f', 1) : QStringLiteral("failed");
        shown.target = result.value_or(0);
        if (doing == Doing::download) {
            doing = Doing::pause;
            shown.results[1] = text;
            down = result;
            return;
        }
        doing = Doing::nothing;
        shown.results[2] = text;
        shown.phase = QStringLiteral("DONE");
        shown.runEnabled = true;
        ++reported.finished;
        reported.down = down;
        reported.up = result;
    }

    void cancel() {
        shown.runEnabled = true;
        ++shown.animationStops;
        if (doing != Doing::nothing) {
            ++reported.cancelled;
        }
        doing = Doing::nothing;
    }
};

class SpeedTestMeasurementModelTest : public testing::Test {
  protected:
    using Doing = MeasurementRules::Doing;
    using Task = test::FakeBulkTransfers::Task;

    SpeedTestMeasurementModelTest() {
        makeMeasurement();
        events_.onStarted = [this] { ++reported_.started; };
        events_.onCancelled = [this] { ++reported_.cancelled; };
        events_.onFinished = [this](std::optional<double> down, std::optional<double> up) {
            ++reported_.finished;
            reported_.down = down;
            reported_.up = up;
        };
    }

    void makeMeasurement() {
        schedule_ = {};
        measurement_ = std::make_unique<SpeedTestMeasurement>(display_, events_, transfers_.factory(), clock_,
                                                              schedule_, SessionConfiguration{}, Seconds(phaseSeconds));
    }

    const char* step() {
        rules_.now += random_.oneIn(3) ? static_cast<std::int64_t>(random_.below(400)) : 0;
        clock_.uptime = Seconds(static_cast<double>(rules_.now) / ticksPerSecond);
        const char* name = event();
        compare();
        return name;
    }

    const char* event() {
        switch (random_.below(40)) {
        case 0:
        case 1:
        case 2:
            measurement_->start();
            rules_.start();
            return "start";
        case 3:
            return cancel();
        case 4:
            rules_.latency = static_cast<std::int64_t>(random_.below(4)) - 1;
            measurement_->setLatencyMs(rules_.latency);
            return "setLatencyMs";
        case 5:
            return headArrives();
        case 6:
        case 7:
            return lateReport();
        case 8:
            return random_.oneIn(20) ? replaceMeasurement() : fireTimersWithoutOwner();
        case 9:
        case 10:
        case 11:
            return fireTimer();
        case 12:
        case 13:
        case 14:
            return transferEnds();
        default:
            return bytesMove();
        }
    }

    const char* cancel() {
        measurement_->cancel();
        if (rules_.isTransferring()) {
            EXPECT_EQ(transfers_.last().cancels, rules_.isCutOff ? 2 : 1);
        }
        rules_.cancel();
        return "cancel";
    }

    std::optional<int> randomStatus() {
        static constexpr std::array<std::optional<int>, 9> statuses = {200, 200, 204, 299, 300, 404, 500, 199, {}};
        return random_.anyOf(statuses);
    }

    const char* headArrives() {
        const auto status = randomStatus();
        const auto wanted = status && *status / 100 == 2 ? ResponseDisposition::allow : ResponseDisposition::cancel;
        EXPECT_EQ(transfers_.delegate().responseReceived(1 + static_cast<TaskIdentifier>(random_.below(9)), status),
                  wanted);
        return "an answer's head";
    }

    /// About any transfer but the one that runs.
    const char* lateReport() {
        const auto task = static_cast<TaskIdentifier>(random_.below(transfers_.tasks.size() + 3));
        if (rules_.isTransferring() && task == transfers_.last().taskIdentifier()) {
            return "nothing";
        }
        auto& delegate = transfers_.delegate();
        delegate.dataReceived(task, 1'000'000);
        delegate.bodySent(task, 1'000'000);
        delegate.completed(task, {random_.anyOf(ends), randomStatus()});
        return "a report about another transfer";
    }

    const char* replaceMeasurement() {
        const auto pending = schedule_.pending();
        ownerlessTimers_.insert(ownerlessTimers_.end(), pending.begin(), pending.end());
        measurement_.reset();
        makeMeasurement();
        rules_.doing = Doing::nothing;
        rules_.latency = 0;
        return "the measurement goes, another comes";
    }

    const char* fireTimersWithoutOwner() {
        for (const auto& timer : std::exchange(ownerlessTimers_, {})) {
            timer->action();
        }
        return "timers of a measurement that is gone";
    }

    const char* fireTimer() {
        if (schedule_.pending().empty()) {
            return "nothing";
        }
        schedule_.fire();
        if (rules_.doing == Doing::pause) {
            rules_.begin(Doing::upload);
            return "the pause ends";
        }
        rules_.isCutOff = true;
        return "the deadline";
    }

    const char* transferEnds() {
        if (!rules_.isTransferring()) {
            return "nothing";
        }
        const End how = rules_.isCutOff && !random_.oneIn(4) ? End::cancelled : random_.anyOf(ends);
        const auto status = randomStatus();
        transfers_.complete(how, status);
        rules_.end(how, status);
        return "the transfer ends";
    }

    const char* bytesMove() {
        if (!rules_.isTransferring()) {
            return "nothing";
        }
        const auto count = static_cast<std::int64_t>(random_.below(random_.oneIn(2) ? 2000 : 3'000'000));
        const bool isUpload = rules_.doing == Doing::upload;
        // Of the other direction nothing counts.
        if (random_.oneIn(5)) {
            isUpload ? transfers_.receive(count) : transfers_.send(count);
            return "bytes the other way";
        }
        isUpload ? transfers_.send(count) : transfers_.receive(count);
        rules_.move(count);
        return "bytes";
    }

    void compare() {
        EXPECT_EQ(measurement_->isRunning(), rules_.doing != Doing::nothing);
        EXPECT_EQ(reported_.started, rules_.reported.started);
        EXPECT_EQ(reported_.cancelled, rules_.reported.cancelled);
        EXPECT_EQ(reported_.finished, rules_.reported.finished);
        expectSpeed(reported_.down, rules_.reported.down);
        expectSpeed(reported_.up, rules_.reported.up);
        compareDisplay();
        compareTimers();
        compareTransfers();
    }

    static void expectSpeed(std::optional<double> actual, std::optional<double> wanted) {
        EXPECT_EQ(actual.has_value(), wanted.has_value());
        EXPECT_DOUBLE_EQ(actual.value_or(0), wanted.value_or(0));
    }

    void compareDisplay() {
        const Shown& shown = display_.shown;
        EXPECT_EQ(shown.results, rules_.shown.results);
        EXPECT_EQ(shown.runEnabled, rules_.shown.runEnabled);
        EXPECT_EQ(shown.phase, rules_.shown.phase);
        EXPECT_EQ(shown.accent, rules_.shown.accent);
        EXPECT_DOUBLE_EQ(shown.target, rules_.shown.target);
        EXPECT_EQ(shown.value, rules_.shown.value);
        EXPECT_EQ(shown.animationStops, rules_.shown.animationStops);
    }

    void compareTimers() {
        const auto timers = schedule_.pending();
        const bool isWaiting = rules_.doing == Doing::pause || (rules_.isTransferring() && !rules_.isCutOff);
        ASSERT_EQ(timers.size(), isWaiting ? 1U : 0U);
        if (isWaiting) {
            EXPECT_EQ(timers.front()->interval, Seconds(rules_.doing == Doing::pause ? 0.6 : phaseSeconds));
        }
        schedule_.forgetTheRest();
    }

    void compareTransfers() {
        ASSERT_EQ(transfers_.tasks.size(), rules_.transfersBegun);
        if (rules_.isTransferring()) {
            EXPECT_EQ(transfers_.last().isUpload, rules_.doing == Doing::upload);
            EXPECT_EQ(transfers_.last().cancels, rules_.isCutOff ? 1 : 0);
        }
    }

    static constexpr std::array ends = {End::finished, End::cancelled, End::failed};

    test::RandomEvents random_{100'000};
    RecordingDisplay display_;
    SpeedTestEvents events_;
    test::FakeBulkTransfers transfers_;
    test::FakeClock clock_;
    test::FakeSchedule schedule_;
    MeasurementRules rules_;
    Reported reported_;
    std::vector<std::shared_ptr<test::FakeSchedule::Timer>> ownerlessTimers_;
    std::unique_ptr<SpeedTestMeasurement> measurement_;
};

TEST_F(SpeedTestMeasurementModelTest, FollowsTheRulesWhateverHappensInWhateverOrder) {
    random_.run([this] { return step(); });
}

} // namespace
} // namespace skylet
