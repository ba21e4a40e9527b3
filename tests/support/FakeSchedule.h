#pragma once

#include "platform/Cancellation.h"
#include "platform/Clock.h"

#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace skylet::test {

/// Timers that fire when the test says so, one-shot and repeating ones alike. Remembers every one that was ever asked
/// for.
class FakeSchedule {
  public:
    struct Timer {
        Seconds interval;
        std::function<void()> action;
        bool cancelled = false;
        bool fired = false;
        /// Neither cancelled nor, being one-shot, used up.
        bool pending() const { return !cancelled && !fired; }
    };

    std::shared_ptr<Cancellation> operator()(Seconds interval, std::function<void()> action) {
        auto timer = std::make_shared<Timer>(Timer{interval, std::move(action)});
        timers_->push_back(timer);
        return std::make_shared<CancellationAction>([timer] { timer->cancelled = true; });
    }

    const std::vector<std::shared_ptr<Timer>>& timers() const { return *timers_; }

    std::vector<std::shared_ptr<Timer>> pending() const {
        std::vector<std::shared_ptr<Timer>> found;
        for (const auto& timer : *timers_) {
            if (timer->pending()) {
                found.push_back(timer);
            }
        }
        return found;
    }

    /// Fires the one pending timer. Throws when there is not exactly one.
    void fire() {
        const auto waiting = pending();
        if (waiting.size() != 1) {
            throw std::logic_error("not exactly one timer is pending");
        }
        waiting.front()->fired = true;
        waiting.front()->action();
    }

    /// Of the timers that are cancelled or used up nothing is remembered.
    void forgetTheRest() {
        std::erase_if(*timers_, [](const auto& timer) { return !timer->pending(); });
    }

  private:
    // Shared, so that the copy which the engine holds reports to the test.
    std::shared_ptr<std::vector<std::shared_ptr<Timer>>> timers_ =
        std::make_shared<std::vector<std::shared_ptr<Timer>>>();
};

} // namespace skylet::test
