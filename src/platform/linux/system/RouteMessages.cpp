#include "platform/linux/system/RouteMessages.h"

#include "platform/linux/system/NetlinkAttributes.h"

#include <linux/rtnetlink.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace skylet {

namespace {

using namespace netlink;

NetworkAddress address(Bytes bytes) {
    NetworkAddress result{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), result.size()), result.begin());
    return result;
}

bool isDead(unsigned hopFlags) {
    return (hopFlags & (RTNH_F_DEAD | RTNH_F_LINKDOWN)) != 0;
}

void readGateway(const nlattr& attribute, NextHop& hop) {
    if (mnl_attr_get_type(&attribute) == RTA_GATEWAY) {
        hop.gateway = address(payload(attribute));
    } else if (mnl_attr_get_type(&attribute) == RTA_VIA && mnl_attr_get_payload_len(&attribute) > sizeof(rtvia)) {
        hop.gateway = address(payload(attribute).subspan(sizeof(rtvia)));
    }
}

/// The hops of RTA_MULTIPATH: a row of rtnexthop structures, each followed by attributes of its own (rtnetlink(7)).
std::vector<NextHop> multipath(Bytes bytes) {
    std::vector<NextHop> hops;
    while (bytes.size() >= sizeof(rtnexthop)) {
        rtnexthop head{};
        std::memcpy(&head, bytes.data(), sizeof head);
        if (head.rtnh_len < sizeof head || head.rtnh_len > bytes.size()) {
            break;
        }
        NextHop hop;
        hop.interface = static_cast<std::uint32_t>(head.rtnh_ifindex);
        hop.dead = isDead(head.rtnh_flags);
        hop.weight = head.rtnh_hops;
        forEachAttribute(bytes.subspan(sizeof head, head.rtnh_len - sizeof head),
                         [&hop](const nlattr& attribute) { readGateway(attribute, hop); });
        hops.push_back(hop);
        bytes = bytes.subspan(std::min<std::size_t>(RTNH_ALIGN(head.rtnh_len), bytes.size()));
    }
    return hops;
}

bool isRouteMessage(const nlmsghdr& message) {
    return message.nlmsg_type == RTM_NEWROUTE || message.nlmsg_type == RTM_DELROUTE;
}

} // namespace

std::optional<LinkMessage> parseLink(const nlmsghdr& message) {
    const auto* link = message.nlmsg_type == RTM_NEWLINK ? fixedPart<ifinfomsg>(message) : nullptr;
    if (link == nullptr) {
        return std::nullopt;
    }
    return LinkMessage{.interface = static_cast<std::uint32_t>(link->ifi_index), .flags = link->ifi_flags};
}

std::optional<DefaultRoute> parseDefaultRoute(const nlmsghdr& message) {
    const auto* head = message.nlmsg_type == RTM_NEWROUTE ? fixedPart<rtmsg>(message) : nullptr;
    if (head == nullptr || head->rtm_dst_len != 0 || (head->rtm_family != AF_INET && head->rtm_family != AF_INET6)) {
        return std::nullopt;
    }
    DefaultRoute route;
    route.family = head->rtm_family;
    route.table = head->rtm_table;
    route.type = head->rtm_type;
    route.typeOfService = head->rtm_tos;
    NextHop onlyHop;
    onlyHop.dead = isDead(head->rtm_flags);
    forEachAttribute(attributes<rtmsg>(message), [&route, &onlyHop](const nlattr& attribute) {
        switch (mnl_attr_get_type(&attribute)) {
        case RTA_TABLE:
            route.table = number<std::uint32_t>(attribute);
            break;
        case RTA_PRIORITY:
            route.priority = number<std::uint32_t>(attribute);
            break;
        case RTA_PREF:
            route.routerPreference = number<std::uint8_t>(attribute);
            break;
        case RTA_PREFSRC:
            route.preferredSource = address(payload(attribute));
            break;
        case RTA_NH_ID:
            route.nextHopId = number<std::uint32_t>(attribute);
            break;
        case RTA_OIF:
            onlyHop.interface = number<std::uint32_t>(attribute);
            break;
        case RTA_MULTIPATH:
            route.nextHops = multipath(payload(attribute));
            break;
        default:
            readGateway(attribute, onlyHop);
        }
    });
    if (route.table == RT_TABLE_LOCAL) {
        return std::nullopt;
    }
    if (route.nextHops.empty()) {
        route.nextHops.push_back(onlyHop);
    }
    return route;
}

bool concernsDefaultRoutes(const nlmsghdr& message) {
    if (!isRouteMessage(message)) {
        return true;
    }
    const auto* head = fixedPart<rtmsg>(message);
    return head != nullptr && head->rtm_dst_len == 0;
}

} // namespace skylet
