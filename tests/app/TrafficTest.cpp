#include "app/Traffic.h"

#include <gtest/gtest.h>

#include <optional>

namespace skylet {
namespace {

InterfaceCounter counter(const char* name, std::uint64_t received = 0, std::uint64_t sent = 0) {
    return {QString::fromUtf8(name), true, false, received, sent};
}

TEST(CarriesUserTraffic, WiredWifiTetheringAndCellularPortsDo) {
    for (const char* name : {"en0", "enp3s0", "eno1", "enx0a1b2c", "eth0", "wlan0", "wlp2s0", "wlx00c0", "bnep0",
                             "wwan0", "wwp0s20u4", "usb0", "rmnet0", "rmnet_data1"}) {
        EXPECT_TRUE(carriesUserTraffic(counter(name))) << name;
    }
}

TEST(CarriesUserTraffic, LoopbackTunnelsBridgesAndContainersDoNot) {
    for (const char* name : {"lo", "tun0", "tap0", "wg0", "ppp0", "br0", "bridge0", "utun3", "docker0", "veth1a2b",
                             "virbr0", "bond0", "dummy0", "ifb0", "sit0", "vlan5", ""}) {
        EXPECT_FALSE(carriesUserTraffic(counter(name))) << name;
    }
}

TEST(CarriesUserTraffic, APortThatIsDownDoesNotWhateverItsCounters) {
    auto down = counter("en0", 1000, 1000);
    down.up = false;
    EXPECT_FALSE(carriesUserTraffic(down));
}

TEST(CarriesUserTraffic, AVlanOnTopOfACountedPortDoesNot) {
    auto vlan = counter("enp3s0.100", 1000, 1000);
    vlan.stacked = true;
    EXPECT_FALSE(carriesUserTraffic(vlan));
}

TEST(TrafficTotals, AreSumsOver64BitCountersOfTheCountedPorts) {
    const std::vector<InterfaceCounter> interfaces{counter("wlan0", 5'000'000'000, 7), counter("bridge0", 900, 900),
                                                   counter("eth0", 6'000'000'000, 8)};
    const auto totals = trafficTotals(interfaces, Seconds(12));
    EXPECT_EQ(totals, (TrafficCounters{11'000'000'000, 15, Seconds(12)}));
}

TEST(TrafficTotals, AreZeroWithoutACountedPort) {
    EXPECT_EQ(trafficTotals(std::vector<InterfaceCounter>{counter("lo", 5, 5)}, Seconds(1)),
              (TrafficCounters{0, 0, Seconds(1)}));
}

TEST(TrafficTotals, AreZeroWhenTheSystemDoesNotAnswer) {
    EXPECT_EQ(trafficTotals(std::nullopt, Seconds(1)), (TrafficCounters{0, 0, Seconds(1)}));
}

TEST(TrafficRates, AreBytesPerSecondOfTheTimeThatReallyPassed) {
    EXPECT_EQ(trafficRates({1000, 500, Seconds(10)}, {6000, 1500, Seconds(12.5)}, {}), (TrafficRates{2000, 400}));
}

TEST(TrafficRates, AreZeroForBothWhenEitherTotalWentDown) {
    EXPECT_EQ(trafficRates({1000, 500, Seconds(10)}, {999, 9000, Seconds(12)}, {5, 5}), TrafficRates{});
    EXPECT_EQ(trafficRates({1000, 500, Seconds(10)}, {9000, 499, Seconds(12)}, {5, 5}), TrafficRates{});
}

TEST(TrafficRates, StayWhenNoTimeHasPassed) {
    EXPECT_EQ(trafficRates({1000, 500, Seconds(10)}, {2000, 600, Seconds(10)}, {5, 6}), (TrafficRates{5, 6}));
}

TEST(TrafficRates, AreZeroWhenNothingMoved) {
    EXPECT_EQ(trafficRates({1000, 500, Seconds(10)}, {1000, 500, Seconds(12)}, {5, 6}), TrafficRates{});
}

TEST(TrafficRates, AfterAFailedReadingShowTheWholeCountersOnce) {
    const TrafficCounters failed = trafficTotals(std::nullopt, Seconds(12));
    EXPECT_EQ(trafficRates({1000, 500, Seconds(10)}, failed, {5, 6}), TrafficRates{});
    EXPECT_EQ(trafficRates(failed, {4000, 600, Seconds(14)}, {}), (TrafficRates{2000, 300}));
}

} // namespace
} // namespace skylet
