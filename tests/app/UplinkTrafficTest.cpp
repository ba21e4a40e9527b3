#include "app/UplinkTraffic.h"

#include "support/FakeServices.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace skylet {
namespace {

InterfaceCounter sender(const char* name, std::uint64_t sent = 0) {
    InterfaceCounter interface;
    interface.name = QString::fromUtf8(name);
    interface.up = true;
    interface.sentBytes = sent;
    return interface;
}

class UplinkTrafficTest : public testing::Test {
  protected:
    /// What has left the machine between these two states of its interfaces.
    std::optional<std::int64_t> sentBetween(const std::vector<InterfaceCounter>& before,
                                            const std::vector<InterfaceCounter>& after) {
        const auto first = sentIn(before);
        const auto second = sentIn(after);
        return first && second ? std::optional(*second - *first) : std::nullopt;
    }

    std::optional<std::int64_t> sentIn(const std::optional<std::vector<InterfaceCounter>>& interfaces) {
        counters.interfaces = interfaces;
        return uplinks.sentBytes();
    }

    test::CallLog calls;
    test::FakeInterfaceCounters counters{calls};
    UplinkTraffic uplinks{counters};
};

TEST(IsUplink, PortsAndModemsAre) {
    for (const char* name : {"enp3s0", "wlan0", "wwan0", "usb0", "ppp0"}) {
        EXPECT_TRUE(isUplink(sender(name))) << name;
    }
}

TEST(IsUplink, TheLoopbackIsNot) {
    EXPECT_FALSE(isUplink(sender("lo")));
}

TEST(IsUplink, WhatIsDownIsNot) {
    auto down = sender("eth0");
    down.up = false;
    EXPECT_FALSE(isUplink(down));
}

TEST(IsUplink, WhatRidesOnAnotherIsNot) {
    auto vlan = sender("eth0.5");
    vlan.stacked = true;
    EXPECT_FALSE(isUplink(vlan));
}

TEST(IsUplink, ATunnelOfAProgramIsNotUnlessItBearsTheNameOfAPort) {
    auto tunnel = sender("tun0");
    tunnel.tun = true;
    EXPECT_FALSE(isUplink(tunnel));
    auto port = sender("wlan0");
    port.tun = true;
    EXPECT_TRUE(isUplink(port));
}

TEST_F(UplinkTrafficTest, AllUplinksAreCountedAndNothingElse) {
    auto tunnel = sender("tun0", 300);
    tunnel.tun = true;
    auto later = tunnel;
    later.sentBytes = 50'300;
    EXPECT_EQ(sentBetween({sender("lo", 0), sender("wlan0", 1000), sender("eth0", 5'000'000'000), tunnel},
                          {sender("lo", 7000), sender("wlan0", 1200), sender("eth0", 5'000'000'030), later}),
              230);
}

TEST_F(UplinkTrafficTest, AnInterfaceThatGoesTakesNothingWithIt) {
    EXPECT_EQ(sentBetween({sender("wlan0", 1000), sender("usb0", 9000)}, {sender("wlan0", 1200)}), 200);
}

TEST_F(UplinkTrafficTest, AnInterfaceThatComesHasSentAllItCounts) {
    EXPECT_EQ(sentBetween({sender("wlan0", 1000)}, {sender("wlan0", 1200), sender("usb0", 50)}), 250);
}

TEST_F(UplinkTrafficTest, AnInterfaceThatBeginsAnewNeverTakesAway) {
    EXPECT_EQ(sentBetween({sender("wlan0", 1000)}, {sender("wlan0", 400)}), 400);
}

TEST_F(UplinkTrafficTest, AnInterfaceThatWasDownBringsNothingFromBefore) {
    auto down = sender("usb0", 8000);
    down.up = false;
    EXPECT_EQ(sentBetween({sender("wlan0", 1000), down}, {sender("wlan0", 1000), sender("usb0", 8010)}), 10);
}

TEST_F(UplinkTrafficTest, WithoutAnUplinkItIsUnknown) {
    EXPECT_EQ(sentIn({{sender("lo", 500)}}), std::nullopt);
    EXPECT_EQ(sentIn(std::vector<InterfaceCounter>()), std::nullopt);
}

TEST_F(UplinkTrafficTest, WithoutAnAnswerOfTheSystemItIsUnknownAndGoesOnLater) {
    const auto before = sentIn({{sender("wlan0", 1000)}});
    EXPECT_EQ(sentIn(std::nullopt), std::nullopt);
    EXPECT_EQ(*sentIn({{sender("wlan0", 1500)}}) - *before, 500);
}

} // namespace
} // namespace skylet
