#include "platform/linux/network/LinkWatch.h"

#include <chrono>
#include <system_error>
#include <utility>

namespace skylet {

namespace {

using namespace std::chrono_literals;
using Received = NetlinkSocket::Received;

// While interfaces come and go without pause, a table may never come in whole.
constexpr int maximumAttempts = 8;

std::optional<NetlinkSocket> listen() {
    auto socket = NetlinkSocket::open();
    return socket && socket->join(RTNLGRP_LINK) ? std::move(socket) : std::nullopt;
}

std::optional<LinkTable> readTable() {
    auto socket = NetlinkSocket::open();
    if (!socket || !socket->requestLinks()) {
        return std::nullopt;
    }
    LinkTable links;
    bool isEnd = false;
    bool isBroken = false;
    while (!isEnd && !isBroken) {
        const auto received = socket->receive([&](const nlmsghdr& message) {
            isEnd = isEnd || message.nlmsg_type == NLMSG_DONE;
            // NLM_F_DUMP_INTR: links came or went while the kernel wrote the table out, so that others may be missing.
            isBroken = isBroken || message.nlmsg_type == NLMSG_ERROR || (message.nlmsg_flags & NLM_F_DUMP_INTR) != 0;
            applyMessage(message, links);
        });
        isBroken = isBroken || received != Received::messages;
    }
    return isBroken ? std::nullopt : std::optional(std::move(links));
}

} // namespace

const LinkTable& LinkWatch::links() {
    if (!events_) {
        events_ = listen();
    }
    if (reading_.valid() && reading_.wait_for(0s) == std::future_status::ready) {
        auto reading = reading_.get();
        isStale_ = !reading;
        if (reading) {
            events_ = std::move(reading->events);
            links_ = std::move(reading->links);
        }
    }
    receiveMessages();
    if (isStale_ && !reading_.valid()) {
        try {
            reading_ = std::async(std::launch::async, read);
        } catch (const std::system_error&) {
            // No thread to be had: tried again with the next call.
        }
    }
    return links_;
}

void LinkWatch::receiveMessages() {
    auto received = Received::messages;
    while (events_ && received == Received::messages) {
        received = events_->receive([this](const nlmsghdr& message) { applyMessage(message, links_); });
    }
    isStale_ = isStale_ || received == Received::failed;
}

/// Listens before it reads: the messages then bring up to date what the table lacks, or repeat what it says already.
std::optional<LinkWatch::Reading> LinkWatch::read() {
    auto events = listen();
    for (int attempt = 0; events && attempt < maximumAttempts; ++attempt) {
        if (auto links = readTable()) {
            return Reading{std::move(*events), std::move(*links)};
        }
    }
    return std::nullopt;
}

} // namespace skylet
