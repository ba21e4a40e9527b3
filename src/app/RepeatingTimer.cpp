#include "app/RepeatingTimer.h"

#include <QTimer>

#include <chrono>
#include <utility>

namespace skylet {

std::shared_ptr<Cancellation> repeatingTimer(Seconds interval, Seconds /*tolerance*/, std::function<void()> action) {
    // A precise timer stays within any tolerance; Qt offers no slack of a chosen length to give back to the system.
    auto timer = std::make_shared<QTimer>();
    timer->setTimerType(Qt::PreciseTimer);
    timer->callOnTimeout(std::move(action));
    timer->start(std::chrono::ceil<std::chrono::milliseconds>(interval));
    return std::make_shared<CancellationAction>([timer] { timer->stop(); });
}

} // namespace skylet
