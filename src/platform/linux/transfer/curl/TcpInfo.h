#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace skylet {

/// What the kernel says of a TCP connection at one moment (tcp(7)). Bytes are those of TCP's payload, since the
/// connection began.
struct TcpInfo {
    /// Bytes received in order, as the other end has been told.
    std::int64_t received = 0;
    /// Received bytes that have not been read from the socket.
    std::int64_t unread = 0;
    std::int64_t acknowledged = 0;
    /// Given to the kernel and not acknowledged.
    std::int64_t pending = 0;
    /// Both ends are connected and neither has ended it.
    bool isEstablished = false;
    /// Since the connection last received anything; in whole steps of the kernel's clock.
    std::chrono::milliseconds sinceLastData{0};
    /// Smoothed; zero before the first has been seen.
    std::chrono::microseconds roundTrip{0};
    /// Empty before the first has been seen.
    std::optional<std::chrono::microseconds> smallestRoundTrip = {};

    /// Empty for anything but a TCP socket, and on kernels before 4.6, which count less.
    static std::optional<TcpInfo> of(int socket);
};

} // namespace skylet
