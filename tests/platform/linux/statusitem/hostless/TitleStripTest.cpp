#include "platform/linux/statusitem/hostless/TitleStrip.h"

#include "platform/linux/statusitem/drawing/SampleDisplays.h"
#include "platform/linux/statusitem/drawing/StatusColors.h"
#include "support/EventLoop.h"
#include "support/FakeSchedule.h"
#include "support/QStringPrinting.h"

#include <QAccessible>
#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QScreen>

#include <gtest/gtest.h>

#include <algorithm>

namespace skylet {
namespace {

using test::waitUntil;

class TitleStripTest : public testing::Test {
  protected:
    TitleStripTest() {
        QObject::connect(&strip_, &TitleStrip::activated, &strip_, [this](QRect place) {
            ++clicks_;
            place_ = place;
        });
        strip_.show();
    }

    void mouse(QEvent::Type type, QPoint place) {
        QMouseEvent event(type, place, strip_.mapToGlobal(QPointF(place)), Qt::LeftButton, Qt::LeftButton,
                          Qt::NoModifier);
        QApplication::sendEvent(&strip_, &event);
    }

    void drag(int byX, int byY) {
        mouse(QEvent::MouseButtonPress, {10, 10});
        mouse(QEvent::MouseMove, {10 + byX, 10 + byY});
        mouse(QEvent::MouseButtonRelease, {10, 10});
    }

    bool isOnAScreen() const {
        const QList<QScreen*> screens = QGuiApplication::screens();
        return std::any_of(screens.cbegin(), screens.cend(), [this](const QScreen* screen) {
            return screen->availableGeometry().contains(strip_.geometry());
        });
    }

    static QScreen* otherScreen() { return QGuiApplication::screens().back(); }

    static QRect screen() { return QGuiApplication::primaryScreen()->availableGeometry(); }

    test::FakeSchedule schedule_;
    TitleStrip strip_{sample::fast(), schedule_};
    int clicks_ = 0;
    QRect place_;
};

TEST_F(TitleStripTest, StandsAtTheTopRightAndGrowsToTheLeft) {
    EXPECT_EQ(strip_.geometry().right(), screen().right() - 4);
    EXPECT_EQ(strip_.y(), screen().y() + 4);
    const int width = strip_.width();
    strip_.setDisplay(sample::responsive(QStringLiteral("8888")));
    EXPECT_GT(strip_.width(), width);
    EXPECT_EQ(strip_.geometry().right(), screen().right() - 4);
}

TEST_F(TitleStripTest, KeepsItsWidthForAWhileWhenTheTitleGetsShorter) {
    const QRect before = strip_.geometry();
    strip_.setDisplay(sample::offline());
    EXPECT_EQ(strip_.geometry(), before);
    schedule_.fire();
    EXPECT_LT(strip_.width(), before.width());
    EXPECT_EQ(strip_.geometry().right(), before.right());
}

TEST_F(TitleStripTest, NeverAsksForTheFocus) {
    EXPECT_TRUE(strip_.windowFlags().testFlag(Qt::WindowDoesNotAcceptFocus));
    EXPECT_TRUE(strip_.windowFlags().testFlag(Qt::WindowStaysOnTopHint));
    EXPECT_TRUE(strip_.testAttribute(Qt::WA_ShowWithoutActivating));
}

TEST_F(TitleStripTest, ShowsTheDotInItsColour) {
    strip_.setDisplay(sample::offline());
    EXPECT_EQ(strip_.grab().toImage().pixelColor(11, strip_.height() / 2), dotShades(Status::offline).fill);
}

TEST_F(TitleStripTest, IsReadOutByItsText) {
    EXPECT_EQ(strip_.accessibleName(), QStringLiteral("87 ms  Responsive  ↓12.4M ↑210K"));
}

TEST_F(TitleStripTest, IsAButtonToAScreenReader) {
    QAccessibleInterface* const seen = QAccessible::queryAccessibleInterface(&strip_);
    ASSERT_NE(seen, nullptr);
    EXPECT_EQ(seen->role(), QAccessible::Button);
    EXPECT_EQ(seen->text(QAccessible::Name), strip_.accessibleName());
    QAccessibleActionInterface* const actions = seen->actionInterface();
    ASSERT_NE(actions, nullptr);
    ASSERT_EQ(actions->actionNames(), QStringList{QAccessibleActionInterface::pressAction()});
    actions->doAction(QAccessibleActionInterface::pressAction());
    EXPECT_TRUE(waitUntil([this] { return clicks_ == 1; }));
    EXPECT_EQ(place_, strip_.geometry());
}

TEST_F(TitleStripTest, TellsWhereItIsWhenItIsClicked) {
    mouse(QEvent::MouseButtonPress, {10, 10});
    EXPECT_EQ(clicks_, 0);
    mouse(QEvent::MouseButtonRelease, {10, 10});
    EXPECT_EQ(clicks_, 1);
    EXPECT_EQ(place_, strip_.geometry());
}

TEST_F(TitleStripTest, IsNotPressedByTheKeysOfSomebodyWhoWasTypingWhenItCame) {
    for (const Qt::Key key : {Qt::Key_Space, Qt::Key_Return, Qt::Key_Select}) {
        for (const QEvent::Type type : {QEvent::KeyPress, QEvent::KeyRelease}) {
            QKeyEvent event(type, key, Qt::NoModifier);
            QApplication::sendEvent(&strip_, &event);
        }
    }
    EXPECT_EQ(clicks_, 0);
}

TEST_F(TitleStripTest, GoesByTheMouseWhereItDoesNotKnowItsPlace) {
    for (const QEvent::Type type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
        QMouseEvent event(type, QPointF(10, 10), QPointF(310, 110), Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(&strip_, &event);
    }
    EXPECT_EQ(place_, QRect(QPoint(300, 100), strip_.size()));
}

TEST_F(TitleStripTest, GoesByThePlaceThatItAskedForWhereThereIsNoMouse) {
    const QRect place = strip_.geometry();
    // As after a window manager that tells Qt of another place.
    strip_.move(0, 0);
    strip_.click();
    EXPECT_EQ(place_, place);
}

TEST_F(TitleStripTest, CanBeDrawnElsewhereAndStaysThereThoughItsWidthChanges) {
    const QPoint before = strip_.geometry().topRight();
    mouse(QEvent::MouseButtonPress, {10, 10});
    mouse(QEvent::MouseMove, {-90, 60});
    mouse(QEvent::MouseButtonRelease, {10, 10});
    EXPECT_EQ(clicks_, 0);
    EXPECT_EQ(strip_.geometry().topRight(), before + QPoint(-100, 50));
    strip_.setDisplay(sample::offline());
    schedule_.fire();
    EXPECT_EQ(strip_.geometry().topRight(), before + QPoint(-100, 50));
}

TEST_F(TitleStripTest, StaysOnTheScreenWhereverItIsDrawn) {
    const QPoint before = strip_.geometry().topRight();
    // From one screen to the other and beyond.
    for (const QPoint distance : {QPoint(2000, -500), QPoint(-3000, 3000)}) {
        drag(distance.x(), distance.y());
        for (const StatusDisplay& display : {sample::fast(), sample::offline(), sample::fast()}) {
            strip_.setDisplay(display);
            if (!schedule_.pending().empty()) {
                schedule_.fire();
            }
            EXPECT_TRUE(isOnAScreen()) << strip_.x() << ' ' << strip_.y();
        }
        EXPECT_NE(strip_.geometry().topRight(), before);
    }
}

TEST_F(TitleStripTest, KeepsItsChosenPlaceAtTheRightEdgeAsTheTitleGetsShorter) {
    // As far to the right as only its dot is still to be seen.
    drag(screen().right() - 15 - strip_.x(), 40);
    EXPECT_TRUE(screen().contains(strip_.geometry())) << strip_.x();
    strip_.setDisplay(sample::offline());
    schedule_.fire();
    EXPECT_TRUE(screen().contains(strip_.geometry())) << strip_.x();
    EXPECT_EQ(strip_.geometry().right(), screen().right());
}

TEST_F(TitleStripTest, CanBeDrawnToAnotherScreen) {
    const QRect other = otherScreen()->availableGeometry();
    drag(100 - strip_.x(), other.center().y() - strip_.y());
    EXPECT_EQ(strip_.pos(), QPoint(100, other.center().y()));
    EXPECT_TRUE(other.contains(strip_.geometry()));
}

TEST_F(TitleStripTest, FollowsThePrimaryScreenAndTheRoomThatPanelsLeaveThere) {
    const QPoint place = strip_.pos();
    QScreen* primary = QGuiApplication::primaryScreen();
    strip_.move(0, 300);
    Q_EMIT primary->availableGeometryChanged(primary->availableGeometry());
    EXPECT_EQ(strip_.pos(), place);
    strip_.move(0, 300);
    Q_EMIT qApp->primaryScreenChanged(primary);
    EXPECT_EQ(strip_.pos(), place);
}

TEST_F(TitleStripTest, LooksForARoomAnewWhenScreensComeAndGo) {
    const QPoint place = strip_.pos();
    QScreen* other = otherScreen();
    for (const bool comes : {false, true}) {
        strip_.move(0, 300);
        Q_EMIT comes ? qApp->screenAdded(other) : qApp->screenRemoved(other);
        EXPECT_TRUE(waitUntil([&] { return strip_.pos() == place; })) << comes;
    }
    strip_.move(0, 300);
    Q_EMIT other->availableGeometryChanged(other->availableGeometry());
    EXPECT_EQ(strip_.pos(), place);
}

TEST_F(TitleStripTest, IsADockAndShowsItsTooltipWhoeverHasTheFocus) {
    EXPECT_TRUE(strip_.testAttribute(Qt::WA_X11NetWmWindowTypeDock));
    EXPECT_TRUE(strip_.testAttribute(Qt::WA_AlwaysShowToolTips));
    for (const auto& display : {sample::fast(), sample::offline()}) {
        strip_.setDisplay(display);
        EXPECT_EQ(strip_.toolTip(), display.toolTip);
        EXPECT_FALSE(strip_.toolTip().isEmpty());
    }
}

TEST_F(TitleStripTest, TakesAnUnsteadyHandForAClick) {
    mouse(QEvent::MouseButtonPress, {10, 10});
    mouse(QEvent::MouseMove, {11, 11});
    mouse(QEvent::MouseButtonRelease, {11, 11});
    EXPECT_EQ(clicks_, 1);
}

} // namespace
} // namespace skylet
