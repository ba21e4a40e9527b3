#pragma once

#include "platform/linux/system/DefaultRoutes.h"

#include <linux/netlink.h>

#include <cstdint>
#include <optional>

namespace skylet {

/// The flags of one interface, as a link message tells them.
struct LinkMessage {
    std::uint32_t interface = 0;
    /// IFF_*.
    std::uint32_t flags = 0;
};

/// Empty optional: not about a link, or cut short.
std::optional<LinkMessage> parseLink(const nlmsghdr& message);

/// Empty optional: not a route to everywhere, one that concerns this machine itself (table local), one of another
/// family than IPv4 and IPv6, or cut short.
std::optional<DefaultRoute> parseDefaultRoute(const nlmsghdr& message);

/// Whether the message can mean another way out. Besides default routes those are links, addresses and next-hop
/// objects: when one of them goes, the kernel drops routes without a word about them. Other routes come and go by the
/// thousand (a routing daemon, a tunnel that splits traffic) and change nothing here.
bool concernsDefaultRoutes(const nlmsghdr& message);

} // namespace skylet
