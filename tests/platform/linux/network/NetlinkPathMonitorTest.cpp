#include "platform/linux/network/NetlinkPathMonitor.h"

#include "NetworkNamespace.h"
#include "platform/linux/system/FileDescriptor.h"
#include "support/EventLoop.h"
#include "support/Timing.h"

#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QProcess>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/if_tun.h>
#include <sys/ioctl.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstring>
#include <ctime>

namespace skylet::test {

namespace {

using namespace std::chrono_literals;

// What a report may take from the change on where nothing else runs: 100 ms of gathering, and the event loop.
constexpr auto promptly = 250ms;
// The same on a machine that other tests keep busy. All namespaces share one lock for their interfaces, and whoever
// makes or removes many of them was seen to hold it for five seconds.
constexpr auto timeout = 30s;
// The kernel itself tells of a lost or found carrier up to a second late.
constexpr auto afterCarrierDelay = timeout;
constexpr auto longerThanTheCarrierDelay = 1500ms;
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

/// What is logged while it lives.
class NetworkLog {
  public:
    explicit NetworkLog(const char* rules = "skylet.network.info=true") {
        lines.clear();
        QLoggingCategory::setFilterRules(QString::fromUtf8(rules));
        before_ = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& line) { lines += line.trimmed(); });
    }
    ~NetworkLog() {
        qInstallMessageHandler(before_);
        QLoggingCategory::setFilterRules(QString());
    }
    Q_DISABLE_COPY_MOVE(NetworkLog)

    static inline QStringList lines;

  private:
    QtMessageHandler before_ = nullptr;
};

/// The most work that one turn of the event loop took. Time on the processor, because a busy machine lets any thread
/// wait.
class LongestTurn {
  public:
    LongestTurn() {
        tick_.setTimerType(Qt::PreciseTimer);
        QObject::connect(&tick_, &QTimer::timeout, &tick_, [this] {
            const auto now = processorTime();
            longest_ = std::max(longest_, now - last_);
            last_ = now;
        });
        tick_.start(1ms);
    }

    std::chrono::milliseconds value() const { return std::chrono::duration_cast<std::chrono::milliseconds>(longest_); }

  private:
    QTimer tick_;
    std::chrono::nanoseconds last_ = processorTime();
    std::chrono::nanoseconds longest_{0};
};

/// Commands that add routes to other places through the link "wan", `count` of them from the given one on.
QByteArray manyRoutes(int count, int first = 0) {
    QByteArray commands;
    for (int i = first; i < first + count; ++i) {
        commands += "route replace 20." + QByteArray::number(i / 250) + "." + QByteArray::number(i % 250) +
                    ".0/24 via 10.1.0.2\n";
    }
    return commands;
}

/// What the holder of a TUN device has. The device goes with it, unless it was there before.
FileDescriptor farEndOf(const char* tunnel) {
    FileDescriptor farEnd(open("/dev/net/tun", O_RDWR | O_CLOEXEC));
    ifreq request{};
    std::strncpy(request.ifr_name, tunnel, IFNAMSIZ - 1);
    request.ifr_flags = IFF_TUN;
    return ioctl(farEnd.get(), TUNSETIFF, &request) == 0 ? std::move(farEnd) : FileDescriptor();
}

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

    /// As 802.1X does to a link that nobody has authenticated yet.
    void makeDormant(const QByteArray& link) {
        namespace_->batch("link set " + link + " mode dormant\nlink set " + link + " state dormant\n");
    }

    /// Starts, takes the first report and forgets it.
    void startFrom(bool satisfied) {
        start();
        ASSERT_TRUE(reported(timeout));
        ASSERT_EQ(takeReports(), std::vector{satisfied});
    }

    bool reported(std::chrono::milliseconds time) {
        return waitUntil([this] { return !reports_.empty(); }, time);
    }

    /// The reports so far, forgotten with this.
    std::vector<bool> takeReports() { return std::exchange(reports_, {}); }

    /// What is reported while nothing should be.
    std::vector<bool> reportsMeanwhile() {
        runFor(longEnoughForAnotherReport);
        return takeReports();
    }

    /// Waits for the one report that a change brings about, and that no second follows.
    std::vector<bool> reportsAfter(std::chrono::milliseconds time = timeout) {
        reported(time);
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

TEST_F(NetlinkPathMonitorTest, LogsWhereTheRoutesLeadAndWhyThereAreNone) {
    const NetworkLog log;
    namespace_->disableIPv6();
    startFrom(false);
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2");
    ASSERT_EQ(reportsAfter(), std::vector{true});
    namespace_->ip("link set wan-far down");
    ASSERT_EQ(reportsAfter(afterCarrierDelay), std::vector{false});
    EXPECT_EQ(NetworkLog::lines.value(0), QStringLiteral("not satisfied; IPv4: Network is unreachable; "
                                                         "IPv6: Network is unreachable; network epoch 0"));
    EXPECT_EQ(NetworkLog::lines.value(1), QStringLiteral("satisfied; IPv4: wan (gateway 10.1.0.2, source 10.1.0.1); "
                                                         "IPv6: Network is unreachable; network epoch 1"));
    EXPECT_EQ(NetworkLog::lines.value(2), QStringLiteral("not satisfied; IPv4: no carrier; "
                                                         "IPv6: Network is unreachable; network epoch 2"));
}

TEST_F(NetlinkPathMonitorTest, LogsNothingUnlessAsked) {
    const NetworkLog log("");
    startFrom(false);
    EXPECT_EQ(NetworkLog::lines, QStringList());
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
    // With IPv6 there would be messages about its addresses and routes at least.
    namespace_->disableIPv6();
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

TEST_F(NetlinkPathMonitorTest, NoticesAPreferredSourceThatVanishesWithItsAddress) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("addr add fd00:1::77/128 dev wan nodad");
    if (!namespace_->ip("-6 route add default via fd00:1::2 src fd00:1::77")) {
        GTEST_SKIP() << "no IPv6 here";
    }
    startFrom(true);
    namespace_->ip("addr del fd00:1::77/128 dev wan");
    EXPECT_EQ(reportsAfter(), std::vector{true});
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
    FileDescriptor farEnd = farEndOf("tunnel");
    ASSERT_TRUE(farEnd.isValid());
    EXPECT_EQ(reportsAfter(afterCarrierDelay), std::vector{true});
    farEnd = FileDescriptor();
    EXPECT_EQ(reportsAfter(afterCarrierDelay), std::vector{false});
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

TEST_F(NetlinkPathMonitorTest, AnotherMetricOfTheSameWayIsNoChange) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2 metric 100");
    startFrom(true);
    namespace_->batch("route add default via 10.1.0.2 metric 600\nroute del default via 10.1.0.2 metric 100\n");
    EXPECT_EQ(reportsMeanwhile(), std::vector<bool>{});
}

TEST_F(NetlinkPathMonitorTest, ASecondDefaultRouteIsAChangeOnceItIsTaken) {
    namespace_->addUplink("wan", 1);
    namespace_->addUplink("lte", 2);
    namespace_->ip("route add default via 10.1.0.2 metric 100");
    startFrom(true);
    namespace_->ip("route add default via 10.2.0.2 metric 600");
    EXPECT_EQ(reportsMeanwhile(), std::vector<bool>{});
    namespace_->ip("route del default via 10.1.0.2 metric 100");
    EXPECT_EQ(reportsAfter(), std::vector{true});
    EXPECT_EQ(epoch_.current(), 1U);
}

TEST_F(NetlinkPathMonitorTest, ReportsANewAddressBehindTheSameGateway) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2");
    startFrom(true);
    namespace_->batch("addr add 10.1.0.9/16 dev wan\naddr del 10.1.0.1/24 dev wan\n");
    EXPECT_EQ(reportsAfter(), std::vector{true});
    EXPECT_EQ(epoch_.current(), 1U);
}

TEST_F(NetlinkPathMonitorTest, ReportsAnIPv6AddressThatTakesTheOldOnesPlace) {
    namespace_->addUplink("wan", 1);
    if (!namespace_->ip("-6 route add default via fd00:1::2")) {
        GTEST_SKIP() << "no IPv6 here";
    }
    startFrom(true);
    namespace_->batch("addr add fd00:1::9/64 dev wan nodad\n"
                      "addr change fd00:1::1/64 dev wan preferred_lft 0 valid_lft 900\n");
    EXPECT_EQ(reportsAfter(), std::vector{true});
}

TEST_F(NetlinkPathMonitorTest, AnotherAddressThatIsNotUsedIsNoChange) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2");
    startFrom(true);
    namespace_->ip("addr add 10.1.0.9/24 dev wan");
    EXPECT_EQ(reportsMeanwhile(), std::vector<bool>{});
}

TEST_F(NetlinkPathMonitorTest, TwoRoutesToOneHalfEachAreAWayOut) {
    namespace_->addUplink("vpn", 1);
    startFrom(false);
    namespace_->batch("route add 0.0.0.0/1 via 10.1.0.2\nroute add 128.0.0.0/1 via 10.1.0.2\n");
    EXPECT_EQ(reportsAfter(), std::vector{true});
    namespace_->ip("route del 128.0.0.0/1");
    EXPECT_EQ(reportsAfter(), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, TwoHalvesThatCoverADefaultRouteAreAnotherNetwork) {
    namespace_->addUplink("wan", 1);
    namespace_->addUplink("vpn", 2);
    namespace_->ip("route add default via 10.1.0.2");
    startFrom(true);
    namespace_->batch("route add 0.0.0.0/1 via 10.2.0.2\nroute add 128.0.0.0/1 via 10.2.0.2\n");
    EXPECT_EQ(reportsAfter(), std::vector{true});
    EXPECT_EQ(epoch_.current(), 1U);
}

TEST_F(NetlinkPathMonitorTest, TwoIPv6HalvesAreAWayOut) {
    namespace_->addUplink("vpn", 1);
    startFrom(false);
    if (!namespace_->ip("-6 route add ::/1 via fd00:1::2")) {
        GTEST_SKIP() << "no IPv6 here";
    }
    namespace_->ip("-6 route add 8000::/1 via fd00:1::2");
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

TEST_F(NetlinkPathMonitorTest, OneHopWithoutACarrierIsNotTheEndOfAMultipathRoute) {
    namespace_->addUplink("wan", 1);
    namespace_->addUplink("lte", 2);
    namespace_->ip("route add default nexthop via 10.1.0.2 nexthop via 10.2.0.2");
    startFrom(true);
    namespace_->ip("link set lte-far down");
    runFor(longerThanTheCarrierDelay);
    namespace_->batch("link set lte-far up\nlink set wan-far down\n");
    runFor(longerThanTheCarrierDelay);
    EXPECT_EQ(std::count(reports_.begin(), reports_.end(), false), 0);
    takeReports();
    namespace_->ip("link set lte-far down");
    EXPECT_EQ(reportsAfter(afterCarrierDelay), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, AnIPv6MultipathRouteIsAWayOutWhileOneHopHasItsCarrier) {
    namespace_->addUplink("wan", 1);
    namespace_->addUplink("lte", 2);
    if (!namespace_->ip("-6 route add default nexthop via fd00:1::2 nexthop via fd00:2::2")) {
        GTEST_SKIP() << "no IPv6 here";
    }
    startFrom(true);
    namespace_->ip("link set wan-far down");
    runFor(longerThanTheCarrierDelay);
    EXPECT_EQ(std::count(reports_.begin(), reports_.end(), false), 0);
    takeReports();
    namespace_->ip("link set lte-far down");
    EXPECT_EQ(reportsAfter(afterCarrierDelay), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, ADormantLinkIsAWayOut) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2");
    makeDormant("wan");
    startFrom(true);
}

TEST_F(NetlinkPathMonitorTest, ADormantLinkIsAWayOutWhereThereIsOnlyIPv6) {
    namespace_->addUplink("wan", 1);
    if (!namespace_->ip("-6 route add default via fd00:1::2")) {
        GTEST_SKIP() << "no IPv6 here";
    }
    makeDormant("wan");
    startFrom(true);
}

TEST_F(NetlinkPathMonitorTest, ALinkThatBecomesDormantStaysAWayOut) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2");
    startFrom(true);
    makeDormant("wan");
    EXPECT_EQ(reportsAfter(), std::vector{true});
    namespace_->batch("link set wan mode default\nlink set wan state up\n");
    EXPECT_EQ(reportsAfter(), std::vector{true}) << "what it waited for has come about";
}

TEST_F(NetlinkPathMonitorTest, ADormantLinkThatLosesItsCarrierIsNoWayOut) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2");
    makeDormant("wan");
    startFrom(true);
    namespace_->ip("link set wan-far down");
    EXPECT_EQ(reportsAfter(afterCarrierDelay), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, ALinkWithoutACarrierIsNoWayOutAtTheStart) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2");
    namespace_->ip("link set wan-far down");
    runFor(longerThanTheCarrierDelay);
    startFrom(false);
}

TEST_F(NetlinkPathMonitorTest, ReportsALostCarrierAndItsReturnWhereThereIsOnlyIPv6) {
    namespace_->addUplink("wan", 1);
    if (!namespace_->ip("-6 route add default via fd00:1::2")) {
        GTEST_SKIP() << "no IPv6 here";
    }
    startFrom(true);
    namespace_->ip("link set wan-far down");
    EXPECT_EQ(reportsAfter(afterCarrierDelay), std::vector{false});
    namespace_->ip("link set wan-far up");
    EXPECT_EQ(reportsAfter(afterCarrierDelay), std::vector{true});
}

TEST_F(NetlinkPathMonitorTest, ARouteThatRefusesIsNoWayOut) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2 metric 100");
    for (const char* type : {"unreachable", "blackhole", "prohibit", "throw"}) {
        SCOPED_TRACE(type);
        namespace_->ip(("route add " + QByteArray(type) + " default metric 10").constData());
        startFrom(false);
        monitor_.cancel();
        namespace_->ip(("route del " + QByteArray(type) + " default metric 10").constData());
    }
    startFrom(true);
}

TEST_F(NetlinkPathMonitorTest, AnIPv6RouteThatRefusesIsNoWayOut) {
    namespace_->addUplink("wan", 1);
    if (!namespace_->ip("-6 route add default via fd00:1::2 metric 100")) {
        GTEST_SKIP() << "no IPv6 here";
    }
    for (const char* type : {"unreachable", "blackhole", "prohibit", "throw"}) {
        SCOPED_TRACE(type);
        namespace_->ip(("-6 route add " + QByteArray(type) + " default metric 10").constData());
        startFrom(false);
        monitor_.cancel();
        namespace_->ip(("-6 route del " + QByteArray(type) + " default metric 10").constData());
    }
    startFrom(true);
}

TEST_F(NetlinkPathMonitorTest, ARefusalThatCoversADefaultRouteIsItsEnd) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2");
    startFrom(true);
    namespace_->batch("route add blackhole 0.0.0.0/1\nroute add blackhole 128.0.0.0/1\n");
    EXPECT_EQ(reportsAfter(), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, ARouteBackToThisMachineIsNoWayOut) {
    namespace_->ip("link set lo up");
    namespace_->ip("route add default dev lo");
    startFrom(false);
    monitor_.cancel();
    namespace_->ip("route replace local default dev lo");
    startFrom(false);
}

TEST_F(NetlinkPathMonitorTest, ATableIsAWayOutOnceARuleLeadsThere) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2 table 100");
    startFrom(false);
    if (!namespace_->ip("rule add from all lookup 100")) {
        GTEST_SKIP() << "no policy routing here";
    }
    EXPECT_EQ(reportsAfter(), std::vector{true});
    namespace_->ip("rule del from all lookup 100");
    EXPECT_EQ(reportsAfter(), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, AnIPv6TableIsAWayOutOnceARuleLeadsThere) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("-6 route add default via fd00:1::2 table 100");
    startFrom(false);
    if (!namespace_->ip("-6 rule add from all lookup 100")) {
        GTEST_SKIP() << "no policy routing for IPv6 here";
    }
    EXPECT_EQ(reportsAfter(), std::vector{true});
}

TEST_F(NetlinkPathMonitorTest, ARuleThatSendsPacketsAnotherWayIsAnotherNetwork) {
    namespace_->addUplink("wan", 1);
    namespace_->addUplink("lte", 2);
    namespace_->batch("route add default via 10.1.0.2\nroute add default via 10.2.0.2 table 100\n");
    startFrom(true);
    if (!namespace_->ip("rule add from all lookup 100")) {
        GTEST_SKIP() << "no policy routing here";
    }
    EXPECT_EQ(reportsAfter(), std::vector{true});
    EXPECT_EQ(epoch_.current(), 1U);
}

TEST_F(NetlinkPathMonitorTest, ARuleThatRefusesIsNoWayOut) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("route add default via 10.1.0.2");
    startFrom(true);
    if (!namespace_->ip("rule add prohibit")) {
        GTEST_SKIP() << "no policy routing here";
    }
    EXPECT_EQ(reportsAfter(), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, RoutesToOtherPlacesAreNoChange) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    namespace_->ip("route add 192.0.2.0/24 via 10.1.0.2");
    namespace_->ip("route add 0.0.0.0/1 via 10.1.0.2");
    EXPECT_EQ(reportsMeanwhile(), std::vector<bool>{});
}

TEST_F(NetlinkPathMonitorTest, TimedTheFirstReportIsNotPutOff) {
    QElapsedTimer elapsed;
    elapsed.start();
    start();
    ASSERT_TRUE(reported(timeout));
    EXPECT_LT(std::chrono::milliseconds(elapsed.elapsed()), allowing(80ms));
}

TEST_F(NetlinkPathMonitorTest, TimedAChangeIsGatheredFor100MillisecondsAndReportedWithin250) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    runFor(longEnoughForAnotherReport);
    QElapsedTimer elapsed;
    elapsed.start();
    namespace_->ip("route add default via 10.1.0.2");
    ASSERT_TRUE(reported(timeout));
    EXPECT_GE(elapsed.elapsed(), 100);
    EXPECT_LT(std::chrono::milliseconds(elapsed.elapsed()), allowing(promptly));
}

TEST_F(NetlinkPathMonitorTest, TimedALostCarrierIsReportedOnceAndAsSoonAsTheKernelTells) {
    const FileDescriptor farEnd = farEndOf("tunnel");
    if (!farEnd.isValid()) {
        GTEST_SKIP() << "no TUN devices here";
    }
    namespace_->batch("link set tunnel up\nroute add default dev tunnel\n");
    startFrom(true);
    QElapsedTimer elapsed;
    elapsed.start();
    // The second command brings a message that the first may bring only a second later.
    namespace_->batch("link set tunnel carrier off\nlink set tunnel alias told\n");
    ASSERT_TRUE(reported(timeout));
    EXPECT_LT(std::chrono::milliseconds(elapsed.elapsed()), allowing(promptly));
    runFor(longerThanTheCarrierDelay);
    EXPECT_EQ(takeReports(), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, TimedABurstOfChangesIsReportedOnce) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    QByteArray burst;
    for (int i = 0; i < 50; ++i) {
        burst += "route replace default via 10.1.0." + QByteArray::number(2 + i) + "\n";
    }
    QProcess changes;
    changes.start(QStringLiteral("ip"), {QStringLiteral("-batch"), QStringLiteral("-")});
    changes.write(burst);
    changes.closeWriteChannel();
    EXPECT_EQ(reportsAfter(), std::vector{true});
    EXPECT_EQ(changes.state(), QProcess::NotRunning);
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
    EXPECT_TRUE(waitUntil([this] { return reports_.size() >= 3; }, timeout));
    EXPECT_EQ(changes.state(), QProcess::Running);
    changes.terminate();
    changes.waitForFinished();
}

TEST_F(NetlinkPathMonitorTest, AFloodOfRouteMessagesStallsNothingAndEndsInTheRightState) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    QByteArray flood;
    for (int i = 0; i < 200; ++i) {
        flood += manyRoutes(100, i * 100);
        flood += "route replace default via 10.1.0." + QByteArray::number(2 + i % 7) + "\n";
    }
    flood += "route del default\nroute add default via 10.1.0.2 metric 7\n";
    QProcess writer;
    const LongestTurn turn;
    writer.start(QStringLiteral("ip"), {QStringLiteral("-batch"), QStringLiteral("-")});
    writer.write(flood);
    writer.closeWriteChannel();
    ASSERT_TRUE(waitUntil([&] { return writer.state() == QProcess::NotRunning; }, 30s));
    ASSERT_EQ(writer.exitCode(), 0);
    runFor(longEnoughForAnotherReport);
    if (runsAlone()) {
        EXPECT_LT(turn.value(), allowing(50ms));
    }
    ASSERT_FALSE(reports_.empty());
    EXPECT_TRUE(takeReports().back());
    namespace_->ip("route del default");
    EXPECT_EQ(reportsAfter(), std::vector{false});
}

TEST_F(NetlinkPathMonitorTest, MessagesThatTheSocketHadNoRoomForAreMadeUpFor) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    // The event loop does not run meanwhile, so the socket overflows and the last message is lost.
    namespace_->batch(manyRoutes(3'000) + "route add default via 10.1.0.2\n");
    EXPECT_EQ(reportsAfter(), std::vector{true});
}

TEST_F(NetlinkPathMonitorTest, WhatWasHeardOfALinkIsForgottenWhenMessagesWereLost) {
    namespace_->addUplink("wan", 1);
    const FileDescriptor farEnd = farEndOf("tunnel");
    if (!farEnd.isValid()) {
        GTEST_SKIP() << "no TUN devices here";
    }
    namespace_->batch("link set tunnel up\nroute add default dev tunnel\n");
    startFrom(true);
    namespace_->ip("link set tunnel alias heard");
    runFor(longerThanTheCarrierDelay);
    namespace_->batch(manyRoutes(3'000) + "link set tunnel carrier off\n");
    EXPECT_EQ(reportsAfter(), std::vector{false});
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
    takeReports(); // which a busy machine may have brought before
    EXPECT_EQ(reportsMeanwhile(), std::vector<bool>{});
}

TEST_F(NetlinkPathMonitorTest, TheHandlerMayCancel) {
    int count = 0;
    monitor_.start([&](bool) {
        ++count;
        monitor_.cancel();
    });
    ASSERT_TRUE(waitUntil([&] { return count == 1; }, timeout));
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

TEST_F(NetlinkPathMonitorTest, AStartRightBehindACancelTellsWhatIsTrueThen) {
    namespace_->addUplink("wan", 1);
    start();
    monitor_.cancel();
    // By the time this is done, what the first start asked for has been read.
    namespace_->ip("route add default via 10.1.0.2");
    startFrom(true);
    EXPECT_EQ(reportsMeanwhile(), std::vector<bool>{});
}

TEST_F(NetlinkPathMonitorTest, WithoutANetlinkSocketItAssumesAWayOutOnceAndKeepsTrying) {
    // Once with everything: a sanitizer needs descriptors when it meets a type for the first time.
    startFrom(false);
    monitor_.cancel();
    {
        const NoMoreDescriptors sandbox;
        start();
        EXPECT_TRUE(reports_.empty());
        EXPECT_TRUE(reported(timeout));
        runFor(1200ms);
        EXPECT_EQ(takeReports(), std::vector{true});
    }
    EXPECT_TRUE(reported(timeout));
    EXPECT_EQ(takeReports(), std::vector{false});
    EXPECT_EQ(epoch_.current(), 1U);
}

TEST_F(NetlinkPathMonitorTest, LinksThatComeAndGoMeanwhileConfuseNothing) {
    LinkChurn churn;
    ASSERT_TRUE(churn.isUnderWay());
    for (int i = 0; i < 100; ++i) {
        start();
        ASSERT_TRUE(reported(timeout));
        monitor_.cancel();
        ASSERT_EQ(takeReports(), std::vector{false}) << "in round " << i;
    }
    EXPECT_TRUE(churn.isUnderWay());
}

TEST_F(NetlinkPathMonitorTest, WhileItCannotAskThereMayBeAWayOut) {
    namespace_->addUplink("wan", 1);
    startFrom(false);
    namespace_->ip("route add 192.0.2.0/24 via 10.1.0.2");
    {
        const NoMoreDescriptors shortage;
        EXPECT_EQ(reportsAfter(), std::vector{true});
    }
    EXPECT_EQ(reportsAfter(), std::vector{false});
}

} // namespace skylet::test
