#pragma once

#include "platform/InterfaceCounters.h"

#include <linux/netlink.h>

#include <optional>

namespace skylet {

/// The links of the process's own network namespace with their 64-bit counters, by one rtnetlink request. Measured with
/// 4 links: 9 µs (18 µs with a fresh socket each time, as here); reading /proc/self/net/dev and asking for each link's
/// flags takes 13 µs and leaves open what rides on what.
class NetlinkInterfaceCounters : public InterfaceCounters {
  public:
    std::optional<std::vector<InterfaceCounter>> read() override;
};

/// One link as the kernel describes it. Empty optional: not a link, nameless, or without counters.
std::optional<InterfaceCounter> parseInterfaceCounter(const nlmsghdr& message);

} // namespace skylet
