#include "platform/Timers.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>

#include <chrono>

namespace skylet {
namespace {

using namespace std::chrono_literals;

/// Runs the event loop until `done` or for `longest`.
template <typename Condition>
void runLoop(Condition done, std::chrono::milliseconds longest) {
    QElapsedTimer since;
    since.start();
    while (!done() && since.elapsed() < longest.count()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
    }
}

TEST(CommonTimer, FiresOnceAndNeverEarly) {
    using Clock = std::chrono::steady_clock;
    for (const auto interval : {Seconds(0.0), Seconds(0.0004), Seconds(0.0105), Seconds(0.03)}) {
        int fired = 0;
        const auto start = Clock::now();
        Clock::time_point at;
        const auto handle = commonTimer(interval, [&] {
            ++fired;
            at = Clock::now();
        });
        runLoop([&] { return fired > 0; }, 30s);
        ASSERT_EQ(fired, 1);
        EXPECT_GE(at - start, interval);
        runLoop([] { return false; }, 5ms);
        EXPECT_EQ(fired, 1);
    }
}

TEST(CommonTimer, NeverFiresFromInsideTheCall) {
    bool fired = false;
    const auto handle = commonTimer(Seconds(0), [&] { fired = true; });
    EXPECT_FALSE(fired);
    runLoop([&] { return fired; }, 30s);
    EXPECT_TRUE(fired);
}

TEST(CommonTimer, DoesNotFireOnceCancelledAndCancellingTwiceIsHarmless) {
    bool fired = false;
    const auto handle = commonTimer(Seconds(0.005), [&] { fired = true; });
    handle->cancel();
    handle->cancel();
    runLoop([&] { return fired; }, 20ms);
    EXPECT_FALSE(fired);
}

TEST(CommonTimer, CancellingAfterItFiredIsHarmless) {
    bool fired = false;
    const auto handle = commonTimer(Seconds(0.001), [&] { fired = true; });
    runLoop([&] { return fired; }, 30s);
    runLoop([] { return false; }, 5ms);
    handle->cancel();
    EXPECT_TRUE(fired);
}

TEST(CommonTimer, FiresAlsoWhenItsHandleWasDropped) {
    bool fired = false;
    commonTimer(Seconds(0.001), [&] { fired = true; });
    runLoop([&] { return fired; }, 30s);
    EXPECT_TRUE(fired);
}

TEST(CommonTimer, FiresInsideANestedEventLoopAsWhileAMenuIsOpen) {
    bool fired = false;
    QEventLoop menu;
    commonTimer(Seconds(0.005), [&] {
        fired = true;
        menu.quit();
    });
    QTimer::singleShot(30s, &menu, &QEventLoop::quit);
    menu.exec();
    EXPECT_TRUE(fired);
}

TEST(RepeatingTimer, FiresAgainAndAgainUntilCancelledAlsoInANestedEventLoop) {
    int fired = 0;
    QEventLoop menu;
    const auto timer = repeatingTimer(Seconds(0.002), Seconds(0.001), [&] {
        if (++fired == 3) {
            menu.quit();
        }
    });
    QTimer::singleShot(30s, &menu, &QEventLoop::quit);
    menu.exec();
    EXPECT_EQ(fired, 3);
    timer->cancel();
    timer->cancel();
    QTimer::singleShot(10, &menu, &QEventLoop::quit);
    menu.exec();
    EXPECT_EQ(fired, 3);
}

TEST(RepeatingTimer, MayBeCancelledFromInsideItsAction) {
    int fired = 0;
    std::shared_ptr<Cancellation> timer;
    timer = repeatingTimer(Seconds(0.001), Seconds(0), [&] {
        ++fired;
        timer->cancel();
        timer.reset();
    });
    QEventLoop loop;
    QTimer::singleShot(20, &loop, &QEventLoop::quit);
    loop.exec();
    EXPECT_EQ(fired, 1);
}

} // namespace
} // namespace skylet
