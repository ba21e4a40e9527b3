#include "platform/linux/transfer/curl/TcpInfo.h"

#include <netinet/in.h>

#include <cstddef>
#include <limits>

namespace skylet {

namespace {

/// TCP_ESTABLISHED of <netinet/tcp.h>, which does not go together with <linux/tcp.h>.
constexpr int establishedState = 1;
/// What the kernel has in the place of a smallest round trip before there was any.
constexpr auto unknownRoundTrip = std::numeric_limits<std::uint32_t>::max();

} // namespace

std::optional<TcpInfo> TcpInfo::of(int socket) {
    TcpInfo info;
    return ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info.values_, &info.size_) == 0 ? std::optional(info)
                                                                                        : std::nullopt;
}

bool TcpInfo::isEstablished() const {
    return values_.tcpi_state == establishedState;
}

std::chrono::milliseconds TcpInfo::sinceLastData() const {
    return std::chrono::milliseconds(values_.tcpi_last_data_recv);
}

std::chrono::microseconds TcpInfo::roundTrip() const {
    return std::chrono::microseconds(values_.tcpi_rtt);
}

std::optional<std::chrono::microseconds> TcpInfo::smallestRoundTrip() const {
    const bool isKnown = size_ >= offsetof(tcp_info, tcpi_min_rtt) + sizeof values_.tcpi_min_rtt &&
                         values_.tcpi_min_rtt != unknownRoundTrip;
    return isKnown ? std::optional(std::chrono::microseconds(values_.tcpi_min_rtt)) : std::nullopt;
}

std::optional<std::int64_t> TcpInfo::bytesAcknowledged() const {
    const bool isKnown = size_ >= offsetof(tcp_info, tcpi_bytes_acked) + sizeof values_.tcpi_bytes_acked;
    return isKnown ? std::optional(static_cast<std::int64_t>(values_.tcpi_bytes_acked)) : std::nullopt;
}

std::optional<std::int64_t> TcpInfo::bytesReceived() const {
    const bool isKnown = size_ >= offsetof(tcp_info, tcpi_bytes_received) + sizeof values_.tcpi_bytes_received;
    return isKnown ? std::optional(static_cast<std::int64_t>(values_.tcpi_bytes_received)) : std::nullopt;
}

} // namespace skylet
