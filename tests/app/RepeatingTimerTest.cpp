#include "app/RepeatingTimer.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>

namespace skylet {
namespace {

TEST(RepeatingTimer, FiresAgainAndAgainUntilCancelledAlsoInANestedEventLoop) {
    int fired = 0;
    QEventLoop menu;
    const auto timer = repeatingTimer(Seconds(0.002), Seconds(0.001), [&] {
        if (++fired == 3) {
            menu.quit();
        }
    });
    QTimer::singleShot(2000, &menu, &QEventLoop::quit);
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
