#pragma once

#include <linux/tcp.h>

#include <chrono>
#include <cstdint>
#include <optional>

namespace skylet {

/// What the kernel says of a TCP connection at one moment (tcp(7), TCP_INFO).
class TcpInfo {
  public:
    /// Empty for anything but a TCP socket, and on kernels before 4.6, which count less.
    static std::optional<TcpInfo> of(int socket);

    /// Both ends are connected and neither has ended it.
    bool isEstablished() const;
    /// Since the connection last received anything; in whole steps of the kernel's clock.
    std::chrono::milliseconds sinceLastData() const { return std::chrono::milliseconds(values_.tcpi_last_data_recv); }
    /// Smoothed; zero before the first has been seen.
    std::chrono::microseconds roundTrip() const { return std::chrono::microseconds(values_.tcpi_rtt); }
    /// Empty before the first has been seen.
    std::optional<std::chrono::microseconds> smallestRoundTrip() const;
    /// Of TCP's payload, since the connection began.
    std::int64_t bytesAcknowledged() const { return static_cast<std::int64_t>(values_.tcpi_bytes_acked); }
    std::int64_t bytesReceived() const { return static_cast<std::int64_t>(values_.tcpi_bytes_received); }

  private:
    tcp_info values_{};
};

} // namespace skylet
