#include "platform/linux/network/NetlinkInterfaceCounters.h"

#include "NetworkNamespace.h"
#include "support/ChildProcess.h"
#include "support/EventLoop.h"

#include <QFile>
#include <QProcess>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>

namespace skylet::test {

namespace {

class NetlinkInterfaceCountersTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!namespace_) {
            GTEST_SKIP() << reason_.toStdString();
        }
    }

    static std::optional<InterfaceCounter> counter(NetlinkInterfaceCounters& counters, const char* name) {
        const auto all = counters.read();
        if (!all) {
            return std::nullopt;
        }
        const auto found = std::find_if(all->begin(), all->end(),
                                        [name](const auto& entry) { return entry.name == QLatin1StringView(name); });
        return found == all->end() ? std::nullopt : std::optional(*found);
    }

    std::optional<InterfaceCounter> counter(const char* name) { return counter(counters_, name); }

    bool isStacked(const char* name) {
        const auto found = counter(name);
        EXPECT_TRUE(found) << name;
        return found && found->stacked;
    }

    QString reason_;
    std::unique_ptr<NetworkNamespace> namespace_ = NetworkNamespace::enter(reason_);
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

TEST_F(NetlinkInterfaceCountersTest, ATapDeviceLeadsToAProgramAndALinkToAnotherNamespaceDoesNot) {
    if (!namespace_->ip("tuntap add tunnel mode tap")) {
        GTEST_SKIP() << "this kernel has no TAP devices, or lets nobody have them";
    }
    namespace_->addUplink("wan", 1);
    EXPECT_TRUE(counter("tunnel")->tun);
    EXPECT_FALSE(counter("wan")->tun);
    EXPECT_FALSE(counter("lo")->tun);
}

TEST_F(NetlinkInterfaceCountersTest, LearnsAboutLinksThatWereThereBefore) {
    namespace_->addUplink("wan", 1);
    NetlinkInterfaceCounters later;
    EXPECT_TRUE(waitUntil([&later] { return counter(later, "wan")->stacked; }));
}

TEST_F(NetlinkInterfaceCountersTest, ForgetsWhatALinkWasOnceItIsGone) {
    namespace_->ip("link add eth0 index 77 type bridge");
    ASSERT_TRUE(isStacked("eth0"));
    namespace_->ip("link del eth0");
    if (!namespace_->ip("link add eth0 index 77 type dummy") && !namespace_->ip("tuntap add eth0 mode tap")) {
        GTEST_SKIP() << "this kernel has neither dummy nor TAP devices, or lets nobody have them";
    }
    EXPECT_FALSE(isStacked("eth0"));
}

TEST_F(NetlinkInterfaceCountersTest, ALinkKeepsItsNatureUnderAnotherName) {
    namespace_->ip("link add bundle type bridge");
    namespace_->ip("link set bundle name eth7");
    EXPECT_TRUE(isStacked("eth7"));
}

TEST_F(NetlinkInterfaceCountersTest, MessagesThatTheSocketHadNoRoomForAreMadeUpFor) {
    namespace_->addManyLinks(300);
    // Several megabytes of messages: the one about the last link is lost.
    namespace_->batch(QByteArray("link set many0 up\nlink set many0 down\n").repeated(500) +
                      "link add last type bridge\n");
    EXPECT_TRUE(waitUntil([this] { return counter("last")->stacked; }));
}

TEST(NetlinkInterfaceCounters, CountsBeyond32Bits) {
    const auto counters = parseInterfaceCounters(
        "Inter-|   Receive                                                |  Transmit\n"
        " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop fifo colls "
        "carrier compressed\n"
        "    lo:      11       1    0    0    0     0          0         0       12       1    0    0    0     0"
        "       0          0\n"
        "  eth0: 5000000000000 2 0 0 0 0 0 0 7000000000000 3 0 0 0 0 0 0\n");
    ASSERT_EQ(counters.size(), 2U);
    EXPECT_EQ(counters[0].name, QStringLiteral("lo"));
    EXPECT_EQ(counters[0].receivedBytes, 11U);
    EXPECT_EQ(counters[0].sentBytes, 12U);
    EXPECT_EQ(counters[1].name, QStringLiteral("eth0"));
    EXPECT_EQ(counters[1].receivedBytes, 5'000'000'000'000U);
    EXPECT_EQ(counters[1].sentBytes, 7'000'000'000'000U);
}

TEST(NetlinkInterfaceCounters, UnderstandsNumbersThatTouchANameAsLongAsNamesAre) {
    const auto counters =
        parseInterfaceCounters("enx0a1b2c3d4e5f:18446744073709551615 2 0 0 0 0 0 0 400 3 0 0 0 0 0 0\n");
    ASSERT_EQ(counters.size(), 1U);
    EXPECT_EQ(counters[0].name, QStringLiteral("enx0a1b2c3d4e5f"));
    EXPECT_EQ(counters[0].receivedBytes, 18'446'744'073'709'551'615U);
    EXPECT_EQ(counters[0].sentBytes, 400U);
}

TEST(NetlinkInterfaceCounters, ALineWithoutANameOrCountersIsLeftOut) {
    for (const char* line :
         {"", "\n", "eth0", "eth0:", "eth0: 1 2 3 4 5 6 7 8", "eth0: 1 2 3 4 5 6 7 8 x", ": 1 2 3 4 5 6 7 8 9"}) {
        EXPECT_TRUE(parseInterfaceCounters(line).empty()) << line;
    }
    EXPECT_EQ(parseInterfaceCounters("junk\neth0: 1 2 3 4 5 6 7 8 9").size(), 1U);
}

} // namespace skylet::test
