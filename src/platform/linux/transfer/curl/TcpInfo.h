#pragma once

#include <linux/tcp.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <optional>

namespace skylet {

/// What the kernel tells of a TCP connection at one moment (tcp(7), TCP_INFO). What an older kernel does not count is
/// absent.
class TcpInfo {
  public:
    /// Empty for anything but a TCP socket.
    static std::optional<TcpInfo> of(int socket);

    /// Both ends are connected and neither has ended it.
    bool isEstablished() const;
    /// Since the connection last received anything; in whole steps of the kernel's clock.
    std::chrono::milliseconds sinceLastData() const;
    /// Smoothed; zero before the first has been seen.
    std::chrono::microseconds roundTrip() const;
    /// Absent too before the first has been seen.
    std::optional<std::chrono::microseconds> smallestRoundTrip() const;
    /// Of TCP's payload, since the connection began.
    std::optional<std::int64_t> bytesAcknowledged() const;
    std::optional<std::int64_t> bytesReceived() const;

  private:
    TcpInfo() = default;

    tcp_info values_{};
    /// How much of `values_` the kernel knows.
    socklen_t size_ = sizeof values_;
};

} // namespace skylet
