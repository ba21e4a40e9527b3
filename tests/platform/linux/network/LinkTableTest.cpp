#include "platform/linux/network/LinkTable.h"

#include "NetlinkMessage.h"

#include <gtest/gtest.h>
#include <linux/if_link.h>
#include <sys/socket.h>

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
    return {type, head};
}

void hear(LinkTable& links, const NetlinkMessage& message) {
    const auto change = parseLinkChange(message.header());
    ASSERT_TRUE(change);
    apply(*change, links);
}

/// Whether a link of the given kind that names no other one is stacked.
bool isStackedKind(const char* kind) {
    LinkTable links;
    hear(links, about(rider).withNestedText(IFLA_LINKINFO, IFLA_INFO_KIND, kind));
    return isStacked(rider, links);
}

/// A port and what rides on it.
LinkTable portAndRider() {
    LinkTable links;
    hear(links, about(port));
    hear(links, about(rider).withNestedText(IFLA_LINKINFO, IFLA_INFO_KIND, "vlan").with(IFLA_LINK, port));
    return links;
}

} // namespace

TEST(LinkTable, KindsThatBundleOrWrapAreStacked) {
    for (const char* kind : {"bond", "bridge", "team", "vxlan", "geneve", "gre", "sit", "wireguard"}) {
        EXPECT_TRUE(isStackedKind(kind)) << kind;
    }
    for (const char* kind : {"tun", "dummy", "wwan", "ifb"}) {
        EXPECT_FALSE(isStackedKind(kind)) << kind;
    }
}

TEST(LinkTable, OnlyATunDeviceLeadsToAProgram) {
    for (const char* kind : {"tun", "dummy", "bridge", "wireguard"}) {
        LinkTable links;
        hear(links, about(rider).withNestedText(IFLA_LINKINFO, IFLA_INFO_KIND, kind));
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
    hear(links, about(port));
    hear(links, about(rider)
                    .withNestedText(IFLA_LINKINFO, IFLA_INFO_KIND, "macvlan")
                    .with(IFLA_LINK, port)
                    .with(IFLA_LINK_NETNSID, std::int32_t{0}));
    EXPECT_FALSE(isStacked(rider, links)) << "the number is that of a link of the other namespace";
    hear(links, about(rider).with(IFLA_LINK, std::uint32_t{0}));
    EXPECT_FALSE(isStacked(rider, links));
}

TEST(LinkTable, ALinkWhoseOtherEndHasLeftIsAWayOut) {
    LinkTable links = portAndRider();
    hear(links, about(port, RTM_DELLINK));
    EXPECT_FALSE(isStacked(rider, links));
}

TEST(LinkTable, ALinkThatIsGoneIsForgotten) {
    LinkTable links = portAndRider();
    hear(links, about(rider, RTM_DELLINK));
    EXPECT_EQ(links.size(), 1U);
    EXPECT_FALSE(isStacked(rider, links));
}

TEST(LinkTable, MessagesAboutOneAspectAloneSayNothing) {
    // A port that joins or leaves a bridge, and the end of a search for Wi-Fi networks.
    EXPECT_FALSE(parseLinkChange(about(port, RTM_NEWLINK, AF_BRIDGE).header()));
    EXPECT_FALSE(parseLinkChange(about(port, RTM_DELLINK, AF_BRIDGE).header()));
    EXPECT_FALSE(parseLinkChange(about(port).with(IFLA_WIRELESS, std::uint32_t{0}).header()));
}

TEST(LinkTable, MessagesAboutOtherThingsOrCutShortSayNothing) {
    EXPECT_FALSE(parseLinkChange(about(port, RTM_NEWROUTE).header()));
    EXPECT_FALSE(parseLinkChange(about(port).cutTo(NLMSG_HDRLEN + 4).header()));
}

} // namespace skylet::test
