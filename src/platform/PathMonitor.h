#pragma once

#include <functional>

namespace skylet {

/// Watches whether the system has a usable way out: a default route through a link that is up and running. It says
/// nothing of whether anything answers at the other end.
class PathMonitor {
  public:
    /// `satisfied`: a usable default route exists.
    using UpdateHandler = std::function<void(bool satisfied)>;

    virtual ~PathMonitor() = default;
    /// Reports once soon after the start, and again on each change of any default route, also when `satisfied` is the
    /// same as before. Every report arrives on the main thread from the event loop, never from inside `start`.
    virtual void start(UpdateHandler handler) = 0;
    /// No report arrives after it. Harmless when repeated.
    virtual void cancel() = 0;
};

} // namespace skylet
