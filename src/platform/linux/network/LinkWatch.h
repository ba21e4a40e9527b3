#pragma once

#include "platform/linux/network/LinkTable.h"
#include "platform/linux/network/NetlinkSocket.h"
#include "platform/linux/system/Background.h"

#include <optional>

namespace skylet {

/// The links of the process's network namespace, without ever waiting for them: read once away from the event loop,
/// and kept up by the messages the kernel sends. Messages that got lost are made up for by reading once more.
class LinkWatch {
  public:
    /// Begins to read at once.
    LinkWatch();

    /// What is known at this moment: all links and what they are now, except that before the first table has come in,
    /// and for as long as it takes to read one again, links may be missing or as they were before.
    const LinkTable& links();

  private:
    void listen();
    void hear();
    void read();
    void readingEnded(std::optional<LinkTable> links);

    std::optional<NetlinkSocket> events_;
    Background<std::optional<LinkTable>> reading_;
    LinkTable links_;
    /// What was heard since the reading began and so may be newer than what is read.
    std::unordered_map<std::uint32_t, LinkChange> since_;
    /// The table has to be read, or read again.
    bool wanted_ = true;
};

} // namespace skylet
