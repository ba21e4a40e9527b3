#pragma once

#include "platform/linux/transfer/curl/TcpInfo.h"

#include <cstdint>
#include <optional>

namespace skylet {

/// Estimates how many bytes of a request's body the other end of a connection has acknowledged. The kernel counts what
/// TLS and HTTP add to the body too; its share is taken to be the same throughout. `connection`: empty where the kernel
/// says nothing.
class UploadMeter {
  public:
    /// The body begins here: what the connection was given before is not the body's.
    void bodyStarts(const std::optional<TcpInfo>& connection);
    /// `bodyGiven`: bytes of the body that libcurl has been given so far, including those still on their way to the
    /// kernel; the answer never exceeds it. Just that where nothing was known of the connection when the body began;
    /// 0 where nothing is known any more.
    std::int64_t acknowledged(const std::optional<TcpInfo>& connection, std::int64_t bodyGiven) const;

  private:
    /// Position in the stream.
    std::optional<std::int64_t> start_;
};

} // namespace skylet
