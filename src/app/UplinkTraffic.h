#pragma once

#include "platform/network/InterfaceCounters.h"

#include <QString>

#include <cstdint>
#include <map>
#include <optional>

namespace skylet {

/// Whether what the interface sends leaves the machine there: it is up, is no loopback and is stacked on no other, and
/// does not hand it to a program, a VPN's say, that sends it on over another one. What carries the user's traffic
/// always does.
bool isUplink(const InterfaceCounter& interface);

/// Counts what leaves the machine, over whichever uplinks and from whichever program.
class UplinkTraffic {
  public:
    /// `counters` outlives this.
    explicit UplinkTraffic(InterfaceCounters& counters) : counters_(counters) {}

    /// Only differences between two answers tell something. They never fall, whatever interfaces come and go. Empty
    /// optional: there is no uplink, or the system did not answer.
    std::optional<std::int64_t> sentBytes();

  private:
    InterfaceCounters& counters_;
    /// What each interface had sent the last time.
    std::map<QString, std::uint64_t> last_;
    std::int64_t sent_ = 0;
};

} // namespace skylet
