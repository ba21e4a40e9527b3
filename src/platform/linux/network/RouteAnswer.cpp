#include "platform/linux/network/RouteAnswer.h"

#include "platform/linux/network/NetlinkAttributes.h"

#include <linux/rtnetlink.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace skylet {

namespace {

using namespace netlink;

// In every network namespace.
constexpr std::uint32_t loopbackInterface = 1;

// No route, and routes or rules of the types unreachable, prohibit and blackhole, which all packets meet alike; then
// what a kernel says that does not have the address family.
constexpr std::array refusals = {ENETUNREACH, EHOSTUNREACH, EACCES, EINVAL, EOPNOTSUPP, EAFNOSUPPORT};

bool isRefusal(const nlmsghdr& answer) {
    const auto* error = answer.nlmsg_type == NLMSG_ERROR ? fixedPart<nlmsgerr>(answer) : nullptr;
    return error != nullptr && std::find(refusals.begin(), refusals.end(), -error->error) != refusals.end();
}

const rtmsg* routeHead(const nlmsghdr& answer) {
    return answer.nlmsg_type == RTM_NEWROUTE ? fixedPart<rtmsg>(answer) : nullptr;
}

NetworkAddress address(Bytes bytes) {
    NetworkAddress result{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), result.size()), result.begin());
    return result;
}

void readAttribute(const nlattr& attribute, WayOut& way) {
    switch (mnl_attr_get_type(&attribute)) {
    case RTA_OIF:
        way.interface = number<std::uint32_t>(attribute);
        break;
    case RTA_GATEWAY:
        way.gateway = address(payload(attribute));
        break;
    case RTA_VIA:
        // A gateway of the other address family, behind that family's number.
        if (payload(attribute).size() > sizeof(rtvia)) {
            way.gateway = address(payload(attribute).subspan(sizeof(rtvia)));
        }
        break;
    case RTA_PREFSRC:
        way.source = address(payload(attribute));
        break;
    default:
        break;
    }
}

/// The hops of RTA_MULTIPATH: a row of rtnexthop structures, each followed by attributes of its own (rtnetlink(7)).
std::vector<RouteHop> multipath(Bytes bytes) {
    std::vector<RouteHop> hops;
    while (bytes.size() >= sizeof(rtnexthop)) {
        rtnexthop head{};
        std::memcpy(&head, bytes.data(), sizeof head);
        if (head.rtnh_len < sizeof head || head.rtnh_len > bytes.size()) {
            break;
        }
        hops.push_back({.interface = static_cast<std::uint32_t>(head.rtnh_ifindex), .flags = head.rtnh_flags});
        bytes = bytes.subspan(std::min<std::size_t>(RTNH_ALIGN(head.rtnh_len), bytes.size()));
    }
    return hops;
}

} // namespace

std::optional<WayOut> parseWayOut(const nlmsghdr& answer) {
    if (isRefusal(answer)) {
        return std::nullopt;
    }
    const auto* head = routeHead(answer);
    if (head == nullptr) {
        return WayOut{};
    }
    WayOut way;
    forEachAttribute(attributes<rtmsg>(answer), [&way](const nlattr& attribute) { readAttribute(attribute, way); });
    return head->rtm_type == RTN_UNICAST && way.interface != loopbackInterface ? std::optional(way) : std::nullopt;
}

std::vector<RouteHop> parseHops(const nlmsghdr& answer) {
    const auto* head = routeHead(answer);
    if (head == nullptr) {
        return {};
    }
    std::vector<RouteHop> hops;
    forEachAttribute(attributes<rtmsg>(answer), [head, &hops](const nlattr& attribute) {
        if (mnl_attr_get_type(&attribute) == RTA_OIF) {
            hops = {{.interface = number<std::uint32_t>(attribute), .flags = head->rtm_flags}};
        } else if (mnl_attr_get_type(&attribute) == RTA_MULTIPATH) {
            hops = multipath(payload(attribute));
        }
    });
    return hops;
}

} // namespace skylet
