#include "platform/linux/system/DefaultRoutes.h"

#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/rtnetlink.h>

namespace skylet::test {

namespace {

constexpr std::uint32_t runningLink = IFF_UP | IFF_RUNNING | IFF_LOWER_UP;
constexpr std::uint32_t wired = 2;
constexpr std::uint32_t wireless = 3;

const LinkFlags bothRunning = {{wired, runningLink}, {wireless, runningLink}};

NextHop hopThrough(std::uint32_t interface) {
    NextHop hop;
    hop.interface = interface;
    hop.gateway = {10, 0, 0, static_cast<std::uint8_t>(interface)};
    return hop;
}

DefaultRoute routeThrough(std::uint32_t interface) {
    DefaultRoute route;
    route.family = AF_INET;
    route.table = RT_TABLE_MAIN;
    route.type = RTN_UNICAST;
    route.nextHops = {hopThrough(interface)};
    return route;
}

bool satisfied(const DefaultRoute& route, const LinkFlags& links = bothRunning) {
    return pathState({route}, links).satisfied;
}

} // namespace

TEST(DefaultRoutes, NoRouteIsNoWayOut) {
    EXPECT_FALSE(pathState({}, bothRunning).satisfied);
}

TEST(DefaultRoutes, AUnicastRouteThroughARunningLinkIsAWayOut) {
    EXPECT_TRUE(satisfied(routeThrough(wired)));
}

TEST(DefaultRoutes, TheLinkHasToBeUpAndRunningWithACarrier) {
    EXPECT_FALSE(satisfied(routeThrough(wired), {{wired, 0U}}));
    EXPECT_FALSE(satisfied(routeThrough(wired), {{wired, IFF_RUNNING | IFF_LOWER_UP}}));
    EXPECT_FALSE(satisfied(routeThrough(wired), {{wired, IFF_UP | IFF_LOWER_UP}}));
    EXPECT_FALSE(satisfied(routeThrough(wired), {{wired, IFF_UP | IFF_RUNNING}}));
    EXPECT_TRUE(satisfied(routeThrough(wired), {{wired, IFF_UP | IFF_RUNNING | IFF_LOWER_UP}}));
}

TEST(DefaultRoutes, ALinkNobodyKnowsIsNoWayOut) {
    EXPECT_FALSE(satisfied(routeThrough(wired), {}));
}

TEST(DefaultRoutes, RoutesThatRefuseAreNoWayOut) {
    for (const auto type : {RTN_UNREACHABLE, RTN_BLACKHOLE, RTN_PROHIBIT, RTN_THROW, RTN_LOCAL}) {
        auto route = routeThrough(wired);
        route.type = static_cast<std::uint8_t>(type);
        EXPECT_FALSE(satisfied(route)) << "type " << int(type);
    }
}

TEST(DefaultRoutes, ADeadHopIsNoWayOut) {
    auto route = routeThrough(wired);
    route.nextHops.front().dead = true;
    EXPECT_FALSE(satisfied(route));
}

TEST(DefaultRoutes, OneLivingHopAmongSeveralIsEnough) {
    auto route = routeThrough(wired);
    route.nextHops.front().dead = true;
    route.nextHops.push_back(hopThrough(wireless));
    EXPECT_TRUE(satisfied(route));
    EXPECT_FALSE(satisfied(route, {{wired, runningLink}, {wireless, IFF_UP}}));
}

TEST(DefaultRoutes, OneUsableRouteAmongSeveralIsEnough) {
    auto unreachable = routeThrough(wired);
    unreachable.type = RTN_UNREACHABLE;
    EXPECT_TRUE(pathState({unreachable, routeThrough(wireless)}, bothRunning).satisfied);
    EXPECT_TRUE(pathState({routeThrough(wireless), unreachable}, bothRunning).satisfied);
}

TEST(DefaultRoutes, AnyTableCounts) {
    auto route = routeThrough(wired);
    route.table = 51820;
    EXPECT_TRUE(satisfied(route));
}

TEST(DefaultRoutes, AHopWhoseLinkIsNotToldCountsAsUsable) {
    auto route = routeThrough(0);
    route.nextHopId = 7;
    EXPECT_TRUE(satisfied(route));
}

TEST(DefaultRoutes, TheOrderOfRoutesAndHopsDoesNotMatter) {
    auto split = routeThrough(wired);
    split.nextHops.push_back(hopThrough(wireless));
    auto swapped = routeThrough(wireless);
    swapped.nextHops.push_back(hopThrough(wired));
    EXPECT_EQ(pathState({split}, bothRunning), pathState({swapped}, bothRunning));
    EXPECT_EQ(pathState({routeThrough(wired), routeThrough(wireless)}, bothRunning),
              pathState({routeThrough(wireless), routeThrough(wired)}, bothRunning));
}

TEST(DefaultRoutes, EverythingThatDecidesWherePacketsGoTellsTwoStatesApart) {
    const auto before = pathState({routeThrough(wired)}, bothRunning);
    const auto differs = [&before](auto change) {
        auto route = routeThrough(wired);
        change(route);
        return !(pathState({route}, bothRunning) == before);
    };
    EXPECT_FALSE(differs([](DefaultRoute&) {}));
    EXPECT_TRUE(differs([](DefaultRoute& route) { route.family = AF_INET6; }));
    EXPECT_TRUE(differs([](DefaultRoute& route) { route.table = 100; }));
    EXPECT_TRUE(differs([](DefaultRoute& route) { route.type = RTN_UNREACHABLE; }));
    EXPECT_TRUE(differs([](DefaultRoute& route) { route.priority = 600; }));
    EXPECT_TRUE(differs([](DefaultRoute& route) { route.typeOfService = 16; }));
    EXPECT_TRUE(differs([](DefaultRoute& route) { route.routerPreference = 1; }));
    EXPECT_TRUE(differs([](DefaultRoute& route) { route.preferredSource = {10, 0, 0, 9}; }));
    EXPECT_TRUE(differs([](DefaultRoute& route) { route.nextHopId = 7; }));
    EXPECT_TRUE(differs([](DefaultRoute& route) { route.nextHops.front().interface = wireless; }));
    EXPECT_TRUE(differs([](DefaultRoute& route) { route.nextHops.front().gateway = {10, 0, 0, 99}; }));
    EXPECT_TRUE(differs([](DefaultRoute& route) { route.nextHops.front().dead = true; }));
    EXPECT_TRUE(differs([](DefaultRoute& route) { route.nextHops.front().weight = 5; }));
    EXPECT_TRUE(differs([](DefaultRoute& route) { route.nextHops.push_back(hopThrough(wireless)); }));
    EXPECT_FALSE(pathState({}, bothRunning) == before);
}

TEST(DefaultRoutes, TheCarrierOfARoutesLinkTellsTwoStatesApart) {
    const LinkFlags oneWithoutCarrier = {{wired, runningLink}, {wireless, IFF_UP}};
    EXPECT_FALSE(pathState({routeThrough(wired), routeThrough(wireless)}, bothRunning) ==
                 pathState({routeThrough(wired), routeThrough(wireless)}, oneWithoutCarrier));
}

TEST(DefaultRoutes, TheStepsInWhichTheKernelTakesALinkDownAreOneChange) {
    const auto carrierGone = pathState({routeThrough(wired)}, {{wired, IFF_UP | IFF_RUNNING}});
    EXPECT_EQ(carrierGone, pathState({routeThrough(wired)}, {{wired, IFF_UP}}));
    auto unused = routeThrough(wired);
    unused.nextHops.front().dead = true;
    EXPECT_EQ(carrierGone, pathState({unused}, {{wired, IFF_UP}}));
}

TEST(DefaultRoutes, LinksWithoutADefaultRouteDoNotMatter) {
    EXPECT_EQ(pathState({routeThrough(wired)}, bothRunning),
              pathState({routeThrough(wired)}, {{wired, runningLink}, {wireless, 0U}}));
}

TEST(DefaultRoutes, FlagsThatSayNothingOfTheWayOutDoNotMatter) {
    EXPECT_EQ(pathState({routeThrough(wired)}, {{wired, runningLink}}),
              pathState({routeThrough(wired)}, {{wired, runningLink | IFF_PROMISC | IFF_ALLMULTI}}));
}

} // namespace skylet::test
