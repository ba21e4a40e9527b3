#pragma once

#include <functional>

namespace skylet {

/// Watches how the system would send packets to the Internet, and whether it would at all: by a route through a link
/// that is up and has its carrier. It says nothing of whether anything answers at the other end.
class PathMonitor {
  public:
    /// `satisfied`: there is a route, or it cannot be told.
    using UpdateHandler = std::function<void(bool satisfied)>;

    virtual ~PathMonitor() = default;
    /// Reports once soon after the start, and again whenever packets leave by another route (interface, gateway or
    /// source address), also when `satisfied` is the same as before. Every report arrives on the main thread from the
    /// event loop, never from inside `start`.
    virtual void start(UpdateHandler handler) = 0;
    /// No report arrives after it. Harmless when repeated.
    virtual void cancel() = 0;
};

} // namespace skylet
