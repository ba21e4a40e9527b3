#include "platform/linux/system/NetlinkPathMonitor.h"

#include "platform/linux/system/RouteMessages.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <span>
#include <utility>

namespace skylet {

namespace {

using namespace std::chrono_literals;

// A network that comes or goes sends a burst of messages; they count as one change.
constexpr auto gatheringTime = 100ms;
constexpr auto retryInterval = 1s;
// Some microseconds each: in a flood of messages the event loop still has its turn every millisecond or two.
constexpr int messagesPerTurn = 256;
// What the kernel sends is one page at most.
constexpr std::size_t eventSize = 8192;

// Addresses and next-hop objects are listened to because routes, or their preferred source, vanish with them without a
// route message.
constexpr std::array groups = {RTNLGRP_LINK, RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE, RTNLGRP_IPV4_IFADDR,
                               RTNLGRP_IPV6_IFADDR};
// Linux 5.3 and later.
constexpr auto recentGroup = RTNLGRP_NEXTHOP;

/// Whether any message of the datagram can mean another way out.
bool datagramConcernsDefaultRoutes(std::span<const char> datagram) {
    int left = static_cast<int>(datagram.size());
    const auto* message = reinterpret_cast<const nlmsghdr*>(datagram.data());
    while (mnl_nlmsg_ok(message, left)) {
        if (concernsDefaultRoutes(*message)) {
            return true;
        }
        message = mnl_nlmsg_next(message, &left);
    }
    return false;
}

} // namespace

NetlinkPathMonitor::NetlinkPathMonitor(NetworkEpoch& epoch)
    : epoch_(epoch), snapshot_([this](std::optional<PathState> state) { snapshotTaken(std::move(state)); }) {
    QObject::connect(&eventReadable_, &QSocketNotifier::activated, &eventReadable_, [this] { readEvents(); });
    nextLook_.setSingleShot(true);
    nextLook_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&nextLook_, &QTimer::timeout, &nextLook_, [this] { look(); });
}

void NetlinkPathMonitor::start(UpdateHandler handler) {
    cancel();
    handler_ = std::move(handler);
    look();
}

void NetlinkPathMonitor::cancel() {
    eventReadable_.setEnabled(false);
    events_.reset();
    nextLook_.stop();
    snapshot_.abandon();
    reported_ = false;
    last_.reset();
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

void NetlinkPathMonitor::readEvents() {
    alignas(nlmsghdr) std::array<char, eventSize> buffer; // NOLINT: filled by the kernel
    for (int count = 0; count < messagesPerTurn; ++count) {
        const ssize_t size = events_->receive(buffer);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
            return;
        }
        // ENOBUFS: the kernel had more to say than the socket holds. That, too, only means that something happened.
        if (size < 0 || datagramConcernsDefaultRoutes(std::span(buffer).first(static_cast<std::size_t>(size)))) {
            lookIn(gatheringTime);
        }
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
    if (snapshot_.isUnderWay()) {
        lookIn(gatheringTime);
    } else {
        snapshot_.take();
    }
}

void NetlinkPathMonitor::snapshotTaken(std::optional<PathState> state) {
    if (!state || !events_) {
        lookIn(retryInterval);
    }
    if (!state) {
        if (!reported_) {
            report(true);
        }
        return;
    }
    if (last_ != state) {
        const bool satisfied = state->satisfied;
        last_ = std::move(state);
        report(satisfied);
    }
}

/// The last thing each of its callers does: the handler may cancel.
void NetlinkPathMonitor::report(bool satisfied) {
    if (reported_) {
        epoch_.advance();
    }
    reported_ = true;
    handler_(satisfied);
}

} // namespace skylet
