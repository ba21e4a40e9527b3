#pragma once

#include "platform/Clock.h"
#include "platform/network/InterfaceCounters.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace skylet {

/// Bytes moved by the interfaces that carry the user's traffic, and when that was read.
struct TrafficCounters {
    std::uint64_t received = 0;
    std::uint64_t sent = 0;
    /// System uptime.
    Seconds time{0};

    bool operator==(const TrafficCounters&) const = default;
};

/// Bytes per second.
struct TrafficRates {
    double down = 0;
    double up = 0;

    bool operator==(const TrafficRates&) const = default;
};

/// Whether the interface is one of the machine's own uplinks: a wired, Wi-Fi, tethering or cellular port that is up
/// and is not stacked on another. Names are those of systemd.net-naming-scheme(7) and of the kernel's drivers.
bool carriesUserTraffic(const InterfaceCounter& interface);

/// The sums over the interfaces that carry the user's traffic; zero for an empty optional (the system did not answer).
TrafficCounters trafficTotals(const std::optional<std::vector<InterfaceCounter>>& interfaces, Seconds now);

/// The rates between two readings. A total that went down means zero for both; no time between them, no new rates.
TrafficRates trafficRates(const TrafficCounters& last, const TrafficCounters& current, const TrafficRates& previous);

} // namespace skylet
