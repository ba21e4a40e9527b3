#include "platform/linux/system/PathSnapshot.h"

#include "platform/linux/system/NetlinkSocket.h"
#include "platform/linux/system/RouteMessages.h"

#include <chrono>
#include <stop_token>
#include <utility>
#include <vector>

namespace skylet {

namespace {

using namespace std::chrono_literals;

// A table of a million routes takes about a second.
constexpr auto snapshotPatience = 5s;

// Each attempt has a socket of its own, so that the rest of an interrupted table cannot get mixed up with the next one.
std::optional<PathState> readOnce(const std::stop_token& stop, NetlinkSocket::Progress& progress) {
    progress = NetlinkSocket::Progress::failed;
    auto socket = NetlinkSocket::open(NetlinkSocket::Mode::blocking);
    if (!socket || !socket->requestLinks()) {
        return std::nullopt;
    }
    LinkFlags links;
    progress = socket->readTable(stop, [&links](const nlmsghdr& message) {
        if (const auto link = parseLink(message)) {
            links[link->interface] = link->flags;
        }
    });
    if (progress != NetlinkSocket::Progress::complete) {
        return std::nullopt;
    }
    if (!socket->requestRoutes()) {
        progress = NetlinkSocket::Progress::failed;
        return std::nullopt;
    }
    std::vector<DefaultRoute> routes;
    progress = socket->readTable(stop, [&routes](const nlmsghdr& message) {
        if (auto route = parseDefaultRoute(message)) {
            routes.push_back(std::move(*route));
        }
    });
    return progress == NetlinkSocket::Progress::complete ? std::optional(pathState(std::move(routes), links))
                                                         : std::nullopt;
}

std::optional<PathState> readTables(const std::stop_token& stop) {
    std::optional<PathState> state;
    auto progress = NetlinkSocket::Progress::interrupted;
    for (int attempt = 0; attempt < NetlinkSocket::maximumAttempts && progress == NetlinkSocket::Progress::interrupted;
         ++attempt) {
        state = readOnce(stop, progress);
    }
    return state;
}

} // namespace

PathSnapshot::PathSnapshot(Completion completion)
    : completion_(std::move(completion)),
      reading_([this](std::optional<PathState> state) { readingEnded(std::move(state)); }) {
    deadline_.setSingleShot(true);
    QObject::connect(&deadline_, &QTimer::timeout, &deadline_, [this] { finish(std::nullopt); });
}

void PathSnapshot::take() {
    if (underWay_) {
        return;
    }
    underWay_ = true;
    deadline_.start(snapshotPatience);
    if (!reading_.isUnderWay()) {
        begin();
    }
}

void PathSnapshot::abandon() {
    underWay_ = false;
    deadline_.stop();
    stale_ = reading_.isUnderWay();
    reading_.hurry();
}

void PathSnapshot::begin() {
    if (!reading_.begin(readTables)) {
        // The completion comes from the event loop also when there is nothing to wait for.
        deadline_.start(0ms);
    }
}

void PathSnapshot::readingEnded(std::optional<PathState> state) {
    if (!std::exchange(stale_, false)) {
        finish(std::move(state));
    } else if (underWay_) {
        begin();
    }
}

void PathSnapshot::finish(std::optional<PathState> state) {
    abandon();
    completion_(std::move(state));
}

} // namespace skylet
