#include "platform/linux/network/RouteAnswer.h"

#include "platform/linux/network/NetlinkAttributes.h"

#include <QByteArrayView>

#include <linux/rtnetlink.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace skylet {

namespace {

using namespace netlink;

// In every network namespace.
constexpr std::uint32_t loopbackInterface = 1;

// No route, and routes or rules of the types unreachable, prohibit and blackhole, which all packets meet alike; then
// what a kernel says that does not have the address family.
constexpr std::array refusals = {-ENETUNREACH, -EHOSTUNREACH, -EACCES, -EINVAL, -EOPNOTSUPP, -EAFNOSUPPORT};

bool isRefusal(const nlmsghdr& answer) {
    const auto* error = answer.nlmsg_type == NLMSG_ERROR ? fixedPart<nlmsgerr>(answer) : nullptr;
    return error != nullptr && std::find(refusals.begin(), refusals.end(), error->error) != refusals.end();
}

const rtmsg* routeHead(const nlmsghdr& answer) {
    return answer.nlmsg_type == RTM_NEWROUTE ? fixedPart<rtmsg>(answer) : nullptr;
}

QByteArrayView payload(const nlattr& attribute) {
    return {static_cast<const char*>(mnl_attr_get_payload(&attribute)), mnl_attr_get_payload_len(&attribute)};
}

/// The hops of RTA_MULTIPATH: a row of rtnexthop structures, each followed by attributes of its own (rtnetlink(7)).
std::vector<RouteHop> multipath(QByteArrayView bytes) {
    std::vector<RouteHop> hops;
    rtnexthop head{};
    while (bytes.size() >= qsizetype{sizeof head}) {
        std::memcpy(&head, bytes.data(), sizeof head);
        if (head.rtnh_len < sizeof head || head.rtnh_len > bytes.size()) {
            break;
        }
        hops.push_back({.interface = static_cast<std::uint32_t>(head.rtnh_ifindex), .flags = head.rtnh_flags});
        bytes = bytes.sliced(std::min<qsizetype>(RTNH_ALIGN(head.rtnh_len), bytes.size()));
    }
    return hops;
}

} // namespace

std::optional<Route> parseRoute(const nlmsghdr& answer) {
    if (isRefusal(answer)) {
        return std::nullopt;
    }
    const auto* head = routeHead(answer);
    if (head == nullptr) {
        return Route{};
    }
    Route route;
    forEachAttribute<rtmsg>(answer, [&route](const nlattr& attribute) {
        switch (mnl_attr_get_type(&attribute)) {
        case RTA_OIF:
            route.interface = number(attribute);
            break;
        case RTA_GATEWAY:
            route.gateway = payload(attribute).toByteArray();
            break;
        case RTA_VIA:
            // A gateway of the other address family, behind that family's number.
            route.gateway = payload(attribute).toByteArray().mid(sizeof(rtvia));
            break;
        case RTA_PREFSRC:
            route.source = payload(attribute).toByteArray();
            break;
        default:
            break;
        }
    });
    return head->rtm_type == RTN_UNICAST && route.interface != loopbackInterface ? std::optional(route) : std::nullopt;
}

std::vector<RouteHop> parseHops(const nlmsghdr& answer) {
    const auto* head = routeHead(answer);
    std::vector<RouteHop> hops;
    if (head == nullptr) {
        return hops;
    }
    forEachAttribute<rtmsg>(answer, [head, &hops](const nlattr& attribute) {
        if (mnl_attr_get_type(&attribute) == RTA_OIF) {
            hops = {{.interface = number(attribute), .flags = head->rtm_flags}};
        } else if (mnl_attr_get_type(&attribute) == RTA_MULTIPATH) {
            hops = multipath(payload(attribute));
        }
    });
    return hops;
}

} // namespace skylet
