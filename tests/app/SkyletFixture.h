#pragma once

#include "app/Skylet.h"
#include "support/FakeClock.h"
#include "support/FakeProbe.h"
#include "support/FakeSchedule.h"
#include "support/FakeServices.h"
#include "support/FakeWindows.h"
#include "support/QStringPrinting.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace skylet {

/// The application object among fakes that log what it asks of them. The user has been welcomed before.
class SkyletTest : public testing::Test {
  protected:
    SkyletTest() {
        defaults.stored[QStringLiteral("didOnboard")] = true;
        makeSkylet();
    }

    void makeSkylet() {
        auto loggedProbe = std::make_shared<LoggedProbe>(calls, probe);
        const auto logged = [this](const QString& name, const std::shared_ptr<Cancellation>& handle) {
            return std::make_shared<CancellationAction>([this, name, handle] {
                calls += name;
                handle->cancel();
            });
        };
        Skylet::Services services{
            .application = application,
            .pathMonitor = pathMonitor,
            .sleepMonitor = sleepMonitor,
            .interfaceCounters = counters,
            .userDefaults = defaults,
            .diagnosticLog = log,
            .launchAgent = launchAgent,
            .clock = clock,
            .repeatingTimer =
                [this, logged](Seconds interval, Seconds tolerance, auto action) {
                    calls += QStringLiteral("rateTimer.start");
                    tolerances.push_back(tolerance);
                    return logged(QStringLiteral("rateTimer.cancel"), rateTimers(interval, std::move(action)));
                },
            .oneShotTimer =
                [this, logged](Seconds interval, auto action) {
                    return logged(QStringLiteral("bannerTimer.cancel"), bannerTimers(interval, std::move(action)));
                },
            .makeSpeedTest = speedTests.factory(),
            .windows = windows,
        };
        auto owned = std::make_unique<ConnectivityEngine>(
            std::move(loggedProbe), std::vector<QUrl>{QUrl(QStringLiteral("https://one.example/generate_204"))},
            [this, logged](Seconds interval, std::function<void()> action) {
                return logged(QStringLiteral("engineTimer.cancel"), schedule(interval, std::move(action)));
            });
        engine = owned.get();
        skylet = std::make_unique<Skylet>(std::move(services), std::move(owned));
    }

    void launch() {
        skylet->applicationDidFinishLaunching();
        calls.clear();
    }

    void goOnline(std::int64_t latency = 87) {
        probe->complete(probe->calls.size() - 1, latency);
        calls.clear();
    }

    /// Lets the rate timer fire two seconds later, with the given totals.
    void sample(std::uint64_t received, std::uint64_t sent) {
        counters.set(received, sent);
        clock.uptime += Seconds(2);
        rateTimers.pending().front()->action();
    }

    /// Without the gap after the dot.
    QString title() const {
        QString text;
        for (const auto& segment : application.shown->display.title) {
            text += segment.text;
        }
        return text.mid(2);
    }

    std::shared_ptr<MenuItem> item(int index) const {
        return application.shown->menu.at(static_cast<std::size_t>(index));
    }

    /// Passes probes on and logs them among the calls.
    class LoggedProbe final : public ConnectivityProbing {
      public:
        LoggedProbe(test::CallLog& calls, std::shared_ptr<test::FakeProbe> probe)
            : calls_(calls), probe_(std::move(probe)) {}
        std::shared_ptr<Cancellation> probe(const QUrl& url, Completion completion) override {
            calls_ += QStringLiteral("probe");
            return probe_->probe(url, std::move(completion));
        }

      private:
        test::CallLog& calls_;
        std::shared_ptr<test::FakeProbe> probe_;
    };

    // The menu from top to bottom.
    enum {
        status,
        rate,
        speed,
        separator1,
        runTest,
        check,
        separator2,
        traffic,
        pause,
        login,
        separator3,
        about,
        quit
    };

    test::CallLog calls;
    test::FakeApplication application{calls};
    test::FakePathMonitor pathMonitor{calls};
    test::FakeSleepMonitor sleepMonitor{calls};
    test::FakeInterfaceCounters counters{calls};
    test::FakeUserDefaults defaults;
    test::FakeDiagnosticLog log{calls};
    test::FakeLaunchAgent launchAgent;
    test::FakeClock clock;
    test::FakeSchedule schedule;
    test::FakeSchedule rateTimers;
    test::FakeSchedule bannerTimers;
    test::FakeSpeedTests speedTests{calls};
    test::FakeWindows windows{calls};
    std::vector<Seconds> tolerances;
    std::shared_ptr<test::FakeProbe> probe = std::make_shared<test::FakeProbe>();
    /// Owned by `skylet`.
    ConnectivityEngine* engine = nullptr;
    std::unique_ptr<Skylet> skylet;
};

} // namespace skylet
