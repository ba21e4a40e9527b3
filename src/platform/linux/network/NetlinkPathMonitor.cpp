#include "platform/linux/network/NetlinkPathMonitor.h"

#include <QLoggingCategory>

#include <arpa/inet.h>
#include <net/if.h>

#include <array>
#include <utility>

namespace skylet {

namespace {

using namespace std::chrono_literals;

Q_LOGGING_CATEGORY(networkLog, "skylet.network", QtWarningMsg)

// A network that comes or goes sends a burst of messages; they count as one change.
constexpr auto gatheringTime = 100ms;
constexpr auto retryInterval = 1s;
// A microsecond or two each: in a flood of messages the event loop still has its turn every millisecond.
constexpr int messagesPerTurn = 256;

// Links, addresses and next-hop objects are listened to because routes, or their source address, vanish with them
// without a route message. RTNLGRP_NEXTHOP: Linux 5.3 and later.
constexpr auto groups = {RTNLGRP_LINK,        RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE, RTNLGRP_IPV4_IFADDR,
                         RTNLGRP_IPV6_IFADDR, RTNLGRP_IPV4_RULE,  RTNLGRP_IPV6_RULE,  RTNLGRP_NEXTHOP};

QString text(const QByteArray& address) {
    std::array<char, INET6_ADDRSTRLEN> buffer{};
    inet_ntop(address.size() == qsizetype{sizeof(in_addr)} ? AF_INET : AF_INET6, address.constData(), buffer.data(),
              buffer.size());
    return address.isEmpty() ? QStringLiteral("none") : QString::fromLatin1(buffer.data());
}

QString text(const FamilyPath& path) {
    if (!path.way) {
        return path.obstacle;
    }
    if (!path.way->isKnown()) {
        return QStringLiteral("cannot be asked");
    }
    std::array<char, IF_NAMESIZE> name{};
    if_indextoname(path.way->interface, name.data());
    return QStringLiteral("%1 (gateway %2, source %3%4)")
        .arg(QString::fromUtf8(name.data()), text(path.way->gateway), text(path.way->source),
             path.way->running ? QString() : QStringLiteral(", dormant"));
}

QString text(const PathState& state) {
    return QStringLiteral("%1; IPv4: %2; IPv6: %3")
        .arg(state.isSatisfied() ? QStringLiteral("satisfied") : QStringLiteral("not satisfied"), text(state.ipv4),
             text(state.ipv6));
}

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
    events_ = NetlinkSocket::open();
    if (!events_) {
        return;
    }
    for (const auto group : groups) {
        events_->join(group);
    }
    eventReadable_.setSocket(events_->descriptor());
    eventReadable_.setEnabled(true);
}

void NetlinkPathMonitor::stopListening() {
    eventReadable_.setEnabled(false);
    events_.reset();
    links_.clear();
}

void NetlinkPathMonitor::readEvents() {
    for (int count = 0; count < messagesPerTurn; ++count) {
        const auto received = events_->receive([this](const nlmsghdr& message) { note(message, links_); });
        if (received == NetlinkSocket::Received::nothing) {
            return;
        }
        lookIn(gatheringTime);
        if (received == NetlinkSocket::Received::failed) {
            // What the socket still holds is older than what is lost.
            stopListening();
            return;
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
    qCInfo(networkLog).noquote() << "path" << text(state) << "- network epoch" << epoch_.current();
    reported_ = state;
    handler_(state.isSatisfied());
}

} // namespace skylet
