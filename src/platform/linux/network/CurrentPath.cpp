#include "platform/linux/network/CurrentPath.h"

#include "platform/linux/network/NetlinkAttributes.h"
#include "platform/linux/network/NetlinkSocket.h"

#include <net/if.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <span>

namespace skylet {

namespace {

// IFF_LOWER_UP (netdevice(7)) stands in <linux/if.h>, which does not get along with <net/if.h>.
constexpr std::uint32_t carrierFlag = 1U << 16U;

// A root name server stands for the Internet (k.root-servers.net): its addresses have been the same for decades, and no
// VPN or company network that routes only some places has reason to name them.
constexpr std::array<std::uint8_t, 4> ipv4Internet = {193, 0, 14, 129};
constexpr std::array<std::uint8_t, 16> ipv6Internet = {0x20, 0x01, 0x07, 0xfd, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};

std::optional<std::uint32_t> flagsOf(std::uint32_t interface, const LinkTable& links) {
    const auto link = links.find(interface);
    return link == links.end() ? std::nullopt : std::optional(link->second.flags);
}

/// RTNH_F_LINKDOWN: for IPv4 the link has neither its carrier nor counts as running, which it does not while it is
/// dormant; for IPv6 it may be merely dormant. A message tells of a carrier before the kernel notes it beside the
/// route.
bool isUsable(const RouteHop& hop, std::uint8_t family, const LinkTable& links) {
    if ((hop.flags & RTNH_F_DEAD) != 0) {
        return false;
    }
    if (const auto flags = flagsOf(hop.interface, links)) {
        return (*flags & carrierFlag) != 0;
    }
    return family == AF_INET6 || (hop.flags & RTNH_F_LINKDOWN) == 0;
}

FamilyPath pathOf(std::uint8_t family, std::span<const std::uint8_t> internet, NetlinkSocket& socket,
                  const LinkTable& links) {
    FamilyPath path;
    if (socket.requestRoute(family, internet, 0)) {
        socket.receive([&path](const nlmsghdr& answer) {
            path.route = parseRoute(answer);
            const auto* error = answer.nlmsg_type == NLMSG_ERROR ? netlink::fixedPart<nlmsgerr>(answer) : nullptr;
            path.unreachableReason =
                error != nullptr ? qt_error_string(-error->error) : QStringLiteral("leads nowhere");
        });
    }
    if (!path.route || !path.route->isKnown()) {
        return path;
    }
    std::vector<RouteHop> hops;
    if (socket.requestRoute(family, internet, RTM_F_FIB_MATCH)) {
        socket.receive([&hops](const nlmsghdr& answer) { hops = parseHops(answer); });
    }
    // Of several hops the kernel picks one by the destination, and does not mind a lost carrier: others may get
    // through.
    if (!hops.empty() &&
        std::none_of(hops.begin(), hops.end(), [&](const RouteHop& hop) { return isUsable(hop, family, links); })) {
        return {.route = std::nullopt, .unreachableReason = QStringLiteral("no carrier")};
    }
    path.route->running = (flagsOf(path.route->interface, links).value_or(IFF_RUNNING) & IFF_RUNNING) != 0;
    return path;
}

} // namespace

PathState currentPath(const LinkTable& links) {
    auto socket = NetlinkSocket::open();
    return socket ? PathState{.ipv4 = pathOf(AF_INET, ipv4Internet, *socket, links),
                              .ipv6 = pathOf(AF_INET6, ipv6Internet, *socket, links)}
                  : PathState{};
}

} // namespace skylet
