#include "platform/linux/transfer/curl/TcpInfo.h"

#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstddef>
#include <limits>

namespace skylet {

std::optional<TcpInfo> TcpInfo::of(int socket) {
    // Asked before the rest: what comes in between counts as read, so that no byte is counted that has not arrived.
    int unread = 0;
    int pending = 0;
    tcp_info values{};
    socklen_t size = sizeof values;
    constexpr auto needed = offsetof(tcp_info, tcpi_min_rtt) + sizeof(tcp_info::tcpi_min_rtt);
    if (::ioctl(socket, SIOCINQ, &unread) != 0 || ::ioctl(socket, SIOCOUTQ, &pending) != 0 ||
        ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &values, &size) != 0 || size < needed) {
        return std::nullopt;
    }
    // TCP_ESTABLISHED of <netinet/tcp.h>, which does not go together with <linux/tcp.h>.
    constexpr int establishedState = 1;
    constexpr auto unknown = std::numeric_limits<std::uint32_t>::max();
    TcpInfo info{.received = static_cast<std::int64_t>(values.tcpi_bytes_received),
                 .unread = unread,
                 .acknowledged = static_cast<std::int64_t>(values.tcpi_bytes_acked),
                 .pending = pending,
                 .isEstablished = values.tcpi_state == establishedState,
                 .sinceLastData = std::chrono::milliseconds(values.tcpi_last_data_recv),
                 .roundTrip = std::chrono::microseconds(values.tcpi_rtt)};
    if (values.tcpi_min_rtt != unknown) {
        info.smallestRoundTrip = std::chrono::microseconds(values.tcpi_min_rtt);
    }
    return info;
}

} // namespace skylet
