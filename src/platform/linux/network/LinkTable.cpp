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

// Kinds (IFLA_INFO_KIND) that bundle ports or wrap what they carry into packets of their own. Their bytes are counted
// by another interface too although the kernel names none.
constexpr std::array stackedKinds = {
    std::string_view("bareudp"),     std::string_view("batadv"),    std::string_view("bond"),
    std::string_view("bridge"),      std::string_view("erspan"),    std::string_view("geneve"),
    std::string_view("gre"),         std::string_view("gretap"),    std::string_view("gtp"),
    std::string_view("hsr"),         std::string_view("ip6erspan"), std::string_view("ip6gre"),
    std::string_view("ip6gretap"),   std::string_view("ip6tnl"),    std::string_view("ipip"),
    std::string_view("openvswitch"), std::string_view("ovpn"),      std::string_view("sit"),
    std::string_view("team"),        std::string_view("vrf"),       std::string_view("vti"),
    std::string_view("vti6"),        std::string_view("vxlan"),     std::string_view("wireguard")};

std::string_view text(const nlattr& attribute) {
    const Bytes bytes = payload(attribute);
    const std::string_view all(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return all.substr(0, all.find('\0'));
}

bool isStackedKind(std::string_view kind) {
    return std::find(stackedKinds.begin(), stackedKinds.end(), kind) != stackedKinds.end();
}

/// Views into the message; empty where it does not say.
std::string_view kindOf(const nlattr& linkInfo) {
    std::string_view kind;
    forEachAttribute(payload(linkInfo), [&kind](const nlattr& attribute) {
        if (mnl_attr_get_type(&attribute) == IFLA_INFO_KIND) {
            kind = text(attribute);
        }
    });
    return kind;
}

} // namespace

std::optional<LinkChange> parseLinkChange(const nlmsghdr& message) {
    if (message.nlmsg_type != RTM_NEWLINK && message.nlmsg_type != RTM_DELLINK) {
        return std::nullopt;
    }
    const auto* head = fixedPart<ifinfomsg>(message);
    if (head == nullptr || head->ifi_family != AF_UNSPEC) {
        return std::nullopt;
    }
    LinkChange change{.interface = static_cast<std::uint32_t>(head->ifi_index), .link = std::nullopt};
    if (message.nlmsg_type == RTM_DELLINK) {
        return change;
    }
    Link link;
    bool isPartial = false;
    bool lowerLinkIsElsewhere = false;
    forEachAttribute(attributes<ifinfomsg>(message), [&](const nlattr& attribute) {
        switch (mnl_attr_get_type(&attribute)) {
        case IFLA_LINK:
            link.lower = number<std::uint32_t>(attribute);
            break;
        case IFLA_LINK_NETNSID:
            lowerLinkIsElsewhere = true;
            break;
        case IFLA_LINKINFO:
            link.bundlesOrWraps = isStackedKind(kindOf(attribute));
            link.isTun = kindOf(attribute) == "tun";
            break;
        case IFLA_WIRELESS:
            isPartial = true;
            break;
        default:
            break;
        }
    });
    if (isPartial) {
        return std::nullopt;
    }
    // An interface that rides on one of another namespace (a container's end of a veth) is this namespace's way out.
    if (lowerLinkIsElsewhere) {
        link = {};
    }
    change.link = link;
    return change;
}

void apply(const LinkChange& change, LinkTable& links) {
    if (change.link) {
        links[change.interface] = *change.link;
    } else {
        links.erase(change.interface);
    }
}

bool isStacked(std::uint32_t interface, const LinkTable& links) {
    const auto found = links.find(interface);
    return found != links.end() && (found->second.bundlesOrWraps || links.count(found->second.lower) != 0);
}

bool isTun(std::uint32_t interface, const LinkTable& links) {
    const auto found = links.find(interface);
    return found != links.end() && found->second.isTun;
}

} // namespace skylet
