#include "platform/linux/transfer/curl/TcpInfo.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstddef>
#include <limits>

namespace skylet {

std::optional<TcpInfo> TcpInfo::of(int socket) {
    constexpr auto needed = offsetof(tcp_info, tcpi_min_rtt) + sizeof(tcp_info::tcpi_min_rtt);
    TcpInfo info;
    socklen_t size = sizeof info.values_;
    const bool isKnown = ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info.values_, &size) == 0 && size >= needed;
    return isKnown ? std::optional(info) : std::nullopt;
}

bool TcpInfo::isEstablished() const {
    // TCP_ESTABLISHED of <netinet/tcp.h>, which does not go together with <linux/tcp.h>.
    constexpr int establishedState = 1;
    return values_.tcpi_state == establishedState;
}

std::optional<std::chrono::microseconds> TcpInfo::smallestRoundTrip() const {
    constexpr auto unknown = std::numeric_limits<std::uint32_t>::max();
    return values_.tcpi_min_rtt == unknown ? std::nullopt
                                           : std::optional(std::chrono::microseconds(values_.tcpi_min_rtt));
}

} // namespace skylet
