#pragma once

#include "platform/linux/network/LinkWatch.h"
#include "platform/linux/system/FileDescriptor.h"
#include "platform/network/InterfaceCounters.h"

#include <QByteArrayView>

#include <optional>
#include <vector>

namespace skylet {

/// The links of the process's own network namespace: the 64-bit counters of /proc/self/net/dev, with what netlink tells
/// of the links. A read never waits for the lock that the kernel holds while anybody sets up or removes interfaces.
class NetlinkInterfaceCounters : public InterfaceCounters {
  public:
    /// Begins to learn what rides on what. A link of which that is not known yet is told as not stacked.
    NetlinkInterfaceCounters() = default;

    std::optional<std::vector<InterfaceCounter>> read() override;

  private:
    LinkWatch links_;
    /// For questions about single links.
    FileDescriptor control_;
};

/// The table of /proc/net/dev (proc(5)): names and bytes. What is no line of it is left out.
std::vector<InterfaceCounter> parseInterfaceCounters(QByteArrayView table);

} // namespace skylet
