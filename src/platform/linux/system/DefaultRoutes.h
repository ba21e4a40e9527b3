#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace skylet {

/// An IPv4 or IPv6 address in network order, padded with zeros; all zeros stand for none.
using NetworkAddress = std::array<std::uint8_t, 16>;

/// A neighbour, or a link without one, that a route hands its packets to.
struct NextHop {
    /// Index of the outgoing interface; 0: not told.
    std::uint32_t interface = 0;
    NetworkAddress gateway{};
    /// Leads nowhere: the kernel does not use it (RTNH_F_DEAD, RTNH_F_LINKDOWN) or, once `pathState` has judged it, its
    /// link does not work.
    bool dead = false;
    /// Its share among several hops, as the kernel counts it.
    std::uint8_t weight = 0;

    auto operator<=>(const NextHop&) const = default; // NOLINT(modernize-use-nullptr): clang-tidy 14 misreads it
};

/// A route to everywhere, reduced to what decides where packets go. Lifetimes and statistics, which change with every
/// router advertisement, are not part of it.
struct DefaultRoute {
    std::uint8_t family = 0;
    std::uint32_t table = 0;
    /// RTN_*.
    std::uint8_t type = 0;
    std::uint32_t priority = 0;
    std::uint8_t typeOfService = 0;
    /// Preference among IPv6 routers (RFC 4191).
    std::uint8_t routerPreference = 0;
    NetworkAddress preferredSource{};
    /// The next-hop object the route refers to; 0: none.
    std::uint32_t nextHopId = 0;
    std::vector<NextHop> nextHops;

    auto operator<=>(const DefaultRoute&) const = default; // NOLINT(modernize-use-nullptr): likewise
};

/// Interface index to the interface's IFF_* flags.
using LinkFlags = std::unordered_map<std::uint32_t, std::uint32_t>;

/// What the default routes amount to at one moment. Two states are equal exactly when the way out is the same.
struct PathState {
    /// At least one default route is usable.
    bool satisfied = false;
    /// Sorted.
    std::vector<DefaultRoute> routes;

    bool operator==(const PathState&) const = default;
};

/// Judges `routes` (in any order) against the links they lead through. A usable one is a unicast route with at least
/// one hop that is not dead through a link that is up and running and has a carrier (the kernel takes "running" back up
/// to a second later than the carrier). A hop whose link is not told (a kernel that keeps next-hop objects to itself)
/// counts as usable: a needless probe costs less than an indicator that stays red for ever.
PathState pathState(std::vector<DefaultRoute> routes, const LinkFlags& links);

} // namespace skylet
