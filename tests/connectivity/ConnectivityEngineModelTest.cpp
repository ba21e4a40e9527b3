#include "connectivity/ConnectivityEngine.h"
#include "connectivity/StatePrinting.h"
#include "support/FakeProbe.h"
#include "support/FakeSchedule.h"
#include "support/RandomEvents.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace skylet {
namespace {

using Answer = std::optional<std::int64_t>;

const std::vector<QUrl> threeEndpoints = {QUrl(QStringLiteral("https://one.example/")),
                                          QUrl(QStringLiteral("https://two.example/")),
                                          QUrl(QStringLiteral("https://three.example/"))};

/// Of a hundred answers, how many are successes.
constexpr std::array<std::size_t, 4> moods = {0, 10, 50, 100};

/// What the rules ask of an engine: what it knows, what it waits for and what it reports.
struct EngineRules {
    struct Delay {
        double seconds;
        bool confirming;
    };

    bool isPaused = false;
    bool isAsleep = false;
    std::optional<bool> path;
    /// Which cycle runs, and how many of its threeEndpoints have failed.
    bool cycleRuns = false;
    bool isConfirming = false;
    std::size_t failures = 0;
    std::optional<Delay> delay;
    ConnectionState state = ConnectionState::checking();
    std::vector<ConnectionState> reports;
    std::size_t probesBegun = 0;
    /// Of the probes that answer before the call that begins them returns.
    std::deque<Answer> immediateAnswers;

    bool mayCheck() const { return !isPaused && !isAsleep; }

    void report(const ConnectionState& next) {
        state = next;
        reports.push_back(next);
    }

    void rest() {
        cycleRuns = false;
        delay.reset();
    }

    void beginCycle(bool confirming) {
        rest();
        cycleRuns = true;
        isConfirming = confirming;
        failures = 0;
        for (std::size_t i = 0; i < threeEndpoints.size() && cycleRuns; ++i) {
            ++probesBegun;
            if (!immediateAnswers.empty()) {
                const Answer answer = immediateAnswers.front();
                immediateAnswers.pop_front();
                currentProbeAnswers(answer);
            }
        }
    }

    void currentProbeAnswers(Answer answer) {
        if (answer) {
            rest();
            report(ConnectionState::online(*answer));
            delay = {5, false};
        } else if (++failures == threeEndpoints.size()) {
            rest();
            report(isConfirming ? ConnectionState::offline() : ConnectionState::checking());
            delay = isConfirming ? Delay{3, false} : Delay{0.5, true};
        }
    }

    /// From whatever was before: offline where it is known that there is no path, else a check.
    void startAfresh() {
        rest();
        if (!mayCheck()) {
            return;
        }
        report(path == false ? ConnectionState::offline() : ConnectionState::checking());
        if (path != false) {
            beginCycle(false);
        }
    }
};

class ConnectivityEngineModelTest : public testing::Test {
  protected:
    struct Probe {
        std::shared_ptr<test::FakeProbe::Call> call;
        bool isOfRunningCycle = false;
        bool hasOwner = true;
    };

    ConnectivityEngineModelTest() {
        makeEngine();
        compare();
    }

    void makeEngine() {
        schedule_ = {};
        engine_ = std::make_unique<ConnectivityEngine>(fake_, threeEndpoints, schedule_);
        engine_->onChange = [this](const ConnectionState& state) {
            EXPECT_EQ(engine_->state(), state);
            reported_.push_back(state);
        };
        engine_->start();
        const auto immediateAnswers = rules_.immediateAnswers;
        rules_ = {};
        rules_.immediateAnswers = immediateAnswers;
        rules_.startAfresh();
    }

    Answer randomAnswer() {
        return random_.below(100) < successesInHundred_ ? Answer(1 + static_cast<std::int64_t>(random_.below(3000)))
                                                        : Answer();
    }

    const char* step() {
        if (random_.oneIn(8)) {
            for (std::size_t count = random_.below(2 * threeEndpoints.size()); count > 0; --count) {
                rules_.immediateAnswers.push_back(randomAnswer());
            }
        }
        fake_->synchronousAnswers = rules_.immediateAnswers;
        fake_->completesWhenCancelled = random_.oneIn(4);
        const char* name = event();
        compare();
        return name;
    }

    const char* event() {
        switch (random_.below(100)) {
        case 0:
        case 1:
            engine_->checkNow();
            if (!rules_.cycleRuns) {
                rules_.startAfresh();
            }
            return "checkNow";
        case 2:
        case 3:
            return pathChanged(random_.oneIn(2));
        case 4:
        case 5:
            rules_.isPaused = random_.oneIn(3);
            engine_->setPaused(rules_.isPaused);
            rules_.startAfresh();
            if (rules_.isPaused) {
                rules_.report(ConnectionState::paused());
            }
            return "setPaused";
        case 6:
            engine_->sleep();
            rules_.isAsleep = true;
            rules_.rest();
            if (!rules_.isPaused) {
                rules_.report(ConnectionState::checking());
            }
            return "sleep";
        case 7:
        case 8:
        case 9:
            engine_->wake();
            rules_.isAsleep = false;
            rules_.path.reset();
            rules_.startAfresh();
            return "wake";
        case 10:
            if (random_.oneIn(5)) {
                engine_->stop();
                rules_.isAsleep = true;
                rules_.rest();
                return "stop";
            }
            return pathChanged(true);
        case 11:
            return random_.oneIn(5) ? replaceEngine() : fireTimerOfEngineThatIsGone();
        case 12:
            successesInHundred_ = random_.anyOf(moods);
            return "another network";
        default:
            return rules_.delay ? fireTimer() : answerProbe();
        }
    }

    const char* pathChanged(bool available) {
        engine_->pathChanged(available);
        rules_.path = available;
        rules_.startAfresh();
        return available ? "pathChanged(true)" : "pathChanged(false)";
    }

    const char* replaceEngine() {
        const auto pending = schedule_.pending();
        ownerlessTimers_.insert(ownerlessTimers_.end(), pending.begin(), pending.end());
        for (Probe& probe : open_) {
            probe.hasOwner = false;
        }
        engine_.reset();
        makeEngine();
        return "the engine goes, another comes";
    }

    const char* fireTimerOfEngineThatIsGone() {
        for (const auto& timer : std::exchange(ownerlessTimers_, {})) {
            timer->action();
        }
        return "a timer of an engine that is gone";
    }

    const char* fireTimer() {
        const bool confirming = rules_.delay->confirming;
        schedule_.fire();
        rules_.beginCycle(confirming);
        return "the timer";
    }

    const char* answerProbe() {
        if (open_.empty()) {
            return "nothing";
        }
        const auto position = std::next(open_.begin(), static_cast<std::ptrdiff_t>(random_.below(open_.size())));
        const Probe probe = *position;
        open_.erase(position);
        const Answer answer = randomAnswer();
        probe.call->completion(answer);
        if (probe.isOfRunningCycle) {
            rules_.currentProbeAnswers(answer);
            return answer ? "a success" : "a failure";
        }
        return "an answer too late";
    }

    void compare() {
        EXPECT_EQ(engine_->state(), rules_.state);
        EXPECT_EQ(reported_, rules_.reports);
        const auto timers = schedule_.pending();
        ASSERT_EQ(timers.size(), rules_.delay ? 1U : 0U);
        if (rules_.delay) {
            EXPECT_EQ(timers.front()->interval, Seconds(rules_.delay->seconds));
        }
        compareProbes();
        const bool isBusy = !timers.empty() || std::any_of(open_.begin(), open_.end(),
                                                           [](const Probe& probe) { return probe.isOfRunningCycle; });
        EXPECT_EQ(isBusy, rules_.mayCheck() && rules_.path != false);
        reported_.clear();
        rules_.reports.clear();
        rules_.probesBegun = 0;
        rules_.immediateAnswers.clear();
        schedule_.forgetTheRest();
    }

    void compareProbes() {
        const auto begun = std::exchange(fake_->calls, {});
        ASSERT_EQ(begun.size(), rules_.probesBegun);
        for (Probe& probe : open_) {
            probe.isOfRunningCycle = probe.isOfRunningCycle && rules_.cycleRuns && begun.empty();
        }
        for (std::size_t i = 0; i < begun.size(); ++i) {
            EXPECT_EQ(begun[i]->url, threeEndpoints[i]);
            // Its handle was had only after the cycle had ended.
            EXPECT_TRUE(rules_.cycleRuns || begun[i]->cancellations > 0);
            open_.push_back({begun[i], rules_.cycleRuns});
        }
        for (const Probe& probe : open_) {
            if (probe.hasOwner && !probe.call->hasAnsweredByItself) {
                EXPECT_EQ(probe.call->cancellations > 0, !probe.isOfRunningCycle);
            }
        }
        std::erase_if(open_, [](const Probe& probe) { return probe.call->hasAnsweredByItself; });
        // Of those that nobody waits for any more a few are enough.
        if (open_.size() > 3 * threeEndpoints.size()) {
            open_.erase(open_.begin());
        }
    }

    test::RandomEvents random_{100'000};
    std::shared_ptr<test::FakeProbe> fake_ = std::make_shared<test::FakeProbe>();
    test::FakeSchedule schedule_;
    std::unique_ptr<ConnectivityEngine> engine_;
    EngineRules rules_;
    std::size_t successesInHundred_ = 50;
    std::vector<ConnectionState> reported_;
    /// Begun and not yet answered, the oldest first.
    std::vector<Probe> open_;
    std::vector<std::shared_ptr<test::FakeSchedule::Timer>> ownerlessTimers_;
};

TEST_F(ConnectivityEngineModelTest, FollowsTheRulesWhateverHappensInWhateverOrder) {
    random_.run([this] { return step(); });
}

} // namespace
} // namespace skylet
