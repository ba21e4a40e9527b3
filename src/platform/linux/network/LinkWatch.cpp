#include "platform/linux/network/LinkWatch.h"

#include <array>
#include <cerrno>
#include <span>
#include <stop_token>
#include <utility>

namespace skylet {

namespace {

std::optional<LinkTable> readLinks(const std::stop_token& stop) {
    auto progress = NetlinkSocket::Progress::interrupted;
    LinkTable links;
    for (int attempt = 0; attempt < NetlinkSocket::maximumAttempts && progress == NetlinkSocket::Progress::interrupted;
         ++attempt) {
        links.clear();
        auto socket = NetlinkSocket::open(NetlinkSocket::Mode::blocking);
        if (!socket || !socket->requestLinks()) {
            return std::nullopt;
        }
        progress = socket->readTable(stop, [&links](const nlmsghdr& message) {
            if (const auto change = parseLinkChange(message)) {
                apply(*change, links);
            }
        });
    }
    return progress == NetlinkSocket::Progress::complete ? std::optional(std::move(links)) : std::nullopt;
}

} // namespace

LinkWatch::LinkWatch() : reading_([this](std::optional<LinkTable> links) { readingEnded(std::move(links)); }) {
    links();
}

const LinkTable& LinkWatch::links() {
    listen();
    hear();
    reading_.collect();
    if (wanted_ && events_ && !reading_.isUnderWay()) {
        read();
    }
    return links_;
}

void LinkWatch::listen() {
    if (events_) {
        return;
    }
    auto socket = NetlinkSocket::open(NetlinkSocket::Mode::nonBlocking);
    if (socket && socket->join(RTNLGRP_LINK)) {
        events_ = std::move(socket);
        wanted_ = true;
    }
}

void LinkWatch::hear() {
    alignas(nlmsghdr) std::array<char, NetlinkSocket::datagramSize> buffer; // NOLINT: filled by the kernel
    while (events_) {
        const ssize_t size = events_->receive(buffer);
        if (size < 0 && errno == EAGAIN) {
            return;
        }
        if (size < 0) {
            wanted_ = wanted_ || errno != EINTR;
            // The kernel had more to say than the socket or the buffer holds; the rest can be heard.
            if (errno != EINTR && errno != ENOBUFS && errno != ENOSPC) {
                events_.reset();
            }
            continue;
        }
        int left = static_cast<int>(size);
        for (const auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data()); mnl_nlmsg_ok(message, left);
             message = mnl_nlmsg_next(message, &left)) {
            if (const auto change = parseLinkChange(*message)) {
                apply(*change, links_);
                since_[change->interface] = *change;
            }
        }
    }
}

void LinkWatch::read() {
    since_.clear();
    wanted_ = !reading_.begin(readLinks);
}

void LinkWatch::readingEnded(std::optional<LinkTable> links) {
    if (!links) {
        wanted_ = true;
        return;
    }
    // What is in the socket may be older than the table, but then the same socket holds what made it so.
    hear();
    links_ = std::move(*links);
    for (const auto& [interface, change] : since_) {
        apply(change, links_);
    }
}

} // namespace skylet
