#include "platform/linux/statusitem/drawing/TitleWidth.h"

#include "support/FakeSchedule.h"

#include <gtest/gtest.h>

namespace skylet {
namespace {

class TitleWidthTest : public testing::Test {
  protected:
    test::FakeSchedule schedule_;
    int shrunk_ = 0;
    TitleWidth width_{schedule_, [this] { ++shrunk_; }};
};

TEST_F(TitleWidthTest, GrowsAtOnce) {
    width_.setNeeded(100);
    EXPECT_EQ(width_.width(), 100);
    width_.setNeeded(120);
    EXPECT_EQ(width_.width(), 120);
    EXPECT_TRUE(schedule_.pending().empty());
}

TEST_F(TitleWidthTest, ShrinksAfterTenSecondsInWhichLessWasNeeded) {
    width_.setNeeded(120);
    width_.setNeeded(80);
    EXPECT_EQ(width_.width(), 120);
    ASSERT_EQ(schedule_.pending().size(), 1U);
    EXPECT_EQ(schedule_.pending().front()->interval, Seconds(10));
    schedule_.fire();
    EXPECT_EQ(width_.width(), 80);
    EXPECT_EQ(shrunk_, 1);
    EXPECT_TRUE(schedule_.pending().empty());
}

TEST_F(TitleWidthTest, ShrinksToTheMostThatWasNeededInThatTimeAndThenOn) {
    width_.setNeeded(120);
    for (const double needed : {70, 90, 80}) {
        width_.setNeeded(needed);
    }
    schedule_.fire();
    EXPECT_EQ(width_.width(), 90);
    schedule_.fire();
    EXPECT_EQ(width_.width(), 80);
    EXPECT_EQ(shrunk_, 2);
}

TEST_F(TitleWidthTest, WaitsAnewOnceAllOfItWasNeededAgain) {
    width_.setNeeded(120);
    width_.setNeeded(80);
    width_.setNeeded(120);
    EXPECT_TRUE(schedule_.pending().empty());
    width_.setNeeded(70);
    schedule_.fire();
    EXPECT_EQ(width_.width(), 70);
}

TEST_F(TitleWidthTest, HasNoTimerThatOutlivesIt) {
    {
        TitleWidth other(schedule_, [this] { ++shrunk_; });
        other.setNeeded(2);
        other.setNeeded(1);
    }
    schedule_.fire();
    EXPECT_EQ(shrunk_, 0);
}

} // namespace
} // namespace skylet
