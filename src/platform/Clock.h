#pragma once

#include <QDateTime>

#include <chrono>

namespace skylet {

/// Intervals and uptimes: seconds as a 64-bit float.
using Seconds = std::chrono::duration<double>;

/// Answers what time it is. Never used to wait.
class Clock {
  public:
    virtual ~Clock() = default;
    /// Time since an arbitrary start, monotonic; stands still while the system is suspended.
    virtual Seconds systemUptime() const = 0;
    /// The wall clock, for texts that show a date or a time; may jump.
    virtual QDateTime currentDate() const = 0;
};

} // namespace skylet
