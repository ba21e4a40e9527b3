#include "platform/linux/transfer/UploadMeter.h"

#include "platform/linux/transfer/curl/TcpInfo.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <algorithm>

namespace skylet {

std::optional<SendProgress> SendProgress::of(int socket) {
    int pending = 0;
    const bool isKnown = ::ioctl(socket, SIOCOUTQ, &pending) == 0;
    const auto info = TcpInfo::of(socket);
    if (!isKnown || !info) {
        return std::nullopt;
    }
    return SendProgress{
        .acknowledged = info->bytesAcknowledged(), .pending = pending, .roundTrip = info->smallestRoundTrip()};
}

void UploadMeter::begin(const std::optional<SendProgress>& progress) {
    start_.reset();
    if (progress) {
        start_ = progress->acknowledged + progress->pending;
    }
}

std::int64_t UploadMeter::acknowledged(const std::optional<SendProgress>& progress, std::int64_t handedOver) const {
    if (!start_) {
        return handedOver;
    }
    if (!progress) {
        return 0;
    }
    const std::int64_t acknowledged = std::max<std::int64_t>(0, progress->acknowledged - *start_);
    // What was handed over may still be on its way to the kernel: then the body's share in the stream is not known yet,
    // and taken for the whole.
    const std::int64_t written = std::max(progress->acknowledged + progress->pending - *start_, handedOver);
    if (acknowledged >= written) {
        return handedOver;
    }
    const double share = static_cast<double>(handedOver) / static_cast<double>(written);
    return static_cast<std::int64_t>(static_cast<double>(acknowledged) * share);
}

} // namespace skylet
