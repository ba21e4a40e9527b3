#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace skylet {

/// How far the network has taken what a connection was given to send, in bytes of TCP's payload.
struct SendProgress {
    /// Acknowledged by the other end since the connection began.
    std::int64_t acknowledged = 0;
    /// Handed to the kernel, and not acknowledged.
    std::int64_t pending = 0;
    /// The shortest round trip of late; absent before the first.
    std::optional<std::chrono::microseconds> roundTrip = {};

    /// Asks the kernel (tcp(7)). Empty where it does not know.
    static std::optional<SendProgress> of(int socket);
};

/// Estimates how many bytes of a request's body the other end of a connection has acknowledged. The kernel counts what
/// TLS and HTTP wrap around the body too; their share is taken to be the same throughout.
class UploadMeter {
  public:
    /// The body begins here: what the connection was given before is not the body's.
    void begin(const std::optional<SendProgress>& progress);
    /// `handedOver`: bytes of the body that have been given away so far, including those still on their way to the
    /// kernel; the answer never exceeds it. Nothing known of the connection when the body began: the answer is just
    /// that; nothing any more: 0.
    std::int64_t acknowledged(const std::optional<SendProgress>& progress, std::int64_t handedOver) const;

  private:
    /// Position in the stream.
    std::optional<std::int64_t> start_;
};

} // namespace skylet
