#include "platform/linux/network/NetlinkPathMonitor.h"

#include <QLoggingCategory>

#include <arpa/inet.h>
#include <net/if.h>

#include <algorithm>
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
// without a route message.
constexpr std::array groups = {RTNLGRP_LINK,        RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE, RTNLGRP_IPV4_IFADDR,
                               RTNLGRP_IPV6_IFADDR, RTNLGRP_IPV4_RULE,  RTNLGRP_IPV6_RULE};
// Linux 5.3 and later.
constexpr auto recentGroup = RTNLGRP_NEXTHOP;

QString text(const QByteArray& address) {
    std::array<char, INET6_ADDRSTRLEN> buffer{};
    inet_ntop(address.size() == qsizetype{sizeof(in_addr)} ? AF_INET : AF_INET6, address.constData(), buffer.data(),
              buffer.size());
    return address.isEmpty() ? QStringLiteral("none") : QString::fromLatin1(buffer.data());
}

QString text(const FamilyPath& path) {
    if (!path.route) {
        return path.unreachableReason;
    }
    if (!path.route->isKnown()) {
        return QStringLiteral("cannot be asked");
    }
    std::array<char, IF_NAMESIZE> name{};
    if_indextoname(path.route->interface, name.data());
    return QStringLiteral("%1 (gateway %2, source %3%4)")
        .arg(QString::fromUtf8(name.data()), text(path.route->gateway), text(path.route->source),
             path.route->running ? QString() : QStringLiteral(", dormant"));
}

QString text(const PathState& state) {
    return QStringLiteral("%1; IPv4: %2; IPv6: %3")
        .arg(state.isSatisfied() ? QStringLiteral("satisfied") : QStringLiteral("not satisfied"), text(state.ipv4),
             text(state.ipv6));
}

} // namespace

NetlinkPathMonitor::NetlinkPathMonitor(NetworkEpoch& epoch) : epoch_(epoch) {
    QObject::connect(&eventReadable_, &QSocketNotifier::activated, &eventReadable_, [this] { readEvents(); });
    updateTimer_.setSingleShot(true);
    updateTimer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&updateTimer_, &QTimer::timeout, &updateTimer_, [this] { update(); });
}

void NetlinkPathMonitor::start(UpdateHandler handler) {
    cancel();
    handler_ = std::move(handler);
    scheduleUpdate(0ms);
}

void NetlinkPathMonitor::cancel() {
    stopListening();
    updateTimer_.stop();
    reported_.reset();
}

void NetlinkPathMonitor::listen() {
    if (events_) {
        return;
    }
    auto socket = NetlinkSocket::open();
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
    for (int count = 0; count < messagesPerTurn; ++count) {
        const auto received = events_->receive([this](const nlmsghdr& message) { applyMessage(message, links_); });
        if (received == NetlinkSocket::Received::nothing) {
            return;
        }
        scheduleUpdate(gatheringTime);
        if (received == NetlinkSocket::Received::failed) {
            // What the socket still holds is older than what is lost.
            stopListening();
            return;
        }
    }
}

/// Updates after `delay` at the latest. An update that is due earlier is not put off, so that a long burst is reported.
void NetlinkPathMonitor::scheduleUpdate(std::chrono::milliseconds delay) {
    if (!updateTimer_.isActive() || updateTimer_.remainingTimeAsDuration() > delay) {
        updateTimer_.start(delay);
    }
}

// Listens before it asks, so that no change in between is missed.
void NetlinkPathMonitor::update() {
    listen();
    const PathState state = currentPath(links_);
    if (!events_ || !state.isKnown()) {
        scheduleUpdate(retryInterval);
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
    qCInfo(networkLog).noquote() << text(state) + QStringLiteral("; network epoch") << epoch_.current();
    reported_ = state;
    handler_(state.isSatisfied());
}

} // namespace skylet
