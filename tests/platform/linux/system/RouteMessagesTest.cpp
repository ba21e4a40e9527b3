#include "platform/linux/system/RouteMessages.h"

#include "NetlinkMessage.h"

#include <gtest/gtest.h>
#include <linux/if.h>

#include <vector>

namespace skylet::test {

namespace {

using Address4 = std::array<std::uint8_t, 4>;

rtmsg defaultRouteHead(std::uint8_t family = AF_INET) {
    rtmsg head{};
    head.rtm_family = family;
    head.rtm_table = RT_TABLE_MAIN;
    head.rtm_type = RTN_UNICAST;
    return head;
}

void append(std::vector<std::uint8_t>& bytes, const void* data, std::size_t size) {
    const auto* first = static_cast<const std::uint8_t*>(data);
    bytes.insert(bytes.end(), first, first + size);
}

void appendHop(std::vector<std::uint8_t>& bytes, int interface, std::uint8_t flags, const Address4& gateway) {
    rtattr attribute{.rta_len = RTA_LENGTH(sizeof gateway), .rta_type = RTA_GATEWAY};
    rtnexthop head{};
    head.rtnh_len = static_cast<std::uint16_t>(sizeof head + sizeof attribute + sizeof gateway);
    head.rtnh_flags = flags;
    head.rtnh_hops = 3;
    head.rtnh_ifindex = interface;
    append(bytes, &head, sizeof head);
    append(bytes, &attribute, sizeof attribute);
    append(bytes, gateway.data(), gateway.size());
}

} // namespace

TEST(RouteMessages, ALinkMessageTellsTheFlags) {
    ifinfomsg head{};
    head.ifi_index = 7;
    head.ifi_flags = IFF_UP | IFF_RUNNING;
    const auto link = parseLink(NetlinkMessage(RTM_NEWLINK, head).header());
    ASSERT_TRUE(link);
    EXPECT_EQ(link->interface, 7U);
    EXPECT_EQ(link->flags, static_cast<std::uint32_t>(IFF_UP | IFF_RUNNING));
}

TEST(RouteMessages, ADefaultRouteTellsEverythingThatDecides) {
    auto head = defaultRouteHead();
    head.rtm_tos = 16;
    const auto route = parseDefaultRoute(NetlinkMessage(RTM_NEWROUTE, head)
                                             .with(RTA_TABLE, std::uint32_t{51820})
                                             .with(RTA_PRIORITY, std::uint32_t{600})
                                             .with(RTA_PREF, std::uint8_t{1})
                                             .with(RTA_NH_ID, std::uint32_t{12})
                                             .with(RTA_OIF, std::uint32_t{3})
                                             .with(RTA_GATEWAY, Address4{10, 0, 0, 2})
                                             .with(RTA_PREFSRC, Address4{10, 0, 0, 1})
                                             .header());
    ASSERT_TRUE(route);
    EXPECT_EQ(route->family, AF_INET);
    EXPECT_EQ(route->table, 51820U);
    EXPECT_EQ(route->type, RTN_UNICAST);
    EXPECT_EQ(route->typeOfService, 16);
    EXPECT_EQ(route->priority, 600U);
    EXPECT_EQ(route->routerPreference, 1);
    EXPECT_EQ(route->nextHopId, 12U);
    EXPECT_EQ(route->preferredSource, (NetworkAddress{10, 0, 0, 1}));
    ASSERT_EQ(route->nextHops.size(), 1U);
    EXPECT_EQ(route->nextHops.front().interface, 3U);
    EXPECT_EQ(route->nextHops.front().gateway, (NetworkAddress{10, 0, 0, 2}));
    EXPECT_FALSE(route->nextHops.front().dead);
}

TEST(RouteMessages, ARouteWithoutATableAttributeStandsInTheTableOfItsHead) {
    auto head = defaultRouteHead();
    head.rtm_table = 77;
    EXPECT_EQ(parseDefaultRoute(NetlinkMessage(RTM_NEWROUTE, head).header())->table, 77U);
}

TEST(RouteMessages, DeadAndLinkdownHopsAreDead) {
    for (const int flag : {RTNH_F_DEAD, RTNH_F_LINKDOWN}) {
        auto head = defaultRouteHead();
        head.rtm_flags = static_cast<unsigned>(flag);
        const auto route =
            parseDefaultRoute(NetlinkMessage(RTM_NEWROUTE, head).with(RTA_OIF, std::uint32_t{3}).header());
        EXPECT_TRUE(route->nextHops.front().dead) << flag;
    }
}

TEST(RouteMessages, AnIPv6GatewayOfAnIPv4RouteIsAGatewayToo) {
    const std::array<std::uint8_t, 18> via = {AF_INET6, 0, 0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    const auto route = parseDefaultRoute(NetlinkMessage(RTM_NEWROUTE, defaultRouteHead()).with(RTA_VIA, via).header());
    NetworkAddress expected{0xfe, 0x80};
    expected.back() = 1;
    EXPECT_EQ(route->nextHops.front().gateway, expected);
}

TEST(RouteMessages, AMultipathRouteTellsEachOfItsHops) {
    std::vector<std::uint8_t> hops;
    appendHop(hops, 3, 0, {10, 0, 0, 2});
    appendHop(hops, 4, RTNH_F_LINKDOWN, {10, 1, 0, 2});
    const auto route =
        parseDefaultRoute(NetlinkMessage(RTM_NEWROUTE, defaultRouteHead()).withBytes(RTA_MULTIPATH, hops).header());
    ASSERT_TRUE(route);
    ASSERT_EQ(route->nextHops.size(), 2U);
    EXPECT_EQ(route->nextHops[0].interface, 3U);
    EXPECT_EQ(route->nextHops[0].gateway, (NetworkAddress{10, 0, 0, 2}));
    EXPECT_EQ(route->nextHops[0].weight, 3);
    EXPECT_FALSE(route->nextHops[0].dead);
    EXPECT_EQ(route->nextHops[1].interface, 4U);
    EXPECT_TRUE(route->nextHops[1].dead);
}

TEST(RouteMessages, ABrokenRowOfHopsEndsTheRow) {
    std::vector<std::uint8_t> hops;
    appendHop(hops, 3, 0, {10, 0, 0, 2});
    const std::size_t whole = hops.size();
    for (const std::uint16_t length : {std::uint16_t{0}, std::uint16_t{200}}) {
        hops.resize(whole);
        appendHop(hops, 4, 0, {10, 1, 0, 2});
        std::memcpy(hops.data() + whole, &length, sizeof length);
        const auto route =
            parseDefaultRoute(NetlinkMessage(RTM_NEWROUTE, defaultRouteHead()).withBytes(RTA_MULTIPATH, hops).header());
        EXPECT_EQ(route->nextHops.size(), 1U) << length;
    }
}

TEST(RouteMessages, OnlyRoutesToEverywhereOutsideOfTheLocalTableAreDefaultRoutes) {
    auto toANet = defaultRouteHead();
    toANet.rtm_dst_len = 8;
    EXPECT_FALSE(parseDefaultRoute(NetlinkMessage(RTM_NEWROUTE, toANet).header()));
    auto local = defaultRouteHead();
    local.rtm_table = RT_TABLE_LOCAL;
    EXPECT_FALSE(parseDefaultRoute(NetlinkMessage(RTM_NEWROUTE, local).header()));
    EXPECT_FALSE(parseDefaultRoute(NetlinkMessage(RTM_NEWROUTE, defaultRouteHead(RTNL_FAMILY_IPMR)).header()));
    EXPECT_TRUE(parseDefaultRoute(NetlinkMessage(RTM_NEWROUTE, defaultRouteHead(AF_INET6)).header()));
}

TEST(RouteMessages, MessagesThatAreCutShortSayNothing) {
    NetlinkMessage route(RTM_NEWROUTE, defaultRouteHead());
    route.cutTo(NLMSG_HDRLEN + 4);
    EXPECT_FALSE(parseDefaultRoute(route.header()));
    EXPECT_FALSE(concernsDefaultRoutes(route.header()));
    EXPECT_FALSE(parseLink(NetlinkMessage(RTM_NEWLINK, ifinfomsg{}).cutTo(NLMSG_HDRLEN + 4).header()));
    // An attribute that claims to reach beyond the end.
    NetlinkMessage beyond(RTM_NEWROUTE, defaultRouteHead());
    beyond.with(RTA_GATEWAY, Address4{10, 0, 0, 2});
    beyond.cutTo(beyond.header().nlmsg_len - 4);
    EXPECT_EQ(parseDefaultRoute(beyond.header())->nextHops.front().gateway, NetworkAddress{});
}

TEST(RouteMessages, OtherRoutesDoNotConcernTheDefaultRoutes) {
    auto toANet = defaultRouteHead();
    toANet.rtm_dst_len = 24;
    EXPECT_FALSE(concernsDefaultRoutes(NetlinkMessage(RTM_NEWROUTE, toANet).header()));
    EXPECT_FALSE(concernsDefaultRoutes(NetlinkMessage(RTM_DELROUTE, toANet).header()));
}

TEST(RouteMessages, DefaultRoutesLinksAddressesAndNextHopObjectsConcernTheDefaultRoutes) {
    EXPECT_TRUE(concernsDefaultRoutes(NetlinkMessage(RTM_NEWROUTE, defaultRouteHead()).header()));
    EXPECT_TRUE(concernsDefaultRoutes(NetlinkMessage(RTM_DELROUTE, defaultRouteHead()).header()));
    EXPECT_TRUE(concernsDefaultRoutes(NetlinkMessage(RTM_NEWLINK, ifinfomsg{}).header()));
    EXPECT_TRUE(concernsDefaultRoutes(NetlinkMessage(RTM_DELADDR, ifinfomsg{}).header()));
    EXPECT_TRUE(concernsDefaultRoutes(NetlinkMessage(RTM_DELNEXTHOP, ifinfomsg{}).header()));
}

} // namespace skylet::test
