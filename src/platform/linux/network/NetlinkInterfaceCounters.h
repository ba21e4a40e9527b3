#pragma once

#include "platform/linux/network/LinkWatch.h"
#include "platform/network/InterfaceCounters.h"

#include <QByteArray>

#include <optional>
#include <vector>

namespace skylet {

/// The links of the process's own network namespace: the 64-bit counters of /proc/self/net/dev, with what netlink tells
/// of the links. A read never waits for the lock that the kernel holds while anybody sets up or removes interfaces. A
/// link whose lower device is not known yet is reported as not stacked.
class NetlinkInterfaceCounters : public InterfaceCounters {
  public:
    std::optional<std::vector<InterfaceCounter>> read() override;

  private:
    LinkWatch links_;
};

/// The table of /proc/net/dev (proc(5)): names and bytes. What is no line of it is left out.
std::vector<InterfaceCounter> parseInterfaceCounters(const QByteArray& table);

} // namespace skylet
