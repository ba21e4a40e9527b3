#pragma once

#include <QByteArray>

#include <linux/netlink.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace skylet {

/// How packets to the Internet leave this machine. When anything of it changes they enter another network, or
/// connections that were made before have lost their address.
struct Route {
    /// Index of the interface; 0: there may be a route, but it could not be learnt which.
    std::uint32_t interface = 0;
    /// IPv4 or IPv6 addresses in network order; empty: none.
    QByteArray gateway;
    QByteArray source;
    /// False: the interface is known to wait for more than its carrier, such as authentication.
    bool running = true;

    bool isKnown() const { return interface != 0; }
    bool operator==(const Route&) const = default;
};

/// One of the hops that a route hands its packets to.
struct RouteHop {
    std::uint32_t interface = 0;
    /// RTNH_F_*.
    std::uint32_t flags = 0;
};

/// What the kernel answered to the question how it would send a packet (RTM_GETROUTE). Empty optional: not at all, or
/// to this machine itself. An answer that cannot be understood gives a route that is not known.
std::optional<Route> parseRoute(const nlmsghdr& answer);

/// The hops of the route that decides it (RTM_GETROUTE with RTM_F_FIB_MATCH). Empty where the kernel does not tell.
std::vector<RouteHop> parseHops(const nlmsghdr& answer);

} // namespace skylet
