#include "platform/linux/network/LinkTable.h"

#include "NetlinkMessage.h"
#include "platform/linux/network/NetlinkAttributes.h"

#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/if_link.h>
#include <sys/socket.h>

#include <span>
#include <string_view>

namespace skylet::test {

namespace {

constexpr std::uint32_t port = 2;
constexpr std::uint32_t rider = 7;

/// A message about the link `interface`, of the given type.
NetlinkMessage about(std::uint32_t interface, std::uint16_t type = RTM_NEWLINK, std::uint8_t family = AF_UNSPEC) {
    ifinfomsg head{};
    head.ifi_family = family;
    head.ifi_index = static_cast<int>(interface);
    head.ifi_flags = IFF_UP;
    return {type, head};
}

/// Whether a link of the given kind that names no other one is stacked.
bool isStackedKind(const char* kind) {
    LinkTable links;
    applyMessage(about(rider).withNestedText(IFLA_LINKINFO, IFLA_INFO_KIND, kind).header(), links);
    return isStacked(rider, links);
}

/// A port and what rides on it.
LinkTable portAndRider() {
    LinkTable links;
    applyMessage(about(port).header(), links);
    applyMessage(about(rider).withNestedText(IFLA_LINKINFO, IFLA_INFO_KIND, "vlan").with(IFLA_LINK, port).header(),
                 links);
    return links;
}

} // namespace

TEST(NetlinkMessages, OneThatClaimsMoreThan2GigabytesEndsItsDatagram) {
    auto message = about(port);
    message.cutTo(0x80000010);
    int messages = 0;
    netlink::forEachMessage(std::span(reinterpret_cast<const char*>(&message.header()), 64),
                            [&messages](const nlmsghdr&) { ++messages; });
    EXPECT_EQ(messages, 0);
}

TEST(LinkTable, AggregatesAndTunnelsAreStacked) {
    for (const char* kind : {"bond", "bridge", "team", "vxlan", "geneve", "gre", "sit", "wireguard", "xfrm"}) {
        EXPECT_TRUE(isStackedKind(kind)) << kind;
    }
    for (const char* kind : {"tun", "dummy", "wwan", "ifb", "ppp", "ipoib"}) {
        EXPECT_FALSE(isStackedKind(kind)) << kind;
    }
}

TEST(LinkTable, OnlyATunDeviceLeadsToAProgram) {
    for (const char* kind : {"tun", "dummy", "bridge", "wireguard"}) {
        LinkTable links;
        applyMessage(about(rider).withNestedText(IFLA_LINKINFO, IFLA_INFO_KIND, kind).header(), links);
        EXPECT_EQ(isTun(rider, links), std::string_view(kind) == "tun") << kind;
    }
    EXPECT_FALSE(isTun(rider, portAndRider())) << "a VLAN";
    EXPECT_FALSE(isTun(port, portAndRider())) << "of no kind";
    EXPECT_FALSE(isTun(rider, {})) << "not known";
}

TEST(LinkTable, WhatRidesOnALinkOfThisNamespaceIsStacked) {
    const LinkTable links = portAndRider();
    EXPECT_TRUE(isStacked(rider, links));
    EXPECT_FALSE(isStacked(port, links));
}

TEST(LinkTable, WhatRidesOnALinkElsewhereOrOnNoneIsNot) {
    LinkTable links;
    applyMessage(about(port).header(), links);
    applyMessage(about(rider)
                     .withNestedText(IFLA_LINKINFO, IFLA_INFO_KIND, "macvlan")
                     .with(IFLA_LINK, port)
                     .with(IFLA_LINK_NETNSID, std::int32_t{0})
                     .header(),
                 links);
    EXPECT_FALSE(isStacked(rider, links)) << "the number is that of a link of the other namespace";
    applyMessage(about(rider).with(IFLA_LINK, std::uint32_t{0}).header(), links);
    EXPECT_FALSE(isStacked(rider, links));
}

TEST(LinkTable, ALinkWhoseOtherEndHasLeftIsAWayOut) {
    LinkTable links = portAndRider();
    applyMessage(about(port, RTM_DELLINK).header(), links);
    EXPECT_FALSE(isStacked(rider, links));
}

TEST(LinkTable, ALinkThatIsGoneIsForgotten) {
    LinkTable links = portAndRider();
    applyMessage(about(rider, RTM_DELLINK).header(), links);
    EXPECT_EQ(links.size(), 1U);
    EXPECT_FALSE(isStacked(rider, links));
}

TEST(LinkTable, MessagesTellALinksFlags) {
    LinkTable links;
    applyMessage(about(port).header(), links);
    EXPECT_EQ(links[port].flags, std::uint32_t{IFF_UP});
}

TEST(LinkTable, MessagesAboutOneAspectAloneChangeNothing) {
    LinkTable links = portAndRider();
    // A port that leaves a bridge, and the end of a search for Wi-Fi networks.
    applyMessage(about(port, RTM_DELLINK, AF_BRIDGE).header(), links);
    applyMessage(about(rider).with(IFLA_WIRELESS, std::uint32_t{0}).header(), links);
    EXPECT_TRUE(isStacked(rider, links));
    LinkTable none;
    applyMessage(about(port, RTM_NEWLINK, AF_BRIDGE).header(), none);
    applyMessage(about(port).with(IFLA_WIRELESS, std::uint32_t{0}).header(), none);
    EXPECT_TRUE(none.empty());
}

TEST(LinkTable, MessagesAboutOtherThingsOrCutShortChangeNothing) {
    LinkTable none;
    applyMessage(about(port, RTM_NEWROUTE).header(), none);
    applyMessage(about(port).cutTo(NLMSG_HDRLEN + 4).header(), none);
    EXPECT_TRUE(none.empty());
}

} // namespace skylet::test
