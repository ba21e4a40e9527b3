#pragma once

#include "platform/Clock.h"

namespace skylet {

/// The kernel's clocks: CLOCK_MONOTONIC, which stands still in suspend, and the wall clock in UTC.
class SystemClock : public Clock {
  public:
    Seconds systemUptime() const override;
    QDateTime currentDate() const override;
};

} // namespace skylet
