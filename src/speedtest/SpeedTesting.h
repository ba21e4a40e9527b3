#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace skylet {

/// What is reported of each test: `onStarted`, then one of the two others, once. From inside the operation or event
/// that caused it. Results are in Mbit/s and absent for a phase that failed.
struct SpeedTestEvents {
    std::function<void()> onStarted;
    std::function<void()> onCancelled;
    std::function<void(std::optional<double> down, std::optional<double> up)> onFinished;
};

/// The speed test as the application sees it: a window that runs one and reports its events.
class SpeedTesting : public SpeedTestEvents {
  public:
    virtual ~SpeedTesting() = default;
    virtual bool isRunning() const = 0;
    /// The response time to show beside the next test's results, ms; 0: none.
    virtual void setLatencyMs(std::int64_t milliseconds) = 0;
    /// Opens the window or brings it to the front, and starts a test unless one is running.
    virtual void show() = 0;
    /// Ends a running test; harmless at any other time.
    virtual void cancel() = 0;
};

/// Makes the one speed test of the program, when it is first needed.
using SpeedTestFactory = std::function<std::unique_ptr<SpeedTesting>()>;

} // namespace skylet
