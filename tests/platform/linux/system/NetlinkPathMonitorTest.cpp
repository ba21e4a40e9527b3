#include "platform/linux/system/NetlinkPathMonitor.h"

#include "EventLoop.h"
#include "NetworkNamespace.h"
#include "platform/linux/system/FileDescriptor.h"

#include <QElapsedTimer>
#include <QProcess>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <thread>

namespace skylet::test {

namespace {

using namespace std::chrono_literals;

// What a report may take from the change on: 100 ms of gathering, and some for a busy machine.
constexpr auto promptly = 250ms;
// The kernel itself tells of a lost or found carrier up to a second late.
constexpr auto afterCarrierDelay = 1500ms;
constexpr auto longEnoughForAnotherReport = 200ms;

/// Keeps the process from opening another file, like a sandbox or a program that leaks.
class NoMoreDescriptors {
  public:
    NoMoreDescriptors() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const FileDescriptor next(dup(STDOUT_FILENO));
        // Not fewer than there are: poll(2) counts them too.
        rlimit none = before_;
        none.rlim_cur = static_cast<rlim_t>(next.get());
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    NoMoreDescriptors(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors(NoMoreDescriptors&&) = delete;
    NoMoreDescriptors& operator=(NoMoreDescriptors&&) = delete;

  private:
    rlimit before_{};
};

/// The longest time that passed between two turns of the event loop. What an idle thread had to wait meanwhile is the
/// machine's doing and comes off.
class LongestStall {
  public:
    LongestStall() {
        tick_.setTimerType(Qt::PreciseTimer);
        QObject::connect(&tick_, &QTimer::timeout, &tick_, [this] { note(sinceTurn_, longest_); });
        sinceTurn_.start();
        tick_.start(1ms);
    }
    ~LongestStall() {
        ended_ = true;
        idle_.join();
    }
    LongestStall(const LongestStall&) = delete;
    LongestStall& operator=(const LongestStall&) = delete;
    LongestStall(LongestStall&&) = delete;
    LongestStall& operator=(LongestStall&&) = delete;

    std::chrono::milliseconds value() const { return std::chrono::milliseconds(longest_ - longestIdle_); }

  private:
    static void note(QElapsedTimer& since, std::atomic<qint64>& longest) {
        longest = std::max<qint64>(longest, since.restart());
    }

    void idle() {
        QElapsedTimer since;
        since.start();
        while (!ended_) {
            std::this_thread::sleep_for(1ms);
            note(since, longestIdle_);
        }
    }

    QTimer tick_;
    QElapsedTimer sinceTurn_;
    std::atomic<qint64> longest_ = 0;
    std::atomic<qint64> longestIdle_ = 0;
    std::atomic<bool> ended_ = false;
    std::thread idle_{[this] { idle(); }};
};

class NetlinkPathMonitorTest : public testing::Test {
  protected:
    void SetUp() override {
        QString reason;
        namespace_ = NetworkNamespace::enter(reason);
        if (!namespace_) {
            GTEST_SKIP() << reason.toStdString();
        }
    }

    void start() {
        monitor_.start([this](bool satisfied) { reports_.push_back(satisfied); });
    }

    /// Starts, takes the first report and forgets it.
    void startFrom(bool satisfied) {
        start();
        ASSERT_TRUE(reported(promptly));
        ASSERT_EQ(takeReports(), std::vector{satisfied});
    }

    bool reported(std::chrono::milliseconds patience) {
        return waitUntil([this] { return !reports_.empty(); }, patience);
    }

    /// The reports so far, forgotten with this.
    std::vector<bool> takeReports() { return std::exchange(reports_, {}); }

    /// What is reported while nothing should be.
    std::vector<bool> reportsMeanwhile() {
        runFor(longEnoughForAnotherReport);
        return takeReports();
    }

    /// Waits for the one report that a change brings about, and that no second follows.
    std::vector<bool> reportsAfter(std::chrono::milliseconds patience = promptly) {
        reported(patience);
        return reportsMeanwhile();
    }

    std::unique_ptr<NetworkNamespace> namespace_;
    NetworkEpoch epoch_;
    std::vector<bool> reports_;
    NetlinkPathMonitor monitor_{epoch_};
};

} // namespace

TEST_F(NetlinkPathMonitorTest, ReportsOnceAtStartEvenWithoutARoute) {
    start();
    EXPECT_TRUE(reports_.empty()) << "never from inside start()";
    // Nothing is gathered before the first report.
    EXPECT_TRUE(reported(80ms));
    EXPECT_EQ(reportsAfter(), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, ReportsOnceAtStartWithARoute) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2");
    start();
    EXPECT_EQ(reportsAfter(), std::vector{true});
}

TEST_F(NetlinkPathMonitorTest, ReportsADefaultRouteThatComesAndGoes) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    namespace_->ip("route add default via 10.1.0.2");
    EXPECT_EQ(reportsAfter(), std::vector{true});
    namespace_->ip("route del default");
    EXPECT_EQ(reportsAfter(), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, AdvancesTheEpochBeforeEachReportButTheFirst) {
    namespace_->addUplink("wan", 1);
    std::vector<std::uint64_t> epochs;
    monitor_.start([&](bool) { epochs.push_back(epoch_.current()); });
    ASSERT_TRUE(waitUntil([&] { return epochs.size() == 1; }));
    namespace_->ip("route add default via 10.1.0.2");
    ASSERT_TRUE(waitUntil([&] { return epochs.size() == 2; }));
    namespace_->ip("route del default");
    ASSERT_TRUE(waitUntil([&] { return epochs.size() == 3; }));
    EXPECT_EQ(epochs, (std::vector<std::uint64_t>{0, 1, 2}));
}

TEST_F(NetlinkPathMonitorTest, NoticesRoutesThatVanishWithTheirLinkAlthoughNoRouteMessageComes) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2");
    startFrom(true);
    namespace_->ip("link set wan down");
    EXPECT_EQ(reportsAfter(), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, NoticesRoutesThatVanishWithTheirAddress) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("addr add 10.1.0.77/32 dev wan");
    namespace_->ip("route add default via 10.1.0.2 src 10.1.0.77");
    startFrom(true);
    namespace_->ip("addr del 10.1.0.77/32 dev wan");
    EXPECT_EQ(reportsAfter(), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, NoticesRoutesThatVanishWithTheirNextHopObject) {
    namespace_->addUplink("wan", 1);
    if (!namespace_->ip("nexthop add id 1 via 10.1.0.2 dev wan")) {
        GTEST_SKIP() << "no next-hop objects here";
    }
    namespace_->ip("route add default nhid 1");
    startFrom(true);
    namespace_->ip("nexthop del id 1");
    EXPECT_EQ(reportsAfter(), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, ReportsALostCarrierAndItsReturn) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2");
    startFrom(true);
    namespace_->ip("link set wan-far down");
    EXPECT_EQ(reportsAfter(afterCarrierDelay), std::vector{false});
    namespace_->ip("link set wan-far up");
    EXPECT_EQ(reportsAfter(afterCarrierDelay), std::vector{true});
}

TEST_F(NetlinkPathMonitorTest, ATunnelIsAWayOutOnlyWhileSomebodyHoldsItsOtherEnd) {
    if (!namespace_->ip("tuntap add tunnel mode tun")) {
        GTEST_SKIP() << "no TUN devices here";
    }
    namespace_->ip("link set tunnel up");
    namespace_->ip("route add default dev tunnel");
    startFrom(false);
    FileDescriptor farEnd(open("/dev/net/tun", O_RDWR | O_CLOEXEC));
    ifreq request{.ifr_ifrn = {"tunnel"}, .ifr_ifru = {}};
    request.ifr_flags = IFF_TUN;
    ASSERT_EQ(ioctl(farEnd.get(), TUNSETIFF, &request), 0);
    EXPECT_EQ(reportsAfter(afterCarrierDelay), std::vector{true});
    farEnd = FileDescriptor();
    // The kernel first tells that the carrier is gone, then that the link does not run.
    EXPECT_TRUE(waitUntil([this] { return !reports_.empty() && !reports_.back(); }, afterCarrierDelay));
}

TEST_F(NetlinkPathMonitorTest, ReportsAMoveToAnotherLinkAlthoughBothStayUp) {
    namespace_->addUplink("wan", 1);
    namespace_->addUplink("lte", 2);
    namespace_->ip("route add default via 10.1.0.2");
    startFrom(true);
    namespace_->ip("route replace default via 10.2.0.2");
    EXPECT_EQ(reportsAfter(), std::vector{true});
    EXPECT_EQ(epoch_.current(), 1U);
}

TEST_F(NetlinkPathMonitorTest, ReportsAnotherGatewayOnTheSameLink) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2");
    startFrom(true);
    namespace_->ip("route replace default via 10.1.0.3");
    EXPECT_EQ(reportsAfter(), std::vector{true});
}

TEST_F(NetlinkPathMonitorTest, ReportsAnotherMetric) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2 metric 100");
    startFrom(true);
    namespace_->batch("route add default via 10.1.0.2 metric 600\nroute del default via 10.1.0.2 metric 100\n");
    EXPECT_EQ(reportsAfter(), std::vector{true});
}

TEST_F(NetlinkPathMonitorTest, ReportsASecondDefaultRouteAndItsEnd) {
    namespace_->addUplink("wan", 1);
    namespace_->addUplink("lte", 2);
    namespace_->ip("route add default via 10.1.0.2 metric 100");
    startFrom(true);
    namespace_->ip("route add default via 10.2.0.2 metric 600");
    EXPECT_EQ(reportsAfter(), std::vector{true});
    namespace_->ip("link set lte down");
    EXPECT_EQ(reportsAfter(), std::vector{true});
}

TEST_F(NetlinkPathMonitorTest, IPv6AloneIsAWayOut) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    if (!namespace_->ip("-6 route add default via fd00:1::2")) {
        GTEST_SKIP() << "no IPv6 here";
    }
    EXPECT_EQ(reportsAfter(), std::vector{true});
    namespace_->ip("-6 route del default");
    EXPECT_EQ(reportsAfter(), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, ARouterAdvertisementThatOnlyProlongsLifetimesIsNoChange) {
    namespace_->addUplink("wan", 1);
    if (!namespace_->ip("-6 route add default via fd00:1::2 expires 600")) {
        GTEST_SKIP() << "no IPv6 here";
    }
    startFrom(true);
    namespace_->ip("-6 route replace default via fd00:1::2 expires 1200");
    namespace_->ip("addr change fd00:1::1/64 dev wan valid_lft 900 preferred_lft 800");
    EXPECT_EQ(reportsMeanwhile(), std::vector<bool>{});
}

TEST_F(NetlinkPathMonitorTest, OneDeadHopOfAMultipathRouteIsAChangeButNotTheEnd) {
    namespace_->addUplink("wan", 1);
    namespace_->addUplink("lte", 2);
    namespace_->ip("route add default nexthop via 10.1.0.2 nexthop via 10.2.0.2");
    startFrom(true);
    namespace_->ip("link set lte-far down");
    EXPECT_EQ(reportsAfter(afterCarrierDelay), std::vector{true});
    namespace_->ip("link set wan-far down");
    EXPECT_EQ(reportsAfter(afterCarrierDelay), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, ARouteThatRefusesIsNoWayOut) {
    namespace_->ip("route add unreachable default");
    startFrom(false);
}

TEST_F(NetlinkPathMonitorTest, ADefaultRouteOfAnotherTableIsAWayOut) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    namespace_->ip("route add default via 10.1.0.2 table 51820");
    EXPECT_EQ(reportsAfter(), std::vector{true});
}

TEST_F(NetlinkPathMonitorTest, RoutesToOtherPlacesAreNoChange) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    namespace_->ip("route add 192.0.2.0/24 via 10.1.0.2");
    namespace_->ip("route add 0.0.0.0/1 via 10.1.0.2");
    EXPECT_EQ(reportsMeanwhile(), std::vector<bool>{});
}

TEST_F(NetlinkPathMonitorTest, ABurstOfChangesIsReportedOnceAndInTime) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    QByteArray burst;
    for (int i = 0; i < 50; ++i) {
        burst += "route replace default via 10.1.0." + QByteArray::number(2 + i) + "\n";
    }
    namespace_->batch(burst);
    EXPECT_TRUE(reported(promptly));
    // The first look may fall into a burst that takes the kernel longer than 100 ms.
    runFor(longEnoughForAnotherReport);
    EXPECT_LE(takeReports().size(), 2U);
}

TEST_F(NetlinkPathMonitorTest, ChangesThatGoOnAndOnDoNotPutTheReportOff) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    QProcess changes;
    changes.start(
        QStringLiteral("sh"),
        {QStringLiteral("-c"), QStringLiteral("for i in $(seq 2 99); do ip route replace default via 10.1.0.$i;"
                                              " sleep 0.02; done")});
    ASSERT_TRUE(changes.waitForStarted());
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_TRUE(waitUntil([this] { return reports_.size() >= 3; }, 1000ms));
    EXPECT_EQ(changes.state(), QProcess::Running);
    changes.terminate();
    changes.waitForFinished();
}

TEST_F(NetlinkPathMonitorTest, AFloodOfRouteMessagesStallsNothingAndEndsInTheRightState) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    QByteArray flood;
    for (int i = 0; i < 20'000; ++i) {
        flood +=
            "route add 20." + QByteArray::number(i / 250) + "." + QByteArray::number(i % 250) + ".0/24 via 10.1.0.2\n";
        if (i % 100 == 0) {
            flood += "route replace default via 10.1.0." + QByteArray::number(2 + i % 7) + "\n";
        }
    }
    flood += "route del default\nroute add default via 10.1.0.2 table 100\n";
    QProcess writer;
    LongestStall stall;
    writer.start(QStringLiteral("ip"), {QStringLiteral("-batch"), QStringLiteral("-")});
    writer.write(flood);
    writer.closeWriteChannel();
    ASSERT_TRUE(waitUntil([&] { return writer.state() == QProcess::NotRunning; }, 30s));
    ASSERT_EQ(writer.exitCode(), 0);
    runFor(longEnoughForAnotherReport);
    EXPECT_LT(stall.value(), 100ms);
    EXPECT_TRUE(takeReports().back());
    namespace_->ip("route flush table 100");
    EXPECT_EQ(reportsAfter(), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, MessagesThatTheSocketHadNoRoomForAreMadeUpFor) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    QByteArray overflow;
    for (int i = 0; i < 3'000; ++i) {
        overflow +=
            "route add 20." + QByteArray::number(i / 250) + "." + QByteArray::number(i % 250) + ".0/24 via 10.1.0.2\n";
    }
    overflow += "route add default via 10.1.0.2\n";
    // The event loop does not run meanwhile, so the socket overflows and the last message is lost.
    namespace_->batch(overflow);
    EXPECT_EQ(reportsAfter(1s), std::vector{true});
}

TEST_F(NetlinkPathMonitorTest, NothingIsReportedAfterCancel) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    monitor_.cancel();
    monitor_.cancel();
    namespace_->ip("route add default via 10.1.0.2");
    EXPECT_EQ(reportsMeanwhile(), std::vector<bool>{});
}

TEST_F(NetlinkPathMonitorTest, NothingIsReportedWhenCancelledBeforeTheFirstReport) {
    start();
    monitor_.cancel();
    EXPECT_EQ(reportsMeanwhile(), std::vector<bool>{});
}

TEST_F(NetlinkPathMonitorTest, NothingIsReportedWhenCancelledWhileAChangeIsGathered) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    namespace_->ip("route add default via 10.1.0.2");
    runFor(20ms);
    monitor_.cancel();
    EXPECT_EQ(reportsMeanwhile(), std::vector<bool>{});
}

TEST_F(NetlinkPathMonitorTest, TheHandlerMayCancel) {
    int count = 0;
    monitor_.start([&](bool) {
        ++count;
        monitor_.cancel();
    });
    ASSERT_TRUE(waitUntil([&] { return count == 1; }, promptly));
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2");
    runFor(longEnoughForAnotherReport);
    EXPECT_EQ(count, 1);
}

TEST_F(NetlinkPathMonitorTest, StartsAnewAfterCancel) {
    startFrom(false);
    monitor_.cancel();
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2");
    startFrom(true);
    EXPECT_EQ(epoch_.current(), 0U);
}

TEST_F(NetlinkPathMonitorTest, WithoutANetlinkSocketItAssumesAWayOutOnceAndKeepsTrying) {
    {
        const NoMoreDescriptors sandbox;
        start();
        EXPECT_TRUE(reports_.empty());
        EXPECT_TRUE(reported(promptly));
        runFor(1200ms);
        EXPECT_EQ(takeReports(), std::vector{true});
    }
    EXPECT_TRUE(reported(1500ms));
    EXPECT_EQ(takeReports(), std::vector{false});
    EXPECT_EQ(epoch_.current(), 1U);
}

TEST_F(NetlinkPathMonitorTest, ALookThatFailsIsRepeated) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    namespace_->ip("route add default via 10.1.0.2");
    {
        const NoMoreDescriptors shortage;
        runFor(longEnoughForAnotherReport);
        EXPECT_EQ(takeReports(), std::vector<bool>{});
    }
    EXPECT_TRUE(reported(1500ms));
    EXPECT_EQ(takeReports(), std::vector{true});
}

} // namespace skylet::test
