#pragma once

#include "platform/Clock.h"

#include <chrono>

namespace skylet {

/// The kernel's clocks: CLOCK_MONOTONIC, which stands still in suspend, and the wall clock in UTC.
class SystemClock : public Clock {
  public:
    Seconds systemUptime() const override { return std::chrono::steady_clock::now().time_since_epoch(); }
    QDateTime currentDate() const override { return QDateTime::currentDateTimeUtc(); }
};

} // namespace skylet
