#include "platform/linux/system/PathSnapshot.h"

#include "platform/linux/system/RouteMessages.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <span>
#include <utility>

namespace skylet {

namespace {

using namespace std::chrono_literals;

// A table of a million routes takes about a second; the kernel never keeps anyone waiting between two datagrams.
constexpr auto snapshotPatience = 5s;
// Each datagram holds some 400 routes and takes the kernel and the parser about 0.1 ms together.
constexpr int datagramsPerSlice = 16;
constexpr int maximumSnapshotAttempts = 8;

} // namespace

PathSnapshot::PathSnapshot(Completion completion) : completion_(std::move(completion)) {
    deadline_.setSingleShot(true);
    QObject::connect(&deadline_, &QTimer::timeout, &deadline_, [this] { finish(std::nullopt); });
    QObject::connect(&readable_, &QSocketNotifier::activated, &readable_, [this] { readSlice(); });
}

void PathSnapshot::take() {
    if (underWay_) {
        return;
    }
    underWay_ = true;
    attempts_ = 0;
    deadline_.start(snapshotPatience);
    begin();
}

void PathSnapshot::abandon() {
    underWay_ = false;
    deadline_.stop();
    readable_.setEnabled(false);
    socket_.reset();
    links_.clear();
    routes_ = {};
}

// Each attempt has a socket of its own, so that the rest of an interrupted table cannot get mixed up with the next one.
void PathSnapshot::begin() {
    ++attempts_;
    links_.clear();
    routes_.clear();
    readable_.setEnabled(false);
    socket_ = NetlinkSocket::open(NetlinkSocket::Mode::nonBlocking);
    table_ = Table::links;
    if (!socket_ || !socket_->requestLinks()) {
        // The completion comes from the event loop also when there is nothing to wait for.
        socket_.reset();
        deadline_.start(0ms);
        return;
    }
    readable_.setSocket(socket_->descriptor());
    readable_.setEnabled(true);
}

void PathSnapshot::readSlice() {
    alignas(nlmsghdr) std::array<char, NetlinkSocket::datagramSize> buffer; // NOLINT: filled by the kernel
    for (int count = 0; count < datagramsPerSlice && socket_; ++count) {
        const ssize_t size = socket_->receive(buffer);
        if (size < 0) {
            if (errno != EAGAIN && errno != EINTR) {
                finish(std::nullopt);
            }
            return;
        }
        const Table table = table_;
        const auto progress = socket_->read(std::span(buffer).first(static_cast<std::size_t>(size)),
                                            [this](const nlmsghdr& message) { consume(message); });
        switch (progress) {
        case NetlinkSocket::Progress::partial:
            break;
        case NetlinkSocket::Progress::complete:
            tableComplete();
            if (table == Table::routes) {
                return;
            }
            break;
        case NetlinkSocket::Progress::interrupted:
            tableInterrupted();
            return;
        case NetlinkSocket::Progress::failed:
            finish(std::nullopt);
            return;
        }
    }
}

void PathSnapshot::consume(const nlmsghdr& message) {
    if (const auto link = parseLink(message)) {
        links_[link->interface] = link->flags;
    } else if (auto route = parseDefaultRoute(message)) {
        routes_.push_back(std::move(*route));
    }
}

void PathSnapshot::tableComplete() {
    if (table_ == Table::routes) {
        finish(pathState(std::move(routes_), links_));
        return;
    }
    table_ = Table::routes;
    if (!socket_->requestRoutes()) {
        finish(std::nullopt);
    }
}

void PathSnapshot::tableInterrupted() {
    if (attempts_ < maximumSnapshotAttempts) {
        begin();
    } else {
        finish(std::nullopt);
    }
}

void PathSnapshot::finish(std::optional<PathState> state) {
    abandon();
    completion_(std::move(state));
}

} // namespace skylet
