#pragma once

#include <functional>
#include <memory>
#include <utility>

namespace skylet {

/// A handle on pending work.
class Cancellation {
  public:
    virtual ~Cancellation() = default;
    /// Stops the work; harmless when it has already ended.
    virtual void cancel() = 0;
};

/// A Cancellation that runs an action, each time it is told to: it neither counts nor forgets, so the action has to be
/// harmless when repeated.
class CancellationAction final : public Cancellation {
  public:
    explicit CancellationAction(std::function<void()> action) : action_(std::move(action)) {}
    void cancel() override { action_(); }

  private:
    const std::function<void()> action_;
};

/// Cancels `pending`, if there is any, and lets go of it.
inline void cancelAndClear(std::shared_ptr<Cancellation>& pending) {
    if (pending) {
        std::exchange(pending, nullptr)->cancel();
    }
}

} // namespace skylet
