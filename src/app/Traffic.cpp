#include "app/Traffic.h"

#include <algorithm>
#include <array>

namespace skylet {

namespace {

/// Wired, Wi-Fi and Bluetooth or USB tethering; then cellular. "en" covers the systemd names of wired ports, USB
/// tethering among them, "eth" the kernel's own, "wl" both "wlan0" and "wlp3s0".
constexpr std::array countedPrefixes = {"en", "eth", "wl", "bnep", "ww", "usb", "rmnet"};

} // namespace

bool carriesUserTraffic(const InterfaceCounter& interface) {
    return interface.up && !interface.stacked &&
           std::any_of(countedPrefixes.begin(), countedPrefixes.end(),
                       [&](const char* prefix) { return interface.name.startsWith(QLatin1StringView(prefix)); });
}

TrafficCounters trafficTotals(const std::optional<std::vector<InterfaceCounter>>& interfaces, Seconds now) {
    TrafficCounters totals{.time = now};
    for (const auto& interface : interfaces.value_or(std::vector<InterfaceCounter>())) {
        if (carriesUserTraffic(interface)) {
            totals.received += interface.receivedBytes;
            totals.sent += interface.sentBytes;
        }
    }
    return totals;
}

TrafficRates trafficRates(const TrafficCounters& last, const TrafficCounters& current, const TrafficRates& previous) {
    if (current.received < last.received || current.sent < last.sent) {
        return {};
    }
    const Seconds elapsed = current.time - last.time;
    if (elapsed <= Seconds::zero()) {
        return previous;
    }
    return {static_cast<double>(current.received - last.received) / elapsed.count(),
            static_cast<double>(current.sent - last.sent) / elapsed.count()};
}

} // namespace skylet
