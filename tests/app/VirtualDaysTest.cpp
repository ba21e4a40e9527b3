#include "app/Skylet.h"
#include "support/FakeClock.h"
#include "support/FakeServices.h"
#include "support/FakeWindows.h"
#include "support/RandomEvents.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#ifdef __SANITIZE_ADDRESS__
// GCC has no header for it.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes(); // NOLINT(bugprone-reserved-identifier)
#else
#include <malloc.h>
#endif

namespace skylet {
namespace {

/// Milliseconds since the program's start; whole, so that days add up to nothing but themselves.
using Time = std::int64_t;
constexpr Time second = 1000;
constexpr Time hour = 3600 * second;
constexpr Time day = 24 * hour;

std::size_t allocatedBytes() {
#ifdef __SANITIZE_ADDRESS__
    return __sanitizer_get_current_allocated_bytes();
#else
    return mallinfo2().uordblks;
#endif
}

/// Who waits for something.
enum class Waiter { engine, exchange, sampler, banner, speedTest };

/// What is to happen, in the order of its time. Whatever waits for something is in here, and nowhere else.
class Agenda {
  public:
    using Action = std::function<void()>;

    Time now() const { return now_; }
    bool isEmpty() const { return entries_.empty(); }
    auto count(Waiter waiter) const {
        return std::count_if(entries_.begin(), entries_.end(),
                             [waiter](const auto& entry) { return entry.second.waiter == waiter; });
    }

    std::shared_ptr<Cancellation> add(Waiter waiter, Time delay, Action action) {
        const auto key = std::pair(now_ + delay, ++count_);
        entries_.emplace(key, Entry{waiter, std::move(action)});
        return std::make_shared<CancellationAction>([this, key] { entries_.erase(key); });
    }

    std::shared_ptr<Cancellation> addRepeating(Waiter waiter, Time interval, const Action& action) {
        const auto next = std::make_shared<std::shared_ptr<Cancellation>>();
        repeat(waiter, interval, action, next);
        return std::make_shared<CancellationAction>([next] { (*next)->cancel(); });
    }

    /// `beforeEach` learns of the time first.
    template <typename Function>
    void runUntil(Time end, Function beforeEach) {
        while (!entries_.empty() && entries_.begin()->first.first <= end) {
            now_ = entries_.begin()->first.first;
            beforeEach();
            entries_.extract(entries_.begin()).mapped().action();
        }
        now_ = end;
    }

  private:
    struct Entry {
        Waiter waiter;
        Action action;
    };

    void repeat(Waiter waiter, Time interval, const Action& action,
                const std::shared_ptr<std::shared_ptr<Cancellation>>& next) {
        *next = add(waiter, interval, [this, waiter, interval, action, next = std::weak_ptr(next)] {
            // The timer is there for as long as its handle.
            const auto still = next.lock();
            if (still) {
                repeat(waiter, interval, action, still);
                action();
            }
        });
    }

    Time now_ = 0;
    std::size_t count_ = 0;
    std::map<std::pair<Time, std::size_t>, Entry> entries_;
};

/// What the network is like.
enum class Network { good, slow, lossy, portal, dead, none };
constexpr std::array networks = {Network::good,   Network::slow, Network::lossy,
                                 Network::portal, Network::dead, Network::none};

/// Asks the network as it is, and remembers when it was asked and what it answered.
class Internet final : public ConnectivityProbing {
  public:
    Internet(Agenda& agenda, test::RandomEvents& random) : agenda_(agenda), random_(random) {}

    std::shared_ptr<Cancellation> probe(const QUrl& url, Completion completion) override {
        if (url.host() == QStringLiteral("one.example")) {
            lastButOneCycle_ = std::exchange(lastCycle_, {agenda_.now(), 0});
            ++cycles;
            if (beforeCycle) {
                beforeCycle();
            }
        }
        const auto [delay, answer] = exchange();
        return agenda_.add(Waiter::exchange, delay,
                           [this, answer = answer, completion = std::move(completion), cycle = lastCycle_.begun] {
                               if (!answer && cycle == lastCycle_.begun) {
                                   ++lastCycle_.failures;
                               }
                               lastAnswer = agenda_.now();
                               completion(answer);
                           });
    }

    /// Both endpoints failed in each of the last two cycles.
    bool hasFailedTwice() const { return lastCycle_.failures == 2 && lastButOneCycle_.failures == 2; }

    Network network = Network::good;
    std::int64_t cycles = 0;
    Time lastAnswer = 0;
    std::function<void()> beforeCycle;

  private:
    struct Cycle {
        Time begun = -1;
        int failures = 0;
    };

    std::pair<Time, std::optional<std::int64_t>> exchange() {
        const auto usual = static_cast<Time>(10 + random_.below(90));
        constexpr Time limit = 3 * second;
        switch (network) {
        case Network::good:
            return {usual, usual};
        case Network::slow:
            return {usual + 500, usual + 500};
        case Network::lossy:
            return random_.oneIn(2) ? std::pair(usual, std::optional(usual)) : std::pair(limit, std::nullopt);
        case Network::portal:
            return {usual, std::nullopt};
        case Network::dead:
            return {limit, std::nullopt};
        case Network::none:
            break;
        }
        return {1, std::nullopt};
    }

    Agenda& agenda_;
    test::RandomEvents& random_;
    Cycle lastCycle_;
    Cycle lastButOneCycle_;
};

/// The whole program but its windows, on a machine whose days pass in an instant.
class VirtualDaysTest : public testing::Test {
  protected:
    VirtualDaysTest() {
        defaults_.stored[QStringLiteral("didOnboard")] = true;
        const auto milliseconds = [](Seconds interval) { return static_cast<Time>(interval.count() * second); };
        const auto oneShot = [this, milliseconds](Waiter waiter) {
            return [this, milliseconds, waiter](Seconds interval, std::function<void()> action) {
                return agenda_.add(waiter, milliseconds(interval), std::move(action));
            };
        };
        Skylet::Services services{
            .application = application_,
            .pathMonitor = pathMonitor_,
            .sleepMonitor = sleepMonitor_,
            .interfaceCounters = counters_,
            .userDefaults = defaults_,
            .diagnosticLog = log_,
            .launchAgent = launchAgent_,
            .clock = clock_,
            .repeatingTimer =
                [this, milliseconds](Seconds interval, Seconds /*tolerance*/, auto action) {
                    return agenda_.addRepeating(Waiter::sampler, milliseconds(interval), action);
                },
            .oneShotTimer = oneShot(Waiter::banner),
            .makeSpeedTest = speedTests_.factory(),
            .windows = windows_,
        };
        const std::vector endpoints = {QUrl(QStringLiteral("https://one.example/generate_204")),
                                       QUrl(QStringLiteral("https://two.example/generate_204"))};
        skylet_ = std::make_unique<Skylet>(
            std::move(services), std::make_unique<ConnectivityEngine>(internet_, endpoints, oneShot(Waiter::engine)));
        internet_->beforeCycle = [this] { checkPace(); };
        skylet_->applicationDidFinishLaunching();
        pathMonitor_.report(true);
        expectsPace_ = true;
    }

    void TearDown() override {
        skylet_->applicationWillTerminate();
        EXPECT_TRUE(agenda_.isEmpty()) << "the end of the program leaves nothing behind";
    }

    Status status() const { return application_.shown->display.status; }

    void pass(Time duration) {
        agenda_.runUntil(agenda_.now() + duration, [this] {
            const Time now = agenda_.now();
            clock_.uptime = Seconds(static_cast<double>(now) / second);
            received_ += 1000;
            counters_.set(received_, received_ / 10);
            check();
            calls_.clear();
        });
        check();
    }

    /// After every event: before the next one.
    void check() {
        if (status() == Status::offline && !isReported_) {
            EXPECT_TRUE(internet_->network == Network::none || internet_->hasFailedTwice())
                << "false red after " << agenda_.now() << " ms";
            ++reds_;
        }
        isReported_ = status() == Status::offline;
        const bool isToCheck = !isAsleep_ && status() != Status::paused && internet_->network != Network::none;
        // A cycle is under way or awaited, never both.
        EXPECT_EQ(agenda_.count(Waiter::engine) + (agenda_.count(Waiter::exchange) > 0 ? 1 : 0), isToCheck ? 1 : 0)
            << "after " << agenda_.now() << " ms";
        EXPECT_LE(agenda_.count(Waiter::exchange), 2);
        EXPECT_EQ(agenda_.count(Waiter::sampler), isAsleep_ ? 0 : 1);
        EXPECT_LE(agenda_.count(Waiter::banner), 1);
    }

    /// Cycles that the program begins by itself follow the answer that decided the last one after 5, 0.5 or 3 seconds,
    /// however many there have been.
    void checkPace() {
        if (!expectsPace_) {
            return;
        }
        const Time since = agenda_.now() - internet_->lastAnswer;
        EXPECT_TRUE(since == 5 * second || since == second / 2 || since == 3 * second)
            << since << " ms after " << agenda_.now() << " ms";
    }

    void enter(Network network) {
        const bool hadPath = internet_->network != Network::none;
        internet_->network = network;
        if (network == Network::none || !hadPath || random_.oneIn(2)) {
            asked([&] { pathMonitor_.report(network != Network::none); });
        }
    }

    /// Something that makes the program check at once.
    template <typename Action>
    void asked(Action action) {
        expectsPace_ = false;
        action();
        expectsPace_ = true;
    }

    void sleep(Time duration) {
        sleepMonitor_.sleep();
        isAsleep_ = true;
        const auto cycles = internet_->cycles;
        pass(duration);
        EXPECT_EQ(internet_->cycles, cycles) << "asleep";
        if (duration > hour / 60) {
            EXPECT_TRUE(agenda_.isEmpty()) << "long asleep";
        }
        // It may wake up elsewhere, and hears of the new path only later.
        const Network network = random_.anyOf(networks);
        internet_->network = network == Network::none ? Network::good : network;
        asked([this] { sleepMonitor_.wake(); });
        isAsleep_ = false;
        pass(static_cast<Time>(random_.below(second)));
        enter(network);
    }

    void pause(Time duration) {
        skylet_->togglePause();
        pass(4 * second);
        const auto cycles = internet_->cycles;
        pass(duration);
        EXPECT_EQ(internet_->cycles, cycles) << "paused";
        EXPECT_EQ(status(), Status::paused);
        asked([this] { skylet_->togglePause(); });
    }

    void runSpeedTest() {
        skylet_->runSpeedTest();
        if (speedTests_.last != nullptr && speedTests_.last->running) {
            agenda_.add(Waiter::speedTest, 8600, [this] {
                if (speedTests_.last->running) {
                    speedTests_.last->finish(93.4, 11.0);
                }
            });
            // Under way, with its result on show, and long over.
            static constexpr std::array durations = {5 * second, 9 * second, 30 * second};
            pass(random_.anyOf(durations));
        }
    }

    void useTheProgram() {
        switch (random_.below(5)) {
        case 0:
            runSpeedTest();
            runSpeedTest();
            break;
        case 1:
            pause(static_cast<Time>(random_.below(2 * hour)));
            break;
        case 2:
            asked([this] { skylet_->checkNow(); });
            break;
        case 3:
            skylet_->toggleTraffic();
            break;
        default:
            skylet_->showAbout();
            break;
        }
    }

    void staysOnline(Time duration) {
        enter(Network::good);
        // A cycle on the old network may be under way, and three seconds behind it.
        pass(4 * second);
        pass(3 * second);
        EXPECT_TRUE(status() == Status::online) << "not green again after " << agenda_.now() << " ms";
        const auto before = internet_->cycles;
        const auto reds = reds_;
        pass(duration);
        EXPECT_EQ(reds_, reds) << "red on a good network";
        // One each 5.01 to 5.1 seconds.
        EXPECT_GE(internet_->cycles - before, duration / 5100 - 1);
        EXPECT_LE(internet_->cycles - before, duration / 5010 + 1);
    }

    void liveOneDay() {
        const bool isOffline = random_.oneIn(10);
        while (agenda_.now() % day < 16 * hour) {
            enter(isOffline ? Network::none : random_.anyOf(networks));
            pass(static_cast<Time>(random_.below(2 * hour)));
            useTheProgram();
            if (random_.oneIn(3)) {
                sleep(static_cast<Time>(random_.below(hour)));
            }
            if (!isOffline) {
                staysOnline(hour / 4);
            }
        }
        // What it knows of the path is of yesterday.
        enter(Network::none);
        sleep(day - agenda_.now() % day);
        staysOnline(hour / 2);
    }

    test::RandomEvents random_{2, 90, "SKYLET_VIRTUAL_DAYS"};
    Agenda agenda_;
    test::CallLog calls_;
    test::FakeApplication application_{calls_};
    test::FakePathMonitor pathMonitor_{calls_};
    test::FakeSleepMonitor sleepMonitor_{calls_};
    test::FakeInterfaceCounters counters_{calls_};
    test::FakeUserDefaults defaults_;
    test::FakeDiagnosticLog log_{calls_};
    test::FakeLaunchAgent launchAgent_;
    test::FakeClock clock_;
    test::FakeSpeedTests speedTests_{calls_};
    test::FakeWindows windows_{calls_};
    std::shared_ptr<Internet> internet_ = std::make_shared<Internet>(agenda_, random_);
    std::unique_ptr<Skylet> skylet_;
    std::uint64_t received_ = 0;
    bool isReported_ = false;
    bool expectsPace_ = false;
    bool isAsleep_ = false;
    std::int64_t reds_ = 0;
};

TEST_F(VirtualDaysTest, NeitherDriftNorGrowNorTurnRedForNothing) {
    std::optional<std::size_t> afterTheFirst;
    random_.run([&] {
        liveOneDay();
        const std::size_t bytes = allocatedBytes();
        EXPECT_LE(bytes, afterTheFirst.value_or(bytes) + 65'536) << "grows";
        afterTheFirst = afterTheFirst.value_or(bytes);
        return "a day";
    });
    std::cout << internet_->cycles << " cycles in " << agenda_.now() / hour << " hours, red " << reds_ << " times\n";
}

} // namespace
} // namespace skylet
