#include "platform/linux/network/RouteAnswer.h"

#include "NetlinkMessage.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <limits>

namespace skylet::test {

namespace {

constexpr std::uint32_t link = 3;
constexpr std::array<std::uint8_t, 4> gateway = {10, 1, 0, 2};
constexpr std::array<std::uint8_t, 4> source = {10, 1, 0, 1};

rtmsg unicast(std::uint32_t flags = 0) {
    rtmsg head{};
    head.rtm_family = AF_INET;
    head.rtm_type = RTN_UNICAST;
    head.rtm_flags = flags;
    return head;
}

NetlinkMessage refusal(int error) {
    nlmsgerr body{};
    body.error = -error;
    return {NLMSG_ERROR, body};
}

QByteArray bytes(std::span<const std::uint8_t> address) {
    return {reinterpret_cast<const char*>(address.data()), static_cast<qsizetype>(address.size())};
}

/// One hop of RTA_MULTIPATH, with an attribute of its own.
std::vector<std::uint8_t> hop(std::uint32_t interface, std::uint8_t flags) {
    rtnexthop head{};
    head.rtnh_len = sizeof head + 8;
    head.rtnh_flags = flags;
    head.rtnh_ifindex = static_cast<int>(interface);
    std::vector<std::uint8_t> bytes(head.rtnh_len);
    std::memcpy(bytes.data(), &head, sizeof head);
    const nlattr attribute{.nla_len = 8, .nla_type = RTA_GATEWAY};
    std::memcpy(bytes.data() + sizeof head, &attribute, sizeof attribute);
    return bytes;
}

} // namespace

TEST(RouteAnswer, ANumberThatIsNoErrorOfTheKernelsLeavesTheRouteUnknown) {
    nlmsgerr body{};
    body.error = std::numeric_limits<int>::min();
    EXPECT_EQ(parseRoute(NetlinkMessage(NLMSG_ERROR, body).header()), Route{});
}

TEST(RouteAnswer, TellsInterfaceGatewayAndSource) {
    NetlinkMessage answer(RTM_NEWROUTE, unicast());
    answer.with(RTA_OIF, link).with(RTA_GATEWAY, gateway).with(RTA_PREFSRC, source);
    const auto way = parseRoute(answer.header());
    ASSERT_TRUE(way);
    EXPECT_EQ(*way, (Route{.interface = link, .gateway = bytes(gateway), .source = bytes(source)}));
}

TEST(RouteAnswer, TellsAGatewayOfTheOtherAddressFamily) {
    const std::array<std::uint8_t, 16> router = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    std::array<std::uint8_t, sizeof(rtvia) + 16> via{AF_INET6};
    std::copy(router.begin(), router.end(), via.begin() + sizeof(rtvia));
    NetlinkMessage answer(RTM_NEWROUTE, unicast());
    answer.with(RTA_OIF, link).with(RTA_VIA, via);
    const auto way = parseRoute(answer.header());
    ASSERT_TRUE(way);
    EXPECT_EQ(way->gateway, bytes(router));
}

TEST(RouteAnswer, ARefusalIsNoWayOut) {
    for (const int error : {ENETUNREACH, EHOSTUNREACH, EACCES, EINVAL}) {
        EXPECT_FALSE(parseRoute(refusal(error).header())) << error;
    }
}

TEST(RouteAnswer, AKernelWithoutTheAddressFamilyHasNoWayOut) {
    EXPECT_FALSE(parseRoute(refusal(EOPNOTSUPP).header()));
    EXPECT_FALSE(parseRoute(refusal(EAFNOSUPPORT).header()));
}

TEST(RouteAnswer, OnlyUnicastLeavesTheMachine) {
    for (const auto type : {RTN_LOCAL, RTN_BROADCAST, RTN_MULTICAST, RTN_BLACKHOLE, RTN_UNREACHABLE, RTN_THROW}) {
        rtmsg head = unicast();
        head.rtm_type = static_cast<std::uint8_t>(type);
        NetlinkMessage answer(RTM_NEWROUTE, head);
        EXPECT_FALSE(parseRoute(answer.with(RTA_OIF, link).header())) << int(type);
    }
}

TEST(RouteAnswer, NothingLeavesThroughTheLoopback) {
    constexpr std::uint32_t loopback = 1;
    NetlinkMessage answer(RTM_NEWROUTE, unicast());
    EXPECT_FALSE(parseRoute(answer.with(RTA_OIF, loopback).header()));
}

TEST(RouteAnswer, WhatIsNotUnderstoodMayBeAWayOut) {
    NetlinkMessage withoutInterface(RTM_NEWROUTE, unicast());
    NetlinkMessage cutShort(RTM_NEWROUTE, unicast());
    NetlinkMessage anotherMessage(RTM_NEWLINK, unicast());
    EXPECT_EQ(parseRoute(withoutInterface.with(RTA_PRIORITY, link).header()), Route{});
    EXPECT_EQ(parseRoute(cutShort.with(RTA_OIF, link).cutTo(NLMSG_HDRLEN + 4).header()), Route{});
    EXPECT_EQ(parseRoute(anotherMessage.with(RTA_OIF, link).header()), Route{});
    EXPECT_EQ(parseRoute(refusal(ENOMEM).header()), Route{});
    EXPECT_EQ(parseRoute(refusal(EPERM).header()), Route{});
    EXPECT_FALSE(Route{}.isKnown());
}

TEST(RouteAnswer, ARouteWithoutMultipathHasOneHop) {
    NetlinkMessage answer(RTM_NEWROUTE, unicast(RTNH_F_LINKDOWN));
    const auto hops = parseHops(answer.with(RTA_OIF, link).with(RTA_GATEWAY, gateway).header());
    ASSERT_EQ(hops.size(), 1U);
    EXPECT_EQ(hops[0].interface, link);
    EXPECT_EQ(hops[0].flags, std::uint32_t{RTNH_F_LINKDOWN});
}

TEST(RouteAnswer, EachHopOfAMultipathRouteHasItsOwnFlags) {
    auto bytes = hop(3, RTNH_F_LINKDOWN);
    const auto second = hop(4, 0);
    bytes.insert(bytes.end(), second.begin(), second.end());
    NetlinkMessage answer(RTM_NEWROUTE, unicast());
    const auto hops = parseHops(answer.withBytes(RTA_MULTIPATH, bytes).header());
    ASSERT_EQ(hops.size(), 2U);
    EXPECT_EQ(hops[0].interface, 3U);
    EXPECT_EQ(hops[0].flags, std::uint32_t{RTNH_F_LINKDOWN});
    EXPECT_EQ(hops[1].interface, 4U);
    EXPECT_EQ(hops[1].flags, 0U);
}

TEST(RouteAnswer, ABrokenRowOfHopsEndsWhereItBreaks) {
    auto bytes = hop(3, 0);
    auto broken = hop(4, 0);
    broken[0] = 2;
    bytes.insert(bytes.end(), broken.begin(), broken.end());
    NetlinkMessage answer(RTM_NEWROUTE, unicast());
    EXPECT_EQ(parseHops(answer.withBytes(RTA_MULTIPATH, bytes).header()).size(), 1U);
}

TEST(RouteAnswer, HopsThatAreNotToldAreNone) {
    EXPECT_TRUE(parseHops(NetlinkMessage(RTM_NEWROUTE, unicast()).header()).empty());
    EXPECT_TRUE(parseHops(refusal(EMSGSIZE).header()).empty());
}

} // namespace skylet::test
