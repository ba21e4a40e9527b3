#include "platform/linux/transfer/UploadMeter.h"

#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstddef>

namespace skylet {

namespace {

/// Before the first one has been measured.
constexpr std::uint32_t unknownRoundTrip = 0xffffffff;

} // namespace

std::optional<SendProgress> SendProgress::of(int socket) {
    int pending = 0;
    tcp_info info{};
    socklen_t size = sizeof info;
    if (::ioctl(socket, SIOCOUTQ, &pending) != 0 || ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) {
        return std::nullopt;
    }
    SendProgress progress{.acknowledged = {}, .pending = pending};
    if (size >= offsetof(tcp_info, tcpi_bytes_acked) + sizeof info.tcpi_bytes_acked) {
        progress.acknowledged = static_cast<std::int64_t>(info.tcpi_bytes_acked);
    }
    const bool isTimed = size >= offsetof(tcp_info, tcpi_min_rtt) + sizeof info.tcpi_min_rtt;
    if (isTimed && info.tcpi_min_rtt != unknownRoundTrip) {
        progress.roundTrip = std::chrono::microseconds(info.tcpi_min_rtt);
    }
    return progress;
}

void UploadMeter::begin(const std::optional<SendProgress>& progress) {
    start_.reset();
    if (progress) {
        start_ = progress->acknowledged.value_or(0) + progress->pending;
    }
}

std::int64_t UploadMeter::acknowledged(const std::optional<SendProgress>& progress, std::int64_t handedOver) const {
    if (!start_) {
        return handedOver;
    }
    if (!progress) {
        return 0;
    }
    if (!progress->acknowledged) {
        return std::max<std::int64_t>(0, handedOver - progress->pending);
    }
    const std::int64_t acknowledged = std::max<std::int64_t>(0, *progress->acknowledged - *start_);
    // What was handed over may still be on its way to the kernel: then the body's share in the stream is not known yet,
    // and taken for the whole.
    const std::int64_t written = std::max(*progress->acknowledged + progress->pending - *start_, handedOver);
    if (acknowledged >= written) {
        return handedOver;
    }
    const double share = static_cast<double>(handedOver) / static_cast<double>(written);
    return static_cast<std::int64_t>(static_cast<double>(acknowledged) * share);
}

} // namespace skylet
