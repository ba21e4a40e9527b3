#include "app/UplinkTraffic.h"

#include "app/Traffic.h"

#include <utility>

namespace skylet {

bool isUplink(const InterfaceCounter& interface) {
    return carriesUserTraffic(interface) ||
           (interface.up && !interface.stacked && !interface.tun && interface.name != QStringLiteral("lo"));
}

std::optional<std::int64_t> UplinkTraffic::sentBytes() {
    const auto interfaces = counters_.read();
    if (!interfaces) {
        return std::nullopt;
    }
    bool hasUplink = false;
    std::map<QString, std::uint64_t> current;
    for (const auto& interface : *interfaces) {
        current[interface.name] = interface.sentBytes;
        if (!isUplink(interface)) {
            continue;
        }
        hasUplink = true;
        // One that is new, or begins anew, has sent all it counts since.
        const auto before = last_.find(interface.name);
        const bool goesOn = before != last_.end() && before->second <= interface.sentBytes;
        sent_ += static_cast<std::int64_t>(interface.sentBytes - (goesOn ? before->second : 0));
    }
    last_ = std::move(current);
    return hasUplink ? std::optional(sent_) : std::nullopt;
}

} // namespace skylet
