#include "platform/linux/transfer/DownloadMeter.h"

#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstddef>

namespace skylet {

std::optional<ReceiveProgress> ReceiveProgress::of(int socket) {
    // In this order: what comes in between is taken to be read, so that nothing is counted that has not arrived.
    int unread = 0;
    tcp_info info{};
    socklen_t size = sizeof info;
    if (::ioctl(socket, SIOCINQ, &unread) != 0 || ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0 ||
        size < offsetof(tcp_info, tcpi_bytes_received) + sizeof info.tcpi_bytes_received) {
        return std::nullopt;
    }
    return ReceiveProgress{static_cast<std::int64_t>(info.tcpi_bytes_received), unread};
}

void DownloadMeter::note(const std::optional<ReceiveProgress>& progress, std::int64_t delivered) {
    if (!progress) {
        return;
    }
    last_ = {progress->received - progress->unread, delivered};
    // The head's record may hold the beginning of the body.
    if (!first_ || first_->read == last_.read) {
        first_ = last_;
    }
}

std::int64_t DownloadMeter::arrived(const std::optional<ReceiveProgress>& progress, std::int64_t delivered) const {
    if (!progress || !first_) {
        return delivered;
    }
    const auto since = std::max<std::int64_t>(0, progress->received - last_.read - wrapping);
    const auto estimate = last_.delivered + static_cast<std::int64_t>(static_cast<double>(since) * share());
    // No more can be hidden than what the kernel holds and one record that is not whole.
    return std::clamp(estimate, delivered, delivered + progress->unread + largestRecord);
}

double DownloadMeter::share() const {
    if (first_->read == last_.read) {
        return 1;
    }
    const auto body = static_cast<double>(last_.delivered - first_->delivered);
    return std::clamp(body / static_cast<double>(last_.read - first_->read), 0.0, 1.0);
}

} // namespace skylet
