#include "platform/linux/statusitem/hostless/HostlessItem.h"

#include "platform/linux/statusitem/drawing/SampleDisplays.h"
#include "platform/linux/statusitem/hostless/FakeTray.h"
#include "support/EventLoop.h"
#include "support/PrivateBus.h"
#include "support/QStringPrinting.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QStyle>
#include <QToolTip>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>

namespace skylet {
namespace {

using test::waitUntil;

using namespace std::chrono_literals;

class HostlessItemTest : public VirtualScreenTest {
  protected:
    void show(const QByteArray& display) {
        item_ = std::make_unique<HostlessItem>(HostlessItem::Options{display, 600ms, {}}, display_,
                                               [this](QRect item) { menuPlace_ = item; });
    }

    bool becomesAStrip() {
        return waitUntil([this] { return item_->strip() != nullptr; });
    }
    bool becomesAnIcon() {
        return waitUntil([this] { return item_->strip() == nullptr; });
    }

    VirtualScreen screen_;
    StatusDisplay display_ = sample::fast();
    std::unique_ptr<HostlessItem> item_;
    std::optional<QRect> menuPlace_;
};

TEST_F(HostlessItemTest, IsAStripWhereThereIsNoTray) {
    show(screen_.display());
    ASSERT_NE(item_->strip(), nullptr);
    EXPECT_TRUE(item_->strip()->isVisible());
    EXPECT_EQ(item_->strip()->toolTip(), sample::toolTip);
}

TEST_F(HostlessItemTest, IsAStripWhereThereIsNoX11) {
    show(QByteArray());
    EXPECT_NE(item_->strip(), nullptr);
}

TEST_F(HostlessItemTest, IsAnIconInTheTrayWithoutAStripBefore) {
    FakeTray tray(screen_.display(), Qt::white);
    show(screen_.display());
    EXPECT_EQ(item_->strip(), nullptr);
    EXPECT_TRUE(waitUntil([&] { return tray.icon() != XCB_WINDOW_NONE; }));
    waitUntil([] { return false; }, 700ms);
    EXPECT_EQ(item_->strip(), nullptr);
    EXPECT_EQ(tray.requests(), 1);
}

TEST_F(HostlessItemTest, MovesWithTheTrayThatComesAndGoes) {
    show(screen_.display());
    for (int round = 0; round < 2; ++round) {
        auto tray = std::make_unique<FakeTray>(screen_.display(), Qt::white);
        ASSERT_TRUE(becomesAnIcon());
        tray.reset();
        ASSERT_TRUE(becomesAStrip());
        EXPECT_TRUE(item_->strip()->isVisible());
    }
}

TEST_F(HostlessItemTest, IsAStripWhereTheTrayDoesNotTakeIt) {
    const FakeTray tray(screen_.display(), Qt::white, FakeTray::Manner::ignoresThem);
    show(screen_.display());
    EXPECT_EQ(item_->strip(), nullptr);
    EXPECT_TRUE(becomesAStrip());
    EXPECT_EQ(tray.requests(), 1);
}

TEST_F(HostlessItemTest, IsNoStripWhileATrayThatCameLateIsTakingIt) {
    for (auto noStrip = 300ms;; noStrip *= 2) {
        const QDeadlineTimer noStripBefore(noStrip);
        item_ = std::make_unique<HostlessItem>(HostlessItem::Options{screen_.display(), 1h, noStripBefore}, display_,
                                               [](QRect /*item*/) {});
        const FakeTray tray(screen_.display(), Qt::white, FakeTray::Manner::ignoresThem);
        ASSERT_TRUE(waitUntil([&] { return tray.requests() == 1; }));
        // Else it came too late, on a busy machine.
        if (!noStripBefore.hasExpired()) {
            EXPECT_FALSE(waitUntil([this] { return item_->strip() != nullptr; }, noStrip + 200ms));
            return;
        }
    }
}

TEST_F(HostlessItemTest, IsAStripWhenTheTrayPutsItOut) {
    FakeTray tray(screen_.display(), Qt::white);
    show(screen_.display());
    ASSERT_TRUE(waitUntil([&] { return tray.icon() != XCB_WINDOW_NONE; }));
    tray.expel();
    EXPECT_TRUE(becomesAStrip());
}

TEST_F(HostlessItemTest, StaysInTheTrayThatTakesOverFromAnother) {
    auto first = std::make_unique<FakeTray>(screen_.display(), Qt::white);
    show(screen_.display());
    ASSERT_TRUE(waitUntil([&] { return first->icon() != XCB_WINDOW_NONE; }));
    // What both have to say comes in together: the first one's farewell after the second one has come.
    FakeTray second(screen_.display(), Qt::white);
    first.reset();
    ASSERT_TRUE(waitUntil([&] { return second.icon() != XCB_WINDOW_NONE; }));
    EXPECT_FALSE(waitUntil([this] { return item_->strip() != nullptr; }, 900ms));
    EXPECT_EQ(second.requests(), 1);
}

TEST_F(HostlessItemTest, StaysInTheNewTrayWhenTheFarewellOfTheOldOneIsReadAfterwards) {
    FakeTray first(screen_.display(), Qt::white);
    show(screen_.display());
    ASSERT_TRUE(waitUntil([&] {
        item_->openMenu();
        return menuPlace_.has_value();
    }));
    // Each property takes an answer from the server, which has dealt with everything before it then.
    FakeTray second(screen_.display(), Qt::white);
    second.setProperty("FIRST", XCB_ATOM_CARDINAL, 0);
    // More than is read at once.
    const auto other = X11Connection::open(screen_.display());
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    for (int count = 0; count < 1000; ++count) {
        xcb_send_event(other->get(), 0, other->screen().root, XCB_EVENT_MASK_STRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&message));
    }
    other->atom("SECOND");
    first.expel();
    first.setProperty("THIRD", XCB_ATOM_CARDINAL, 0);
    ASSERT_TRUE(waitUntil([&] { return second.icon() != XCB_WINDOW_NONE; }));
    EXPECT_FALSE(waitUntil([this] { return item_->strip() != nullptr; }, 900ms));
}

TEST_F(HostlessItemTest, IsAStripThoughOneTrayAfterAnotherComesAndTakesNoIcon) {
    show(screen_.display());
    FakeTray taking(screen_.display(), Qt::white);
    ASSERT_TRUE(becomesAnIcon());
    std::unique_ptr<FakeTray> ignoring;
    for (int round = 0; round < 20 && item_->strip() == nullptr; ++round) {
        ignoring = std::make_unique<FakeTray>(screen_.display(), Qt::white, FakeTray::Manner::ignoresThem);
        waitUntil([this] { return item_->strip() != nullptr; }, 200ms);
    }
    EXPECT_NE(item_->strip(), nullptr);
}

TEST_F(HostlessItemTest, OpensTheMenuBesideThePressedIcon) {
    FakeTray tray(screen_.display(), Qt::white);
    show(screen_.display());
    ASSERT_TRUE(waitUntil([&] { return tray.icon() != XCB_WINDOW_NONE; }));
    EXPECT_TRUE(waitUntil([&] {
        tray.press();
        return menuPlace_ == QRect(8, 8, 24, 24);
    }));
}

TEST_F(HostlessItemTest, OpensTheMenuOnRequestWhereverItIs) {
    show(screen_.display());
    item_->openMenu();
    ASSERT_TRUE(menuPlace_.has_value());
    EXPECT_EQ(*menuPlace_, item_->strip()->geometry());
    menuPlace_.reset();
    FakeTray tray(screen_.display(), Qt::white);
    ASSERT_TRUE(becomesAnIcon());
    ASSERT_TRUE(waitUntil([&] {
        item_->openMenu();
        return menuPlace_ == QRect(8, 8, 24, 24);
    }));
}

TEST_F(HostlessItemTest, OpensNoMenuWhileTheTrayHasNotTakenTheIcon) {
    const FakeTray tray(screen_.display(), Qt::white, FakeTray::Manner::ignoresThem);
    show(screen_.display());
    ASSERT_TRUE(waitUntil([&] { return tray.requests() == 1; }));
    ASSERT_EQ(item_->strip(), nullptr);
    item_->openMenu();
    EXPECT_FALSE(menuPlace_.has_value());
}

TEST_F(HostlessItemTest, ShowsTheTooltipWhileTheMouseRestsOnTheIcon) {
    FakeTray tray(screen_.display(), Qt::white);
    show(screen_.display());
    ASSERT_TRUE(waitUntil([&] { return tray.icon() != XCB_WINDOW_NONE; }));
    tray.enter();
    ASSERT_TRUE(waitUntil([] { return QToolTip::isVisible(); }));
    EXPECT_EQ(QToolTip::text(), QStringLiteral("87 ms  Responsive  ↓12.4M ↑210K\nresponse time"));
    tray.leave();
    EXPECT_TRUE(waitUntil([] { return !QToolTip::isVisible(); }));
    tray.enter();
    ASSERT_TRUE(waitUntil([] { return QToolTip::isVisible(); }));
    tray.press();
    EXPECT_TRUE(waitUntil([] { return !QToolTip::isVisible(); })) << "it lies over the menu";
}

TEST_F(HostlessItemTest, ShowsNoTooltipOverTheMenuThatAPressHasOpened) {
    FakeTray tray(screen_.display(), Qt::white);
    show(screen_.display());
    ASSERT_TRUE(waitUntil([&] { return tray.icon() != XCB_WINDOW_NONE; }));
    tray.enter();
    tray.press();
    ASSERT_TRUE(waitUntil([this] { return menuPlace_.has_value(); }));
    const std::chrono::milliseconds usualDelay(QApplication::style()->styleHint(QStyle::SH_ToolTip_WakeUpDelay));
    EXPECT_FALSE(waitUntil([] { return QToolTip::isVisible(); }, usualDelay + 300ms));
}

TEST_F(HostlessItemTest, IsAStripWhenTheServerOfTheTrayEnds) {
    const FakeTray tray(screen_.display(), Qt::white);
    show(screen_.display());
    screen_.kill();
    EXPECT_TRUE(becomesAStrip());
    display_ = sample::offline();
    item_->update();
    EXPECT_EQ(item_->strip()->accessibleName(), QStringLiteral("Offline"));
    EXPECT_TRUE(item_->strip()->isVisible());
}

TEST(LogicalPlace, CountsFromTheCornerOfTheScreenInItsOwnPixels) {
    EXPECT_EQ(logicalPlace(QPoint(105, 607)), QPoint(105, 607));
    // The other screen begins at (0, 800) and has scale 2.
    EXPECT_EQ(logicalPlace(QPoint(0, 800)), QPoint(0, 800));
    EXPECT_EQ(logicalPlace(QPoint(200, 900)), QPoint(100, 850));
    EXPECT_EQ(logicalPlace(QPoint(1198, 1598)), QPoint(599, 1199));
    EXPECT_EQ(logicalPlace(QPoint(5000, 900)), QPoint(5000, 900)) << "on no screen";
}

} // namespace
} // namespace skylet
