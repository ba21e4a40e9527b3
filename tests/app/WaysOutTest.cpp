#include "app/WaysOut.h"

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

class WaysOutTest : public testing::Test {
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
        return waysOut.sentBytes();
    }

    test::CallLog calls;
    test::FakeInterfaceCounters counters{calls};
    WaysOut waysOut{counters};
};

TEST(LeadsOut, PortsAndModemsDo) {
    for (const char* name : {"enp3s0", "wlan0", "wwan0", "usb0", "ppp0"}) {
        EXPECT_TRUE(leadsOut(sender(name))) << name;
    }
}

TEST(LeadsOut, TheLoopbackDoesNot) {
    EXPECT_FALSE(leadsOut(sender("lo")));
}

TEST(LeadsOut, WhatIsDownDoesNot) {
    auto down = sender("eth0");
    down.up = false;
    EXPECT_FALSE(leadsOut(down));
}

TEST(LeadsOut, WhatRidesOnAnotherDoesNot) {
    auto vlan = sender("eth0.5");
    vlan.stacked = true;
    EXPECT_FALSE(leadsOut(vlan));
}

TEST(LeadsOut, ATunnelOfAProgramDoesNotUnlessItBearsTheNameOfAPort) {
    auto tunnel = sender("tun0");
    tunnel.leadsToAProgram = true;
    EXPECT_FALSE(leadsOut(tunnel));
    auto port = sender("wlan0");
    port.leadsToAProgram = true;
    EXPECT_TRUE(leadsOut(port));
}

TEST_F(WaysOutTest, AllThatLeadOutAreCountedAndNothingElse) {
    auto tunnel = sender("tun0", 300);
    tunnel.leadsToAProgram = true;
    auto later = tunnel;
    later.sentBytes = 50'300;
    EXPECT_EQ(sentBetween({sender("lo", 0), sender("wlan0", 1000), sender("eth0", 5'000'000'000), tunnel},
                          {sender("lo", 7000), sender("wlan0", 1200), sender("eth0", 5'000'000'030), later}),
              230);
}

TEST_F(WaysOutTest, AnInterfaceThatGoesTakesNothingWithIt) {
    EXPECT_EQ(sentBetween({sender("wlan0", 1000), sender("usb0", 9000)}, {sender("wlan0", 1200)}), 200);
}

TEST_F(WaysOutTest, AnInterfaceThatComesHasSentAllItCounts) {
    EXPECT_EQ(sentBetween({sender("wlan0", 1000)}, {sender("wlan0", 1200), sender("usb0", 50)}), 250);
}

TEST_F(WaysOutTest, AnInterfaceThatBeginsAnewNeverTakesAway) {
    EXPECT_EQ(sentBetween({sender("wlan0", 1000)}, {sender("wlan0", 400)}), 400);
}

TEST_F(WaysOutTest, AnInterfaceThatWasDownBringsNothingFromBefore) {
    auto down = sender("usb0", 8000);
    down.up = false;
    EXPECT_EQ(sentBetween({sender("wlan0", 1000), down}, {sender("wlan0", 1000), sender("usb0", 8010)}), 10);
}

TEST_F(WaysOutTest, WithNoWayOutItIsUnknown) {
    EXPECT_EQ(sentIn({{sender("lo", 500)}}), std::nullopt);
    EXPECT_EQ(sentIn(std::vector<InterfaceCounter>()), std::nullopt);
}

TEST_F(WaysOutTest, WithoutAnAnswerOfTheSystemItIsUnknownAndGoesOnLater) {
    const auto before = sentIn({{sender("wlan0", 1000)}});
    EXPECT_EQ(sentIn(std::nullopt), std::nullopt);
    EXPECT_EQ(*sentIn({{sender("wlan0", 1500)}}) - *before, 500);
}

} // namespace
} // namespace skylet
