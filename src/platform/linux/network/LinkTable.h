#pragma once

#include <linux/netlink.h>

#include <cstdint>
#include <unordered_map>

namespace skylet {

/// What the kernel's messages tell of a link.
struct Link {
    /// IFF_*.
    std::uint32_t flags = 0;
    /// Index of the link of this namespace that it is stacked on, or whose other end it is; 0: none, or one elsewhere.
    std::uint32_t lower = 0;
    /// A bridge, a bond, a tunnel: stacked on other links, although the kernel names none of them.
    bool isAggregateOrTunnel = false;
    /// A TUN or TAP device: its other end is a program.
    bool isTun = false;
};

/// The links of one network namespace by their interface index.
using LinkTable = std::unordered_map<std::uint32_t, Link>;

/// Notes what the message says of a link. Messages about anything else, cut short, or about one aspect of a link alone
/// (its place in a bridge, a Wi-Fi event) change nothing.
void applyMessage(const nlmsghdr& message, LinkTable& links);

/// Whether the bytes of `interface` are counted at another link of the table too. One that is not in the table is not
/// stacked; nor is one whose lower link has left the namespace, of which the kernel says nothing further.
bool isStacked(std::uint32_t interface, const LinkTable& links);

/// Whether the other end of `interface` is a program; false for one that is not in the table.
bool isTun(std::uint32_t interface, const LinkTable& links);

} // namespace skylet
