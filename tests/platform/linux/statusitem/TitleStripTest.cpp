#include "platform/linux/statusitem/TitleStrip.h"

#include "platform/linux/statusitem/SampleTitles.h"
#include "platform/linux/statusitem/StatusColors.h"
#include "support/QStringPrinting.h"

#include <QAccessible>
#include <QApplication>
#include <QMouseEvent>
#include <QScreen>

#include <gtest/gtest.h>

namespace skylet {
namespace {

class TitleStripTest : public testing::Test {
  protected:
    TitleStripTest() {
        QObject::connect(&strip_, &TitleStrip::clicked, &strip_, [this](QRect place) {
            ++clicks_;
            place_ = place;
        });
        strip_.setTitle(sample::fast());
        strip_.show();
    }

    void mouse(QEvent::Type type, QPoint place) {
        QMouseEvent event(type, place, strip_.mapToGlobal(QPointF(place)), Qt::LeftButton, Qt::LeftButton,
                          Qt::NoModifier);
        QApplication::sendEvent(&strip_, &event);
    }

    static QRect screen() { return QGuiApplication::primaryScreen()->availableGeometry(); }

    TitleStrip strip_;
    int clicks_ = 0;
    QRect place_;
};

TEST_F(TitleStripTest, StandsAtTheTopRightAndGrowsToTheLeft) {
    EXPECT_EQ(strip_.geometry().right(), screen().right() - 4);
    EXPECT_EQ(strip_.y(), screen().y() + 4);
    const int width = strip_.width();
    strip_.setTitle(sample::offline());
    EXPECT_LT(strip_.width(), width);
    EXPECT_EQ(strip_.geometry().right(), screen().right() - 4);
}

TEST_F(TitleStripTest, NeverTakesTheFocus) {
    EXPECT_TRUE(strip_.windowFlags().testFlag(Qt::WindowDoesNotAcceptFocus));
    EXPECT_TRUE(strip_.windowFlags().testFlag(Qt::WindowStaysOnTopHint));
    EXPECT_TRUE(strip_.testAttribute(Qt::WA_ShowWithoutActivating));
}

TEST_F(TitleStripTest, ShowsTheDotInItsColour) {
    strip_.setTitle(sample::offline());
    EXPECT_EQ(strip_.grab().toImage().pixelColor(11, strip_.height() / 2), dotShades(DotColor::systemRed).fill);
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
    actions->doAction(QAccessibleActionInterface::showMenuAction());
    EXPECT_EQ(clicks_, 0);
    actions->doAction(QAccessibleActionInterface::pressAction());
    EXPECT_EQ(clicks_, 1);
    EXPECT_EQ(place_, strip_.geometry());
}

TEST_F(TitleStripTest, TellsWhereItIsWhenItIsClicked) {
    mouse(QEvent::MouseButtonPress, {10, 10});
    EXPECT_EQ(clicks_, 0);
    mouse(QEvent::MouseButtonRelease, {10, 10});
    EXPECT_EQ(clicks_, 1);
    EXPECT_EQ(place_, strip_.geometry());
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
    strip_.setTitle(sample::offline());
    EXPECT_EQ(strip_.geometry().topRight(), before + QPoint(-100, 50));
}

TEST_F(TitleStripTest, TakesAnUnsteadyHandForAClick) {
    mouse(QEvent::MouseButtonPress, {10, 10});
    mouse(QEvent::MouseMove, {11, 11});
    mouse(QEvent::MouseButtonRelease, {11, 11});
    EXPECT_EQ(clicks_, 1);
}

} // namespace
} // namespace skylet
