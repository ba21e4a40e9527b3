#include "platform/linux/statusitem/host/StatusHostMonitor.h"

#include "platform/linux/statusitem/host/FakeStatusHost.h"
#include "support/EventLoop.h"
#include "support/PrivateBus.h"
#include "support/QStringPrinting.h"

#include <QCoreApplication>
#include <QDBusMessage>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>

namespace skylet {
namespace {

using test::callAndWait;
using test::PrivateBus;
using test::waitUntil;

TEST(StatusHostEnvironment, ReadsTheNameOfAProcess) {
    const auto processName = StatusHostEnvironment::system().processName;
    // The kernel keeps 15 characters of it.
    EXPECT_EQ(processName(static_cast<uint>(QCoreApplication::applicationPid())), QStringLiteral("linux_desktop_t"));
    EXPECT_EQ(processName(0), QString());
    EXPECT_EQ(processName(4'000'000'000), QString());
}

class StatusHostMonitorTest : public testing::Test {
  protected:
    void start(const QString& desktop = {}) {
        StatusHostEnvironment environment;
        // All connections of a test belong to one process, whose name is what the test wants it to be at the moment.
        environment.processName = [this](uint /*processId*/) { return processName_; };
        environment.currentDesktop = desktop;
        environment.panelsStandUpright = [] { return false; };
        monitor_ = std::make_unique<StatusHostMonitor>(bus_.connect(), environment);
        QObject::connect(monitor_.get(), &StatusHostMonitor::changed, monitor_.get(), [this] { ++changes_; });
        monitor_->start();
    }

    QDBusConnection owning(const QString& name) {
        QDBusConnection connection = bus_.connect();
        EXPECT_TRUE(connection.registerService(name));
        return connection;
    }

    bool changesReach(int count) {
        return waitUntil([this, count] { return changes_ >= count; });
    }

    /// Everything that the monitor asked for has been answered when a question asked after it is.
    void settle() {
        for (int round = 0; round < 4; ++round) {
            callAndWait(asker_, QDBusMessage::createMethodCall(
                                    QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                                    QStringLiteral("org.freedesktop.DBus"), QStringLiteral("ListNames")));
            QCoreApplication::processEvents();
        }
    }

    const QString watcherName_ = QStringLiteral("org.kde.StatusNotifierWatcher");
    const QString hostName_ = QStringLiteral("org.kde.StatusNotifierHost-42");
    PrivateBus bus_;
    QDBusConnection asker_ = bus_.connect();
    QString processName_;
    std::unique_ptr<StatusHostMonitor> monitor_;
    int changes_ = 0;
};

TEST_F(StatusHostMonitorTest, FindsTheWatcherThatIsThereWithoutTheEventLoop) {
    const QDBusConnection watcher = owning(watcherName_);
    processName_ = QStringLiteral("gnome-shell");
    start();
    EXPECT_EQ(changes_, 1);
    EXPECT_EQ(monitor_->watcherOwner(), watcher.baseService());
    EXPECT_EQ(monitor_->presentation(), Presentation::label);
    EXPECT_TRUE(monitor_->traitsOfConnection(watcher.baseService()).opensMenu);
}

TEST_F(StatusHostMonitorTest, ReportsNothingWhileNobodyIsThere) {
    start();
    settle();
    EXPECT_EQ(changes_, 0);
    EXPECT_TRUE(monitor_->watcherOwner().isEmpty());
}

TEST_F(StatusHostMonitorTest, DecidesAnewForEachOwnerOfTheWatchersName) {
    processName_ = QStringLiteral("panel-2-systray");
    start();
    QDBusConnection first = owning(watcherName_);
    ASSERT_TRUE(changesReach(1));
    EXPECT_EQ(monitor_->presentation(), Presentation::badge);
    first.unregisterService(watcherName_);
    ASSERT_TRUE(changesReach(2));
    EXPECT_TRUE(monitor_->watcherOwner().isEmpty());
    processName_ = QStringLiteral("gnome-shell");
    const QDBusConnection second = owning(watcherName_);
    ASSERT_TRUE(waitUntil([&] { return monitor_->watcherOwner() == second.baseService(); }));
    EXPECT_EQ(monitor_->presentation(), Presentation::label);
}

TEST_F(StatusHostMonitorTest, LetsAHostDecideThatComesAfterTheWatcher) {
    processName_ = QStringLiteral("kded5");
    start();
    const QDBusConnection watcher = owning(watcherName_);
    ASSERT_TRUE(changesReach(1));
    EXPECT_EQ(monitor_->presentation(), Presentation::badge);
    // From now on both have this name; the watcher's own is not what counts.
    processName_ = QStringLiteral("gnome-shell");
    QDBusConnection host = owning(hostName_);
    ASSERT_TRUE(changesReach(2));
    EXPECT_EQ(monitor_->presentation(), Presentation::label);
    EXPECT_EQ(monitor_->watcherOwner(), watcher.baseService());
    processName_ = QStringLiteral("kded5");
    host.unregisterService(hostName_);
    ASSERT_TRUE(changesReach(3));
    EXPECT_EQ(monitor_->presentation(), Presentation::badge);
}

TEST_F(StatusHostMonitorTest, GoesByTheHostAndNotByTheWatcherBesideIt) {
    const QDBusConnection watcher = owning(watcherName_);
    const QDBusConnection host = owning(hostName_);
    for (const bool labelFirst : {true, false}) {
        StatusHostEnvironment environment;
        // Which of the two is asked for first is the bus's affair; they differ at any rate.
        environment.processName = [label = labelFirst](uint /*processId*/) mutable {
            label = !label;
            return label ? QStringLiteral("lxqt-panel") : QStringLiteral("mate-panel");
        };
        StatusHostMonitor monitor(bus_.connect(), environment);
        monitor.start();
        ASSERT_TRUE(waitUntil([&] { return !monitor.watcherOwner().isEmpty(); }));
        const Presentation hostsPresentation = monitor.traitsOfConnection(host.baseService()).presentation;
        EXPECT_NE(hostsPresentation, monitor.traitsOfConnection(watcher.baseService()).presentation);
        EXPECT_EQ(monitor.presentation(), hostsPresentation);
    }
}

TEST_F(StatusHostMonitorTest, IsNotMisledByAnswersAboutAWatcherThatHasGoneSince) {
    start();
    QDBusConnection watcher = bus_.connect();
    for (int round = 0; round < 40; ++round) {
        ASSERT_TRUE(watcher.registerService(watcherName_));
        // The watcher goes at a different point of the questions about it in each round.
        const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(25) * round;
        while (std::chrono::steady_clock::now() < until) {
            QCoreApplication::processEvents();
        }
        ASSERT_TRUE(watcher.unregisterService(watcherName_));
        settle();
        ASSERT_TRUE(monitor_->watcherOwner().isEmpty()) << "round " << round;
    }
}

TEST_F(StatusHostMonitorTest, FindsTheWatcherThoughHostsComeAndGoWithoutEnd) {
    start();
    const QDBusConnection watcher = owning(watcherName_);
    QDBusConnection host = bus_.connect();
    for (int round = 0; round < 1000 && monitor_->watcherOwner().isEmpty(); ++round) {
        ASSERT_TRUE(host.registerService(hostName_));
        ASSERT_TRUE(host.unregisterService(hostName_));
        QCoreApplication::processEvents();
    }
    EXPECT_EQ(monitor_->watcherOwner(), watcher.baseService());
}

TEST_F(StatusHostMonitorTest, ChoosesTheBadgeWhereSeveralHostsShowTheTitleInDifferentWays) {
    const QDBusConnection watcher = owning(watcherName_);
    const QDBusConnection one = owning(hostName_);
    const QDBusConnection other = owning(QStringLiteral("org.kde.StatusNotifierHost-43"));
    StatusHostEnvironment environment;
    int asked = 0;
    // Whichever of the three is asked for first: one of the two hosts at least is an lxqt-panel.
    environment.processName = [&asked](uint /*processId*/) {
        return ++asked == 1 ? QStringLiteral("mate-panel") : QStringLiteral("lxqt-panel");
    };
    environment.currentDesktop = QStringLiteral("MATE");
    StatusHostMonitor monitor(bus_.connect(), environment);
    EXPECT_EQ(monitor.presentation(), Presentation::wide);
    monitor.start();
    ASSERT_TRUE(waitUntil([&] { return !monitor.watcherOwner().isEmpty(); }));
    EXPECT_EQ(asked, 3);
    EXPECT_EQ(monitor.presentation(), Presentation::badge);
}

TEST_F(StatusHostMonitorTest, GoesByTheDesktopWhereTheProcessCannotBeSeen) {
    const QDBusConnection watcher = owning(watcherName_);
    start(QStringLiteral("ubuntu:GNOME"));
    ASSERT_TRUE(changesReach(1));
    EXPECT_EQ(monitor_->presentation(), Presentation::label);
}

TEST_F(StatusHostMonitorTest, LetsTheDesktopDecideWhereAProxyTakesTheItems) {
    processName_ = QStringLiteral("xapp-sn-watcher");
    const QDBusConnection watcher = owning(watcherName_);
    start(QStringLiteral("X-Cinnamon"));
    ASSERT_TRUE(changesReach(1));
    EXPECT_EQ(monitor_->presentation(), Presentation::wide);
    start(QStringLiteral("XFCE"));
    ASSERT_TRUE(changesReach(2));
    EXPECT_EQ(monitor_->presentation(), Presentation::badge);
}

TEST_F(StatusHostMonitorTest, TakesAWatcherThatSaysNothingOfHostsForAHost) {
    const QDBusConnection watcher = owning(watcherName_);
    start();
    ASSERT_TRUE(changesReach(1));
    settle();
    EXPECT_TRUE(monitor_->hasHost());
}

TEST_F(StatusHostMonitorTest, KnowsAWatcherThatHasNoHost) {
    FakeStatusHost watcher(bus_.connect());
    watcher.saysHostIsRegistered = false;
    watcher.appear();
    start();
    ASSERT_TRUE(waitUntil([this] { return changes_ > 1; }));
    EXPECT_FALSE(monitor_->hasHost());
    EXPECT_FALSE(monitor_->watcherOwner().isEmpty());
    watcher.saysHostIsRegistered = true;
    watcher.tellOfHosts();
    EXPECT_TRUE(waitUntil([this] { return monitor_->hasHost(); }));
    watcher.saysHostIsRegistered = false;
    watcher.tellOfHosts();
    EXPECT_TRUE(waitUntil([this] { return !monitor_->hasHost(); }));
    const int changes = changes_;
    const QDBusConnection host = owning(hostName_);
    EXPECT_TRUE(waitUntil([this] { return monitor_->hasHost(); }));
    EXPECT_EQ(changes_, changes + 1);
}

TEST_F(StatusHostMonitorTest, SeesTheLastHostGoWhereOnlyAPropertyChanges) {
    processName_ = QStringLiteral("xapp-sn-watcher");
    FakeStatusHost watcher(bus_.connect());
    watcher.saysHostIsRegistered = true;
    watcher.appear();
    start(QStringLiteral("X-Cinnamon"));
    ASSERT_TRUE(changesReach(1));
    settle();
    ASSERT_TRUE(monitor_->hasHost());
    watcher.saysHostIsRegistered = false;
    watcher.tellOfProperties();
    EXPECT_TRUE(waitUntil([this] { return !monitor_->hasHost(); }));
}

TEST_F(StatusHostMonitorTest, TellsOfAHostThatComesThoughNothingElseChanges) {
    FakeStatusHost watcher(bus_.connect());
    watcher.saysHostIsRegistered = false;
    watcher.appear();
    start();
    ASSERT_TRUE(changesReach(2));
    ASSERT_FALSE(monitor_->hasHost());
    const QDBusConnection host = owning(hostName_);
    ASSERT_TRUE(changesReach(3));
    EXPECT_TRUE(monitor_->hasHost());
}

TEST_F(StatusHostMonitorTest, DoesNotBelievePlasmasServiceDaemonThatThereIsAHost) {
    processName_ = QStringLiteral("kded5");
    FakeStatusHost watcher(bus_.connect());
    watcher.saysHostIsRegistered = true;
    watcher.appear();
    start();
    ASSERT_TRUE(changesReach(1));
    settle();
    EXPECT_FALSE(monitor_->hasHost());
    EXPECT_EQ(monitor_->watcherOwner(), watcher.connection().baseService());
    QDBusConnection shell = owning(hostName_);
    ASSERT_TRUE(changesReach(2));
    EXPECT_TRUE(monitor_->hasHost());
    shell.unregisterService(hostName_);
    ASSERT_TRUE(changesReach(3));
    EXPECT_FALSE(monitor_->hasHost());
    settle();
    EXPECT_EQ(changes_, 3);
}

TEST_F(StatusHostMonitorTest, HasNoHostWithoutAWatcher) {
    const QDBusConnection host = owning(hostName_);
    start();
    settle();
    EXPECT_FALSE(monitor_->hasHost());
}

TEST_F(StatusHostMonitorTest, DoesNotMindOtherNames) {
    start();
    settle();
    const QDBusConnection item = owning(QStringLiteral("org.kde.StatusNotifierItem-7-1"));
    const QDBusConnection program = owning(QStringLiteral("org.kde.kate"));
    settle();
    EXPECT_EQ(changes_, 0);
}

TEST_F(StatusHostMonitorTest, GoesQuietlyWithAnswersUnderWay) {
    FakeStatusHost watcher(bus_.connect());
    watcher.saysHostIsRegistered = false;
    watcher.appear();
    start();
    monitor_.reset();
    settle();
    EXPECT_EQ(changes_, 1);
}

TEST_F(StatusHostMonitorTest, ReportsNothingWithoutABus) {
    monitor_ = std::make_unique<StatusHostMonitor>(QDBusConnection(QStringLiteral("none")),
                                                   StatusHostEnvironment{[](uint) { return QString(); }, {}, {}});
    monitor_->start();
    settle();
    EXPECT_TRUE(monitor_->watcherOwner().isEmpty());
}

} // namespace
} // namespace skylet
