#include "platform/Timers.h"

#include <QCoreApplication>
#include <QPointer>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <utility>

namespace skylet {

namespace {

using SteadyClock = std::chrono::steady_clock;

/// Arms `timer` for the time left until `due`, rounded up to the timer's own unit, so that it cannot be early.
void armUntil(QTimer& timer, SteadyClock::time_point due) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - SteadyClock::now());
    timer.start(std::max(left, std::chrono::milliseconds::zero()));
}

} // namespace

std::shared_ptr<Cancellation> commonTimer(Seconds interval, std::function<void()> action) {
    // The timer belongs to the application and goes when it has fired or was cancelled, whichever handles are left.
    // Qt's coarse timers stray by 5 % in both directions; the precise ones cost nothing more at these intervals.
    auto* timer = new QTimer(QCoreApplication::instance());
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    const auto due = SteadyClock::now() + std::chrono::ceil<SteadyClock::duration>(interval);
    QObject::connect(timer, &QTimer::timeout, timer, [timer, due, action = std::move(action)] {
        if (SteadyClock::now() < due) {
            armUntil(*timer, due);
            return;
        }
        timer->deleteLater();
        action();
    });
    armUntil(*timer, due);
    return std::make_shared<CancellationAction>([timer = QPointer<QTimer>(timer)] {
        if (timer) {
            timer->stop();
            timer->deleteLater();
        }
    });
}

std::shared_ptr<Cancellation> repeatingTimer(Seconds interval, Seconds /*tolerance*/, std::function<void()> action) {
    // A precise timer stays within any tolerance; Qt offers no slack of a chosen length to give back to the system.
    auto timer = std::make_shared<QTimer>();
    timer->setTimerType(Qt::PreciseTimer);
    timer->callOnTimeout(std::move(action));
    timer->start(std::chrono::ceil<std::chrono::milliseconds>(interval));
    return std::make_shared<CancellationAction>([timer] { timer->stop(); });
}

} // namespace skylet
