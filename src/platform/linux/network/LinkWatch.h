#pragma once

#include "platform/linux/network/LinkTable.h"
#include "platform/linux/network/NetlinkSocket.h"

#include <future>
#include <optional>

namespace skylet {

/// The links of the process's network namespace, without ever waiting for them: the table is read on a thread of its
/// own and kept up by the messages the kernel sends. Messages that got lost are made up for by reading once more.
/// The destructor waits for a reading that is under way.
class LinkWatch {
  public:
    /// Begins to read at once.
    LinkWatch() { links(); }

    /// What is known at this moment: all links and what they are now, except that before the first table has come in,
    /// and for as long as it takes to read one again, links may be missing or as they were before.
    const LinkTable& links();

  private:
    /// A table, and the socket with the messages about what has changed since.
    struct Reading {
        NetlinkSocket events;
        LinkTable links;
    };

    static std::optional<Reading> read();
    void receiveMessages();

    std::optional<NetlinkSocket> events_;
    LinkTable links_;
    /// The table has to be read, or read again.
    bool isStale_ = true;
    std::future<std::optional<Reading>> reading_;
};

} // namespace skylet
