#include "platform/linux/transfer/DownloadMeter.h"

#include "platform/linux/transfer/curl/TcpInfo.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <algorithm>

namespace skylet {

std::optional<ReceiveProgress> ReceiveProgress::of(int socket) {
    // In this order: what comes in between is taken to be read, so that nothing is counted that has not arrived.
    int unread = 0;
    const bool isKnown = ::ioctl(socket, SIOCINQ, &unread) == 0;
    const auto info = TcpInfo::of(socket);
    return isKnown && info ? std::optional(ReceiveProgress{info->bytesReceived(), unread}) : std::nullopt;
}

DownloadMeter::Mark DownloadMeter::mark(const ReceiveProgress& progress, std::int64_t delivered) {
    return {progress.received - progress.unread, delivered};
}

void DownloadMeter::requested(const std::optional<ReceiveProgress>& progress) {
    begin(progress);
    allowance_ = preamble;
}

void DownloadMeter::begin(const std::optional<ReceiveProgress>& progress) {
    first_.reset();
    if (progress) {
        first_ = last_ = mark(*progress, 0);
        allowance_ = wrapping;
    }
}

void DownloadMeter::note(const std::optional<ReceiveProgress>& progress, std::int64_t delivered) {
    if (!progress || !first_) {
        return;
    }
    last_ = mark(*progress, delivered);
    // The head's record may hold the beginning of the body.
    if (first_->read == last_.read) {
        first_ = last_;
    }
}

std::int64_t DownloadMeter::arrived(const std::optional<ReceiveProgress>& progress, std::int64_t delivered) const {
    if (!progress || !first_) {
        return delivered;
    }
    const auto since = std::max<std::int64_t>(0, progress->received - last_.read - allowance_);
    const auto estimate = last_.delivered + static_cast<std::int64_t>(static_cast<double>(since) * share());
    // No more can be hidden than what the kernel holds and one record that is not whole.
    return std::clamp(estimate, delivered, delivered + progress->unread + largestRecord);
}

double DownloadMeter::share() const {
    // A single small record would say little: as though a large one had come before it.
    const auto body = static_cast<double>(last_.delivered - first_->delivered + largestRecord);
    const auto stream = static_cast<double>(last_.read - first_->read + largestRecord);
    return std::min(body / stream, 1.0);
}

} // namespace skylet
