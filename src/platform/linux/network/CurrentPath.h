#pragma once

#include "platform/linux/network/LinkTable.h"
#include "platform/linux/network/RouteAnswer.h"

#include <QString>

#include <optional>

namespace skylet {

/// The way to the Internet by one address family.
struct FamilyPath {
    /// Empty optional: there is none.
    std::optional<WayOut> way = WayOut{};
    /// Why there is none, in words for the log.
    QString obstacle;

    bool operator==(const FamilyPath& other) const { return way == other.way; }
};

/// The ways to the Internet at one moment. Two are equal exactly when packets leave the same way.
struct PathState {
    FamilyPath ipv4;
    FamilyPath ipv6;

    /// Also where the kernel could not be asked: a wrong yes is corrected by the probes, a wrong no would stay.
    bool isSatisfied() const { return ipv4.way || ipv6.way; }
    bool isKnown() const { return (!ipv4.way || ipv4.way->isKnown()) && (!ipv6.way || ipv6.way->isKnown()); }
    bool operator==(const PathState&) const = default;
};

/// Asks the kernel which way it would send packets to the Internet now, by all its rules and tables. Some microseconds,
/// without any lock that others may hold for long; nothing is sent. What the links' carriers are is taken from `heard`,
/// or where that knows nothing of a link, from what the kernel notes beside its routes.
PathState currentPath(const LinkTable& heard);

} // namespace skylet
