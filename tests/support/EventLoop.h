#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>

#include <chrono>

namespace skylet::test {

/// Runs the event loop until `condition` holds; false when it did not within `timeout`, which is longer than a busy
/// machine takes for anything.
template <typename Condition>
bool waitUntil(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    const QDeadlineTimer deadline(timeout);
    QEventLoop loop;
    QTimer poll;
    poll.setTimerType(Qt::PreciseTimer);
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (condition() || deadline.hasExpired()) {
            loop.quit();
        }
    });
    poll.start(std::chrono::milliseconds(1));
    loop.exec();
    return condition();
}

/// Runs the event loop for `duration`.
inline void runFor(std::chrono::milliseconds duration) {
    waitUntil([] { return false; }, duration);
}

/// Handles all that is under way.
inline void settle() {
    for (int i = 0; i < 5; ++i) {
        QCoreApplication::processEvents();
    }
}

} // namespace skylet::test
