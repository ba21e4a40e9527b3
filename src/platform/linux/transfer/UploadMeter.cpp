#include "platform/linux/transfer/UploadMeter.h"

#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstddef>

namespace skylet {

std::optional<SendProgress> SendProgress::of(int socket) {
    int pending = 0;
    tcp_info info{};
    socklen_t size = sizeof info;
    if (::ioctl(socket, SIOCOUTQ, &pending) != 0 || ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) {
        return std::nullopt;
    }
    const bool isCounted = size >= offsetof(tcp_info, tcpi_bytes_acked) + sizeof info.tcpi_bytes_acked;
    return SendProgress{isCounted ? std::optional(static_cast<std::int64_t>(info.tcpi_bytes_acked)) : std::nullopt,
                        pending};
}

void UploadMeter::begin(const std::optional<SendProgress>& progress) {
    start_ = progress ? progress->acknowledged.value_or(0) + progress->pending : 0;
}

std::int64_t UploadMeter::acknowledged(const std::optional<SendProgress>& progress, std::int64_t handedOver) const {
    if (!progress) {
        return handedOver;
    }
    if (!progress->acknowledged) {
        return std::max<std::int64_t>(0, handedOver - progress->pending);
    }
    const std::int64_t acknowledged = std::max<std::int64_t>(0, *progress->acknowledged - start_);
    // What was handed over may still be on its way to the kernel: then the body's share in the stream is not known yet,
    // and taken for the whole.
    const std::int64_t written = std::max(*progress->acknowledged + progress->pending - start_, handedOver);
    if (acknowledged >= written) {
        return handedOver;
    }
    const double share = static_cast<double>(handedOver) / static_cast<double>(written);
    return static_cast<std::int64_t>(static_cast<double>(acknowledged) * share);
}

} // namespace skylet
