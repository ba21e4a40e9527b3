#include "platform/linux/system/NetlinkInterfaceCounters.h"

#include "ChildProcess.h"
#include "NetlinkMessage.h"
#include "NetworkNamespace.h"

#include <QFile>
#include <QProcess>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/if_link.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>

namespace skylet::test {

namespace {

class NetlinkInterfaceCountersTest : public testing::Test {
  protected:
    void SetUp() override {
        QString reason;
        namespace_ = NetworkNamespace::enter(reason);
        if (!namespace_) {
            GTEST_SKIP() << reason.toStdString();
        }
    }

    std::optional<InterfaceCounter> counter(const char* name) {
        const auto all = counters_.read();
        if (!all) {
            return std::nullopt;
        }
        const auto found = std::find_if(all->begin(), all->end(),
                                        [name](const auto& entry) { return entry.name == QLatin1StringView(name); });
        return found == all->end() ? std::nullopt : std::optional(*found);
    }

    bool isStacked(const char* name) {
        const auto found = counter(name);
        EXPECT_TRUE(found) << name;
        return found && found->stacked;
    }

    std::unique_ptr<NetworkNamespace> namespace_;
    NetlinkInterfaceCounters counters_;
};

/// A process in a network namespace of its own, to hold the far end of a link.
class OtherNamespace {
  public:
    OtherNamespace() {
        endWithThisProcess(holder_);
        holder_.start(QStringLiteral("unshare"), {QStringLiteral("-n"), QStringLiteral("sh"), QStringLiteral("-c"),
                                                  QStringLiteral("echo ready; exec cat")});
        ready_ = holder_.waitForReadyRead();
    }
    ~OtherNamespace() {
        holder_.closeWriteChannel();
        holder_.waitForFinished();
    }
    OtherNamespace(const OtherNamespace&) = delete;
    OtherNamespace& operator=(const OtherNamespace&) = delete;
    OtherNamespace(OtherNamespace&&) = delete;
    OtherNamespace& operator=(OtherNamespace&&) = delete;

    bool isReady() const { return ready_; }
    QByteArray process() const { return QByteArray::number(holder_.processId()); }

  private:
    QProcess holder_;
    bool ready_ = false;
};

void sendOverLoopback(std::size_t bytes) {
    const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(9);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const std::vector<char> data(bytes);
    ASSERT_EQ(
        sendto(socket.get(), data.data(), data.size(), 0, reinterpret_cast<const sockaddr*>(&address), sizeof address),
        static_cast<ssize_t>(bytes));
}

/// The bytes that interface `name` received, as /proc/self/net/dev tells them.
std::uint64_t receivedBytesByProc(const QByteArray& name) {
    QFile file(QStringLiteral("/proc/self/net/dev"));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.trimmed().startsWith(name + ':')) {
            return line.mid(line.indexOf(':') + 1).simplified().split(' ').constFirst().toULongLong();
        }
    }
    ADD_FAILURE() << "no such interface";
    return 0;
}

NetlinkMessage& describe(NetlinkMessage& message, const char* name, std::uint64_t received, std::uint64_t sent) {
    rtnl_link_stats64 statistics{};
    statistics.rx_bytes = received;
    statistics.tx_bytes = sent;
    return message.withText(IFLA_IFNAME, name).with(IFLA_STATS64, statistics);
}

/// A link of the given kind that names no other one.
std::optional<InterfaceCounter> linkOfKind(const char* kind) {
    NetlinkMessage message(RTM_NEWLINK, ifinfomsg{});
    return parseInterfaceCounter(
        describe(message, "eth7", 0, 0).withNestedText(IFLA_LINKINFO, IFLA_INFO_KIND, kind).header());
}

} // namespace

TEST_F(NetlinkInterfaceCountersTest, SeesTheNamespaceOfTheProcess) {
    const auto all = counters_.read();
    ASSERT_TRUE(all);
    ASSERT_EQ(all->size(), 1U) << "/sys still shows the links of the namespace it was mounted in";
    EXPECT_EQ(all->front().name, QStringLiteral("lo"));
}

TEST_F(NetlinkInterfaceCountersTest, TellsWhetherALinkIsUp) {
    EXPECT_FALSE(counter("lo")->up);
    namespace_->ip("link set lo up");
    EXPECT_TRUE(counter("lo")->up);
    namespace_->ip("link set lo down");
    EXPECT_FALSE(counter("lo")->up);
}

TEST_F(NetlinkInterfaceCountersTest, ALinkWithoutACarrierIsUpAllTheSame) {
    namespace_->addUplink("wan", 1);
    namespace_->ip("link set wan-far down");
    EXPECT_TRUE(counter("wan")->up);
}

TEST_F(NetlinkInterfaceCountersTest, CountsWhatIsReceivedAndSent) {
    namespace_->ip("link set lo up");
    const auto before = counter("lo");
    ASSERT_TRUE(before);
    sendOverLoopback(10'000);
    const auto after = counter("lo");
    ASSERT_TRUE(after);
    // The payload and the headers of IP and UDP, in both directions; the loopback's "port unreachable" comes on top.
    EXPECT_GE(after->receivedBytes - before->receivedBytes, 10'028U);
    EXPECT_LT(after->receivedBytes - before->receivedBytes, 12'000U);
    EXPECT_EQ(after->receivedBytes, after->sentBytes);
    EXPECT_EQ(after->receivedBytes, receivedBytesByProc("lo"));
}

TEST_F(NetlinkInterfaceCountersTest, ReadsHowEverManyLinksThereAre) {
    namespace_->addManyLinks(60);
    ASSERT_TRUE(counter("many59"));
    EXPECT_EQ(counters_.read()->size(), 61U);
}

TEST_F(NetlinkInterfaceCountersTest, LinksThatComeAndGoWhileTheyAreReadCostNoOther) {
    namespace_->addManyLinks(60);
    LinkChurn churn;
    ASSERT_TRUE(churn.isUnderWay());
    for (int i = 0; i < 500; ++i) {
        const auto all = counters_.read();
        ASSERT_TRUE(all) << "in round " << i;
        ASSERT_GE(all->size(), 61U);
        ASSERT_LE(all->size(), 62U);
    }
    EXPECT_TRUE(churn.isUnderWay());
}

TEST_F(NetlinkInterfaceCountersTest, TheLoopbackRidesOnNothing) {
    EXPECT_FALSE(isStacked("lo"));
}

TEST_F(NetlinkInterfaceCountersTest, APairWithBothEndsHereIsStacked) {
    namespace_->addUplink("wan", 1);
    EXPECT_TRUE(isStacked("wan"));
    EXPECT_TRUE(isStacked("wan-far"));
}

TEST_F(NetlinkInterfaceCountersTest, APairWithItsOtherEndElsewhereIsAWayOut) {
    const OtherNamespace other;
    ASSERT_TRUE(other.isReady());
    namespace_->addUplink("wan", 1);
    ASSERT_TRUE(namespace_->ip(("link set wan-far netns " + other.process()).constData()));
    EXPECT_FALSE(isStacked("wan"));
}

TEST_F(NetlinkInterfaceCountersTest, ABridgeIsStackedAndItsPortIsNot) {
    const OtherNamespace other;
    ASSERT_TRUE(other.isReady());
    namespace_->addUplink("port", 1);
    ASSERT_TRUE(namespace_->ip(("link set port-far netns " + other.process()).constData()));
    ASSERT_TRUE(namespace_->ip("link add bundle type bridge"));
    ASSERT_TRUE(namespace_->ip("link set port master bundle"));
    EXPECT_TRUE(isStacked("bundle"));
    EXPECT_FALSE(isStacked("port"));
}

TEST_F(NetlinkInterfaceCountersTest, AMacVlanIsStackedAndItsPortIsNot) {
    const OtherNamespace other;
    ASSERT_TRUE(other.isReady());
    namespace_->addUplink("port", 1);
    ASSERT_TRUE(namespace_->ip(("link set port-far netns " + other.process()).constData()));
    if (!namespace_->ip("link add link port name rider type macvlan")) {
        GTEST_SKIP() << "this kernel has no macvlan";
    }
    EXPECT_TRUE(isStacked("rider"));
    EXPECT_FALSE(isStacked("port"));
}

TEST_F(NetlinkInterfaceCountersTest, AVlanIsStacked) {
    namespace_->addUplink("port", 1);
    if (!namespace_->ip("link add link port name port.5 type vlan id 5")) {
        GTEST_SKIP() << "this kernel has no vlan";
    }
    EXPECT_TRUE(isStacked("port.5"));
}

TEST_F(NetlinkInterfaceCountersTest, AnOverlayIsStacked) {
    if (!namespace_->ip("link add overlay type vxlan id 3 dstport 4789")) {
        GTEST_SKIP() << "this kernel has no vxlan";
    }
    EXPECT_TRUE(isStacked("overlay"));
}

TEST_F(NetlinkInterfaceCountersTest, ADeviceOnItsOwnIsNotStacked) {
    if (!namespace_->ip("tuntap add alone mode tap") && !namespace_->ip("link add alone type dummy")) {
        GTEST_SKIP() << "this kernel has neither TAP nor dummy devices, or lets nobody have them";
    }
    EXPECT_FALSE(isStacked("alone"));
}

TEST(NetlinkInterfaceCounters, CountsBeyond32Bits) {
    constexpr std::uint64_t received = 5'000'000'000'000;
    constexpr std::uint64_t sent = 7'000'000'000'000;
    ifinfomsg head{};
    head.ifi_flags = IFF_UP;
    NetlinkMessage message(RTM_NEWLINK, head);
    const auto counter = parseInterfaceCounter(describe(message, "eth0", received, sent).header());
    ASSERT_TRUE(counter);
    EXPECT_EQ(counter->name, QStringLiteral("eth0"));
    EXPECT_TRUE(counter->up);
    EXPECT_FALSE(counter->stacked);
    EXPECT_EQ(counter->receivedBytes, received);
    EXPECT_EQ(counter->sentBytes, sent);
}

TEST(NetlinkInterfaceCounters, UnderstandsKernelsThatTellFewerCounters) {
    const std::array<std::uint64_t, 4> packetsThenBytes = {1, 2, 300, 400};
    NetlinkMessage message(RTM_NEWLINK, ifinfomsg{});
    const auto counter =
        parseInterfaceCounter(message.withText(IFLA_IFNAME, "eth0").with(IFLA_STATS64, packetsThenBytes).header());
    ASSERT_TRUE(counter);
    EXPECT_EQ(counter->receivedBytes, 300U);
    EXPECT_EQ(counter->sentBytes, 400U);
}

TEST(NetlinkInterfaceCounters, KindsThatBundleOrWrapAreStacked) {
    for (const char* kind : {"bond", "bridge", "team", "vxlan", "geneve", "gre", "sit", "wireguard"}) {
        EXPECT_TRUE(linkOfKind(kind)->stacked) << kind;
    }
    for (const char* kind : {"tun", "dummy", "wwan", "ifb"}) {
        EXPECT_FALSE(linkOfKind(kind)->stacked) << kind;
    }
}

TEST(NetlinkInterfaceCounters, WhatRidesOnALinkOfThisNamespaceIsStacked) {
    NetlinkMessage here(RTM_NEWLINK, ifinfomsg{});
    EXPECT_TRUE(parseInterfaceCounter(describe(here, "eth0.5", 0, 0)
                                          .withNestedText(IFLA_LINKINFO, IFLA_INFO_KIND, "vlan")
                                          .with(IFLA_LINK, std::uint32_t{2})
                                          .header())
                    ->stacked);
    NetlinkMessage elsewhere(RTM_NEWLINK, ifinfomsg{});
    EXPECT_FALSE(parseInterfaceCounter(describe(elsewhere, "eth0", 0, 0)
                                           .withNestedText(IFLA_LINKINFO, IFLA_INFO_KIND, "macvlan")
                                           .with(IFLA_LINK, std::uint32_t{2})
                                           .with(IFLA_LINK_NETNSID, std::int32_t{0})
                                           .header())
                     ->stacked);
    NetlinkMessage nowhere(RTM_NEWLINK, ifinfomsg{});
    EXPECT_FALSE(
        parseInterfaceCounter(describe(nowhere, "eth0", 0, 0).with(IFLA_LINK, std::uint32_t{0}).header())->stacked);
}

TEST(NetlinkInterfaceCounters, ALinkWithoutANameOrCountersIsLeftOut) {
    NetlinkMessage nameless(RTM_NEWLINK, ifinfomsg{});
    EXPECT_FALSE(parseInterfaceCounter(nameless.with(IFLA_STATS64, rtnl_link_stats64{}).header()));
    NetlinkMessage uncounted(RTM_NEWLINK, ifinfomsg{});
    EXPECT_FALSE(parseInterfaceCounter(uncounted.withText(IFLA_IFNAME, "eth0").header()));
    NetlinkMessage cut(RTM_NEWLINK, ifinfomsg{});
    EXPECT_FALSE(parseInterfaceCounter(cut.cutTo(NLMSG_HDRLEN + 4).header()));
}

} // namespace skylet::test
