#include "platform/linux/transfer/DownloadMeter.h"

#include <algorithm>

namespace skylet {

DownloadMeter::Mark DownloadMeter::mark(const TcpInfo& connection, std::int64_t bodyRead) {
    return {connection.received - connection.unread, bodyRead};
}

void DownloadMeter::begin(const std::optional<TcpInfo>& connection, std::int64_t overhead) {
    first_ = connection ? std::optional(mark(*connection, 0)) : std::nullopt;
    last_ = first_.value_or(Mark{});
    overhead_ = overhead;
}

void DownloadMeter::recordRead(const std::optional<TcpInfo>& connection, std::int64_t bodyRead) {
    if (!connection || !first_) {
        return;
    }
    last_ = mark(*connection, bodyRead);
    // The head's record may hold the beginning of the body.
    if (first_->stream == last_.stream) {
        first_ = last_;
    }
}

std::int64_t DownloadMeter::arrived(const std::optional<TcpInfo>& connection, std::int64_t bodyRead) const {
    if (!connection || !first_) {
        return bodyRead;
    }
    const auto since = std::max<std::int64_t>(0, connection->received - last_.stream - overhead_);
    const auto estimate = last_.body + static_cast<std::int64_t>(static_cast<double>(since) * bodyShare());
    // No more can be hidden than what the kernel holds and one incomplete record; before the head, which may refuse all
    // of it, no more than its own record.
    const auto held = overhead_ == headOverhead ? 0 : connection->unread;
    return std::clamp(estimate, bodyRead, bodyRead + held + largestRecord);
}

double DownloadMeter::bodyShare() const {
    // A single small record would say little: as though a large one had come before it.
    const auto body = static_cast<double>(last_.body - first_->body + largestRecord);
    const auto stream = static_cast<double>(last_.stream - first_->stream + largestRecord);
    return std::min(body / stream, 1.0);
}

} // namespace skylet
