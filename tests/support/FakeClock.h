#pragma once

#include "platform/Clock.h"

#include <QTimeZone>

namespace skylet::test {

/// Stands still until the test moves it.
class FakeClock final : public Clock {
  public:
    Seconds systemUptime() const override { return uptime; }
    QDateTime currentDate() const override { return date; }

    Seconds uptime{1000};
    QDateTime date{QDate(2024, 3, 5), QTime(14, 7, 9), QTimeZone::utc()};
};

} // namespace skylet::test
