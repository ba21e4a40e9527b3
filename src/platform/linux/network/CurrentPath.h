#pragma once

#include "platform/linux/network/LinkTable.h"
#include "platform/linux/network/RouteAnswer.h"

#include <QString>

#include <optional>

namespace skylet {

/// How packets reach the Internet by one address family.
struct FamilyPath {
    /// Empty optional: there is none.
    std::optional<Route> route = Route{};
    /// Why there is none, in words for the log.
    QString unreachableReason;

    bool operator==(const FamilyPath& other) const { return route == other.route; }
};

/// The routes to the Internet at one moment. Two are equal exactly when packets leave by the same routes.
struct PathState {
    FamilyPath ipv4;
    FamilyPath ipv6;

    /// True also where the kernel could not be asked: a wrong yes is corrected by the probes, a wrong no would stay.
    bool isSatisfied() const { return ipv4.route || ipv6.route; }
    bool isKnown() const { return (!ipv4.route || ipv4.route->isKnown()) && (!ipv6.route || ipv6.route->isKnown()); }
    bool operator==(const PathState&) const = default;
};

/// Asks the kernel how it would send packets to the Internet now, by all its rules and tables. Takes microseconds and
/// no lock that others may hold for long; nothing is sent. Whether a link has its carrier is taken from `links`, or,
/// for a link that is not in there, from what the kernel notes beside its routes.
PathState currentPath(const LinkTable& links);

} // namespace skylet
