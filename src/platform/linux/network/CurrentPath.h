#pragma once

#include "platform/linux/network/RouteAnswer.h"

#include <cstdint>
#include <optional>
#include <unordered_map>

namespace skylet {

/// IFF_* flags of links by their interface index, as far as the kernel's messages have told them.
using LinkFlags = std::unordered_map<std::uint32_t, std::uint32_t>;

/// The ways to the Internet at one moment. Two are equal exactly when packets leave the same way.
struct PathState {
    std::optional<WayOut> ipv4;
    std::optional<WayOut> ipv6;

    /// Also where the kernel could not be asked: a wrong yes is corrected by the probes, a wrong no would stay.
    bool isSatisfied() const { return ipv4 || ipv6; }
    bool isKnown() const { return (!ipv4 || ipv4->isKnown()) && (!ipv6 || ipv6->isKnown()); }
    bool operator==(const PathState&) const = default;
};

/// Asks the kernel which way it would send packets to the Internet now, by all its rules and tables. Some microseconds,
/// without any lock that others may hold for long; nothing is sent. What the links' carriers are is taken from `heard`,
/// or where that knows nothing of a link, from what the kernel notes beside its routes.
PathState currentPath(const LinkFlags& heard);

} // namespace skylet
