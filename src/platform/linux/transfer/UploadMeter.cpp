#include "platform/linux/transfer/UploadMeter.h"

#include <algorithm>

namespace skylet {

void UploadMeter::bodyStarts(const std::optional<TcpInfo>& connection) {
    start_ = connection ? std::optional(connection->acknowledged + connection->pending) : std::nullopt;
}

std::int64_t UploadMeter::acknowledged(const std::optional<TcpInfo>& connection, std::int64_t bodyGiven) const {
    if (!start_) {
        return bodyGiven;
    }
    if (!connection) {
        return 0;
    }
    const std::int64_t acknowledged = std::max<std::int64_t>(0, connection->acknowledged - *start_);
    // Some of the body may still be on its way to the kernel: then its share in the stream is not known yet, and taken
    // for the whole.
    const std::int64_t stream = std::max(connection->acknowledged + connection->pending - *start_, bodyGiven);
    if (acknowledged >= stream) {
        return bodyGiven;
    }
    const double share = static_cast<double>(bodyGiven) / static_cast<double>(stream);
    return static_cast<std::int64_t>(static_cast<double>(acknowledged) * share);
}

} // namespace skylet
