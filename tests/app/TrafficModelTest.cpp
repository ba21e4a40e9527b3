#include "app/SkyletFixture.h"
#include "support/RandomEvents.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace skylet {
namespace {

// A time is a whole number of these, so that every difference between two is exact.
constexpr double ticksPerSecond = 1024;

struct Port {
    const char* name;
    /// Whether a port of this name counts while it is up and stands on no other.
    bool counts;
};
constexpr std::array ports = {Port{"enp3s0", true}, Port{"wlan0", true}, Port{"wwan0", true}, Port{"lo", false},
                              Port{"tun0", false},  Port{"br0", false},  Port{"eth1", true}};

/// What the rules ask of the sampler.
struct SamplerRules {
    struct Reading {
        std::uint64_t received = 0;
        std::uint64_t sent = 0;
        std::int64_t time = 0;
    };

    std::optional<Reading> baseline;
    double down = 0;
    double up = 0;
    bool isRunning = true;
    bool showTraffic = true;

    void forget() {
        baseline.reset();
        down = 0;
        up = 0;
    }

    void sample(const std::optional<std::vector<InterfaceCounter>>& interfaces, std::int64_t now) {
        Reading reading{.time = now};
        for (std::size_t i = 0; interfaces && i < ports.size(); ++i) {
            const InterfaceCounter& port = interfaces->at(i);
            const bool counts = ports.at(i).counts && port.up && !port.stacked;
            reading.received += counts ? port.receivedBytes : 0;
            reading.sent += counts ? port.sentBytes : 0;
        }
        if (baseline) {
            const double seconds = static_cast<double>(now - baseline->time) / ticksPerSecond;
            if (reading.received < baseline->received || reading.sent < baseline->sent) {
                down = up = 0;
            } else if (seconds > 0) {
                down = static_cast<double>(reading.received - baseline->received) / seconds;
                up = static_cast<double>(reading.sent - baseline->sent) / seconds;
            }
        }
        baseline = reading;
    }
};

QString bitRate(double bytesPerSecond) {
    const double bits = bytesPerSecond * 8;
    return bits < 1e3   ? QString::asprintf("%.0f", bits)
           : bits < 1e6 ? QString::asprintf("%.0fK", bits / 1e3)
                        : QString::asprintf("%.1fM", bits / 1e6);
}

class TrafficModelTest : public SkyletTest {
  protected:
    TrafficModelTest() {
        clock.uptime = Seconds(0);
        counters.interfaces.emplace();
        for (const Port& port : ports) {
            counters.interfaces->push_back({.name = QString::fromUtf8(port.name), .up = true});
        }
        startProgram();
    }

    void startProgram() {
        launch();
        rules_.isRunning = true;
        rules_.forget();
        rules_.sample(counters.interfaces, now_);
    }

    const char* step() {
        trafficFlows();
        now_ += random_.oneIn(4) ? 0 : static_cast<std::int64_t>(random_.below(4096));
        clock.uptime = Seconds(static_cast<double>(now_) / ticksPerSecond);
        const char* name = event();
        compare();
        return name;
    }

    /// On some ports; others come, go and begin anew.
    void trafficFlows() {
        if (!counters.interfaces) {
            counters.interfaces = std::exchange(hidden_, std::nullopt);
        }
        for (InterfaceCounter& port : *counters.interfaces) {
            port.receivedBytes += random_.below(random_.oneIn(4) ? 100'000'000 : 300);
            port.sentBytes += random_.below(random_.oneIn(4) ? 100'000'000 : 300);
            port.up = port.up != random_.oneIn(50);
            port.stacked = port.stacked != random_.oneIn(50);
            if (random_.oneIn(50)) {
                (random_.oneIn(2) ? port.receivedBytes : port.sentBytes) = random_.below(1000);
            }
        }
        if (random_.oneIn(40)) {
            hidden_ = std::exchange(counters.interfaces, std::nullopt);
        }
    }

    const char* event() {
        switch (random_.below(30)) {
        case 0:
            pathMonitor.report(random_.oneIn(2));
            rules_.forget();
            return "the path changes";
        case 1:
            sleepMonitor.sleep();
            rules_.forget();
            rules_.isRunning = false;
            return "sleep";
        case 2:
        case 3:
            sleepMonitor.wake();
            rules_.forget();
            rules_.isRunning = true;
            rules_.sample(counters.interfaces, now_);
            compareLine();
            return "wake";
        case 4:
            skylet->toggleTraffic();
            rules_.showTraffic = !rules_.showTraffic;
            compareLine();
            return "toggleTraffic";
        case 5:
            return random_.oneIn(20) ? restart() : "nothing";
        case 6:
            probe->complete(probe->calls.size() - 1, 87);
            return "online";
        default:
            return timerFires();
        }
    }

    const char* timerFires() {
        const auto timers = rateTimers.pending();
        if (timers.empty()) {
            return "nothing";
        }
        timers.front()->action();
        rules_.sample(counters.interfaces, now_);
        compareLine();
        return "a sample";
    }

    /// The program ends, and what it was waiting for comes too late.
    const char* restart() {
        const auto timers = rateTimers.pending();
        const auto report = pathMonitor.report;
        const auto wake = sleepMonitor.wake;
        if (random_.oneIn(2)) {
            skylet->applicationWillTerminate();
            EXPECT_EQ(rateTimers.pending().size(), 0U);
        }
        skylet.reset();
        calls.clear();
        for (const auto& timer : timers) {
            timer->action();
        }
        report(true);
        wake();
        EXPECT_EQ(calls, QStringList());
        rateTimers = {};
        makeSkylet();
        startProgram();
        return "a restart";
    }

    void compareLine() {
        EXPECT_EQ(item(rate)->title(),
                  QStringLiteral("Live traffic:  ↓ %1b/s   ↑ %2b/s").arg(bitRate(rules_.down), bitRate(rules_.up)));
        const bool isOnline = skylet->displayState().online == true;
        EXPECT_EQ(title().endsWith(QStringLiteral("↓%1 ↑%2").arg(bitRate(rules_.down), bitRate(rules_.up))),
                  isOnline && rules_.showTraffic);
    }

    void compare() {
        const DisplayState& state = skylet->displayState();
        EXPECT_DOUBLE_EQ(state.downRate, rules_.down);
        EXPECT_DOUBLE_EQ(state.upRate, rules_.up);
        EXPECT_EQ(state.showTraffic, rules_.showTraffic);
        EXPECT_EQ(defaults.stored.value(QStringLiteral("showTraffic"), true), rules_.showTraffic);
        const auto timers = rateTimers.pending();
        ASSERT_EQ(timers.size(), rules_.isRunning ? 1U : 0U);
        if (rules_.isRunning) {
            EXPECT_EQ(timers.front()->interval, Seconds(2));
        }
        rateTimers.forgetTheRest();
        schedule.forgetTheRest();
        calls.clear();
        tolerances.clear();
        probe->calls.erase(probe->calls.begin(), probe->calls.end() - 1);
    }

    test::RandomEvents random_{20'000};
    SamplerRules rules_;
    std::int64_t now_ = 0;
    /// While the system does not answer.
    std::optional<std::vector<InterfaceCounter>> hidden_;
};

TEST_F(TrafficModelTest, TheSamplerFollowsTheRulesWhateverHappensInWhateverOrder) {
    random_.run([this] { return step(); });
}

} // namespace
} // namespace skylet
