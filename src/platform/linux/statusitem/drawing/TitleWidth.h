#pragma once

#include "platform/Lifetime.h"
#include "platform/Timers.h"

#include <functional>
#include <memory>

namespace skylet {

/// The room that a title gets: more at once when it needs more, less only when it has needed less for ten seconds. So
/// what stands beside it is not pushed about by every number and word.
class TitleWidth {
  public:
    static constexpr Seconds quietTime{10};

    /// `onShrunk` runs when the width has become smaller.
    TitleWidth(Schedule schedule, std::function<void()> onShrunk);

    /// What the title needs from now on, in whatever unit.
    void setNeeded(double needed);
    double width() const { return width_; }

  private:
    void shrink();

    const Schedule schedule_;
    const std::function<void()> onShrunk_;
    double needed_ = 0;
    double width_ = 0;
    /// The most that was needed since the timer was started.
    double recentlyNeeded_ = 0;
    /// Runs while less is needed than there is.
    std::shared_ptr<Cancellation> timer_;
    Lifetime lifetime_;
};

} // namespace skylet
