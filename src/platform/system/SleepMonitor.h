#pragma once

#include <functional>

namespace skylet {

/// Tells when the system is about to be suspended and when it has come back. Never suspends anything itself.
class SleepMonitor {
  public:
    virtual ~SleepMonitor() = default;
    /// Both handlers run on the main thread from the event loop. The suspend waits (within the system's own limit)
    /// until `willSleep` has returned. A `willSleep` is always followed by a `didWake`, also when the suspend was
    /// called off.
    virtual void start(std::function<void()> willSleep, std::function<void()> didWake) = 0;
    /// No handler runs after it. Harmless when repeated.
    virtual void stop() = 0;
};

} // namespace skylet
