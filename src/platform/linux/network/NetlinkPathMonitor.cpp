#include "platform/linux/network/NetlinkPathMonitor.h"

#include "platform/linux/network/NetlinkAttributes.h"

#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <utility>

namespace skylet {

namespace {

using namespace std::chrono_literals;

// A network that comes or goes sends a burst of messages; they count as one change.
constexpr auto gatheringTime = 100ms;
constexpr auto retryInterval = 1s;
// A microsecond or two each: in a flood of messages the event loop still has its turn every millisecond.
constexpr int messagesPerTurn = 256;
// What the kernel sends is one page at most.
constexpr std::size_t eventSize = 8192;

// Links, addresses and next-hop objects are listened to because routes, or their source address, vanish with them
// without a route message.
constexpr std::array groups = {RTNLGRP_LINK,        RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE, RTNLGRP_IPV4_IFADDR,
                               RTNLGRP_IPV6_IFADDR, RTNLGRP_IPV4_RULE,  RTNLGRP_IPV6_RULE};
// Linux 5.3 and later.
constexpr auto recentGroup = RTNLGRP_NEXTHOP;

} // namespace

NetlinkPathMonitor::NetlinkPathMonitor(NetworkEpoch& epoch) : epoch_(epoch) {
    QObject::connect(&eventReadable_, &QSocketNotifier::activated, &eventReadable_, [this] { readEvents(); });
    nextLook_.setSingleShot(true);
    nextLook_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&nextLook_, &QTimer::timeout, &nextLook_, [this] { look(); });
}

void NetlinkPathMonitor::start(UpdateHandler handler) {
    cancel();
    handler_ = std::move(handler);
    lookIn(0ms);
}

void NetlinkPathMonitor::cancel() {
    stopListening();
    nextLook_.stop();
    reported_.reset();
}

void NetlinkPathMonitor::listen() {
    if (events_) {
        return;
    }
    auto socket = NetlinkSocket::open(NetlinkSocket::Mode::nonBlocking);
    if (!socket || !std::all_of(groups.begin(), groups.end(), [&socket](auto group) { return socket->join(group); })) {
        return;
    }
    socket->join(recentGroup);
    events_ = std::move(socket);
    eventReadable_.setSocket(events_->descriptor());
    eventReadable_.setEnabled(true);
}

void NetlinkPathMonitor::stopListening() {
    eventReadable_.setEnabled(false);
    events_.reset();
    links_.clear();
}

void NetlinkPathMonitor::readEvents() {
    alignas(nlmsghdr) std::array<char, eventSize> buffer; // NOLINT: filled by the kernel
    for (int count = 0; count < messagesPerTurn; ++count) {
        const ssize_t size = events_->receive(buffer);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
            return;
        }
        lookIn(gatheringTime);
        if (size < 0) {
            // ENOBUFS: the kernel had more to say than the socket holds. What it still holds is older than what is
            // lost.
            stopListening();
            return;
        }
        int left = static_cast<int>(size);
        for (const auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data()); mnl_nlmsg_ok(message, left);
             message = mnl_nlmsg_next(message, &left)) {
            hear(*message);
        }
    }
}

void NetlinkPathMonitor::hear(const nlmsghdr& message) {
    const bool aboutLink = message.nlmsg_type == RTM_NEWLINK || message.nlmsg_type == RTM_DELLINK;
    const auto* link = aboutLink ? netlink::fixedPart<ifinfomsg>(message) : nullptr;
    // Other families: the link's place in a bridge, which it may leave and live on.
    if (link == nullptr || link->ifi_family != AF_UNSPEC) {
        return;
    }
    const auto interface = static_cast<std::uint32_t>(link->ifi_index);
    if (message.nlmsg_type == RTM_NEWLINK) {
        links_[interface] = link->ifi_flags;
    } else {
        links_.erase(interface);
    }
}

/// Looks after `delay` at the latest. A look that is due earlier is not put off, so that a long burst is reported too.
void NetlinkPathMonitor::lookIn(std::chrono::milliseconds delay) {
    if (!nextLook_.isActive() || nextLook_.remainingTimeAsDuration() > delay) {
        nextLook_.start(delay);
    }
}

// Listens before it looks: what happens in between is then heard of.
void NetlinkPathMonitor::look() {
    listen();
    const PathState state = currentPath(links_);
    if (!events_ || !state.isKnown()) {
        lookIn(retryInterval);
    }
    if (reported_ != state) {
        report(state);
    }
}

/// The last thing its caller does: the handler may cancel.
void NetlinkPathMonitor::report(const PathState& state) {
    if (reported_) {
        epoch_.advance();
    }
    reported_ = state;
    handler_(state.isSatisfied());
}

} // namespace skylet
