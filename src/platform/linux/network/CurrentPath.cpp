#include "platform/linux/network/CurrentPath.h"

#include "platform/linux/network/NetlinkSocket.h"

#include <linux/if.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

namespace skylet {

namespace {

struct Destination {
    std::uint8_t family;
    NetworkAddress address;
};

// A root name server stands for the Internet (k.root-servers.net): its addresses have been the same for decades, and no
// VPN or company network that takes only some places over its own ways has reason to name them.
constexpr Destination ipv4Internet{.family = AF_INET, .address = {193, 0, 14, 129}};
constexpr Destination ipv6Internet{.family = AF_INET6,
                                   .address = {0x20, 0x01, 0x07, 0xfd, 0, 0, 0, 0, //
                                               0, 0, 0, 0, 0, 0, 0, 1}};

// The kernel's answer is one page at most.
constexpr std::size_t answerSize = 8192;
using Buffer = std::array<char, answerSize>;

/// Null when there is no answer, which lies in `buffer` otherwise.
const nlmsghdr* ask(NetlinkSocket& socket, const Destination& destination, std::uint32_t flags, Buffer& buffer) {
    const std::size_t length = destination.family == AF_INET ? 4 : 16;
    if (!socket.requestRoute(destination.family, std::span(destination.address).first(length), flags)) {
        return nullptr;
    }
    const ssize_t size = socket.receive(buffer);
    return size < 0 ? nullptr : socket.answer(std::span(buffer).first(static_cast<std::size_t>(size)));
}

std::optional<std::uint32_t> flagsOf(std::uint32_t interface, const LinkFlags& heard) {
    const auto link = heard.find(interface);
    return link == heard.end() ? std::nullopt : std::optional(link->second);
}

/// RTNH_F_LINKDOWN: for IPv4 the link has neither its carrier nor counts as running, which it does not while it is
/// dormant; for IPv6 it may be merely dormant. A message tells of a carrier before the kernel notes it beside the
/// route.
bool leadsOn(const RouteHop& hop, std::uint8_t family, const LinkFlags& heard) {
    if ((hop.flags & RTNH_F_DEAD) != 0) {
        return false;
    }
    if (const auto flags = flagsOf(hop.interface, heard)) {
        return (*flags & IFF_LOWER_UP) != 0;
    }
    return family == AF_INET6 || (hop.flags & RTNH_F_LINKDOWN) == 0;
}

/// Of several hops the kernel picks one by the destination, and does not mind a lost carrier: others may get through.
bool leadsOn(const std::vector<RouteHop>& hops, std::uint8_t family, const LinkFlags& heard) {
    return hops.empty() ||
           std::any_of(hops.begin(), hops.end(), [&](const RouteHop& hop) { return leadsOn(hop, family, heard); });
}

std::optional<WayOut> wayTo(const Destination& destination, NetlinkSocket& socket, const LinkFlags& heard) {
    alignas(nlmsghdr) Buffer buffer; // NOLINT: filled by the kernel
    const nlmsghdr* answer = ask(socket, destination, 0, buffer);
    auto way = answer == nullptr ? WayOut{} : parseWayOut(*answer);
    if (!way || !way->isKnown()) {
        return way;
    }
    const nlmsghdr* route = ask(socket, destination, RTM_F_FIB_MATCH, buffer);
    if (route != nullptr && !leadsOn(parseHops(*route), destination.family, heard)) {
        return std::nullopt;
    }
    way->running = (flagsOf(way->interface, heard).value_or(IFF_RUNNING) & IFF_RUNNING) != 0;
    return way;
}

} // namespace

PathState currentPath(const LinkFlags& heard) {
    auto socket = NetlinkSocket::open(NetlinkSocket::Mode::nonBlocking);
    if (!socket) {
        return {.ipv4 = WayOut{}, .ipv6 = WayOut{}};
    }
    return {.ipv4 = wayTo(ipv4Internet, *socket, heard), .ipv6 = wayTo(ipv6Internet, *socket, heard)};
}

} // namespace skylet
