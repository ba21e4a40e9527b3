#include "platform/linux/network/LinkTable.h"

#include "platform/linux/network/NetlinkAttributes.h"

#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace skylet {

namespace {

using namespace netlink;

// Only drivers without hardware of their own name a kind (IFLA_INFO_KIND). One that names no lower link is an aggregate
// (bridge, bond) or a tunnel, except for these.
constexpr std::array<std::string_view, 6> independentKinds = {"dummy", "ifb", "ipoib", "ppp", "tun", "wwan"};

/// A view into the message; empty where it does not say.
std::string_view kindOf(const nlattr& linkInfo) {
    std::string_view kind;
    const auto read = [](const nlattr* attribute, void* found) {
        if (mnl_attr_get_type(attribute) == IFLA_INFO_KIND && mnl_attr_validate(attribute, MNL_TYPE_NUL_STRING) == 0) {
            *static_cast<std::string_view*>(found) = mnl_attr_get_str(attribute);
        }
        return static_cast<int>(MNL_CB_OK);
    };
    mnl_attr_parse_nested(&linkInfo, read, &kind);
    return kind;
}

} // namespace

void applyMessage(const nlmsghdr& message, LinkTable& links) {
    const bool isGone = message.nlmsg_type == RTM_DELLINK;
    const auto* head = isGone || message.nlmsg_type == RTM_NEWLINK ? fixedPart<ifinfomsg>(message) : nullptr;
    if (head == nullptr || head->ifi_family != AF_UNSPEC) {
        return;
    }
    const auto interface = static_cast<std::uint32_t>(head->ifi_index);
    if (isGone) {
        links.erase(interface);
        return;
    }
    Link link{.flags = head->ifi_flags};
    std::string_view kind;
    bool isPartial = false;
    bool lowerLinkIsElsewhere = false;
    forEachAttribute<ifinfomsg>(message, [&](const nlattr& attribute) {
        switch (mnl_attr_get_type(&attribute)) {
        case IFLA_LINK:
            link.lower = number(attribute);
            break;
        case IFLA_LINK_NETNSID:
            lowerLinkIsElsewhere = true;
            break;
        case IFLA_LINKINFO:
            kind = kindOf(attribute);
            break;
        case IFLA_WIRELESS:
            isPartial = true;
            break;
        default:
            break;
        }
    });
    if (isPartial) {
        return;
    }
    link.isTun = kind == "tun";
    link.isAggregateOrTunnel =
        link.lower == 0 && !kind.empty() &&
        std::find(independentKinds.begin(), independentKinds.end(), kind) == independentKinds.end();
    // An interface that is stacked on one of another namespace (a container's end of a veth) is an uplink of this
    // namespace.
    links[interface] = lowerLinkIsElsewhere ? Link{.flags = link.flags} : link;
}

bool isStacked(std::uint32_t interface, const LinkTable& links) {
    const auto found = links.find(interface);
    return found != links.end() && (found->second.isAggregateOrTunnel || links.count(found->second.lower) != 0);
}

bool isTun(std::uint32_t interface, const LinkTable& links) {
    const auto found = links.find(interface);
    return found != links.end() && found->second.isTun;
}

} // namespace skylet
