#include "platform/linux/system/BusLoss.h"

#include "support/EventLoop.h"
#include "support/PrivateBus.h"

#include <gtest/gtest.h>

#include <memory>

namespace skylet::test {

namespace {

using namespace std::chrono_literals;

class BusLossTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(bus_.isRunning()); }

    PrivateBus bus_;
    int losses_ = 0;
    std::unique_ptr<BusLoss> loss_ = std::make_unique<BusLoss>(bus_.connect(), [this] { ++losses_; });
};

} // namespace

TEST_F(BusLossTest, SaysNothingWhileTheBusLives) {
    runFor(100ms);
    EXPECT_EQ(losses_, 0);
}

TEST_F(BusLossTest, TellsOfABusThatDiesOnce) {
    bus_.kill();
    EXPECT_EQ(losses_, 0) << "from the event loop only";
    EXPECT_TRUE(waitUntil([this] { return losses_ > 0; }));
    runFor(50ms);
    EXPECT_EQ(losses_, 1);
}

TEST_F(BusLossTest, OtherConnectionsThatEndAreNoLoss) {
    const QString other = bus_.connect().name();
    PrivateBus::disconnect(other);
    runFor(100ms);
    EXPECT_EQ(losses_, 0);
}

TEST_F(BusLossTest, IsSilentOnceItIsGone) {
    loss_.reset();
    bus_.kill();
    runFor(100ms);
    EXPECT_EQ(losses_, 0);
}

} // namespace skylet::test
