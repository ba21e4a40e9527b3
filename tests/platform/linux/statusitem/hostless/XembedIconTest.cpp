#include "platform/linux/statusitem/hostless/XembedIcon.h"

#include "platform/linux/statusitem/drawing/StatusColors.h"
#include "platform/linux/statusitem/hostless/FakeTray.h"
#include "platform/linux/statusitem/hostless/X11Tray.h"
#include "support/EventLoop.h"
#include "support/PrivateBus.h"

#include <QFontDatabase>
#include <QPainter>

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

namespace skylet {
namespace {

using test::waitUntil;

constexpr QColor lightTray{226, 226, 220};
constexpr QColor darkTray{30, 34, 40};

StatusIcon badgeWith(const char* number, Status status = Status::online) {
    return {Presentation::badge, status, QString::fromLatin1(number)};
}

class XembedIconTest : public VirtualScreenTest {
  protected:
    explicit XembedIconTest(int depth = 24) : screen_(depth) {}

    void dock(const QColor& ground, double scale = 1) {
        startTray(ground);
        enter(scale);
    }

    void startTray(const QColor& ground, FakeTray::Manner manner = FakeTray::Manner::takesIcons) {
        tray_ = std::make_unique<FakeTray>(screen_.display(), ground, manner);
        ASSERT_TRUE(waitUntil([this] { return knownTray_.window() != XCB_WINDOW_NONE; }));
    }

    void enter(double scale = 1) {
        icon_ = std::make_unique<XembedIcon>(*connection_, knownTray_.window(), badgeWith("87"), scale);
        ASSERT_TRUE(waitUntil([this] { return icon_->isEmbedded(); }));
    }

    /// What is to be seen in a square of that size on a tray of that colour.
    QImage expected(const StatusIcon& icon, int side, const QColor& ground) const {
        QImage image(side, side, tray_->format());
        image.fill(ground);
        QPainter(&image).drawImage(0, 0,
                                   paintStatusIcon(icon, side, QFontDatabase::systemFont(QFontDatabase::GeneralFont)));
        return image;
    }

    bool shows(const QImage& image) {
        return waitUntil([&] { return tray_->picture() == image; });
    }

    /// The icon's own pixels, with their opacity; null unless it has such.
    QImage iconWithAlpha(int side) {
        const auto length = static_cast<uint16_t>(side);
        const auto cookie =
            xcb_get_image(connection_->get(), XCB_IMAGE_FORMAT_Z_PIXMAP, tray_->icon(), 0, 0, length, length, ~0U);
        const XcbReply<xcb_get_image_reply_t> reply(xcb_get_image_reply(connection_->get(), cookie, nullptr));
        connection_->readSoon();
        if (!reply || reply->depth != 32) {
            return {};
        }
        return QImage(xcb_get_image_data(reply.get()), side, side, QImage::Format_ARGB32_Premultiplied).copy();
    }

    /// A visual with an opacity, which every X server with the Render extension has.
    xcb_visualid_t visualWithAlpha() const {
        auto depths = xcb_screen_allowed_depths_iterator(&connection_->screen());
        while (depths.rem > 0 && depths.data->depth != 32) {
            xcb_depth_next(&depths);
        }
        return depths.rem > 0 ? xcb_depth_visuals_iterator(depths.data).data->visual_id : XCB_NONE;
    }

    static constexpr std::string_view orientation_ = "_NET_SYSTEM_TRAY_ORIENTATION";
    VirtualScreen screen_;
    std::unique_ptr<X11Connection> connection_ = X11Connection::open(screen_.display());
    X11Tray knownTray_{*connection_};
    std::unique_ptr<FakeTray> tray_;
    std::unique_ptr<XembedIcon> icon_;
};

TEST_F(XembedIconTest, ShowsTheBadgeOnTheTraysOwnGround) {
    for (const QColor& ground : {lightTray, darkTray}) {
        icon_.reset();
        tray_.reset();
        ASSERT_TRUE(waitUntil([this] { return knownTray_.window() == XCB_WINDOW_NONE; }));
        dock(ground);
        EXPECT_TRUE(shows(expected(badgeWith("87"), 24, ground)));
    }
}

TEST_F(XembedIconTest, PaintsEachNewBadge) {
    dock(darkTray);
    icon_->setIcon(badgeWith("128", Status::slow));
    EXPECT_TRUE(shows(expected(badgeWith("128", Status::slow), 24, darkTray)));
}

TEST_F(XembedIconTest, PaintsANewNumberInTheSameColour) {
    dock(darkTray);
    ASSERT_TRUE(shows(expected(badgeWith("87"), 24, darkTray)));
    icon_->setIcon(badgeWith("91"));
    EXPECT_TRUE(shows(expected(badgeWith("91"), 24, darkTray)));
}

TEST_F(XembedIconTest, TakesTheSizeThatTheTrayGivesIt) {
    dock(darkTray);
    for (const int side : {16, 22, 48}) {
        tray_->resizeIcon(QSize(side, side));
        EXPECT_TRUE(shows(expected(badgeWith("87"), side, darkTray))) << side;
    }
}

TEST_F(XembedIconTest, LetsTheTrayShowThroughWhereTheTrayHasAVisualForThat) {
    startTray(darkTray);
    ASSERT_NE(visualWithAlpha(), xcb_visualid_t{XCB_NONE});
    tray_->setProperty("_NET_SYSTEM_TRAY_VISUAL", XCB_ATOM_VISUALID, visualWithAlpha());
    enter();
    const QImage wanted = paintStatusIcon(badgeWith("87"), 24, QFontDatabase::systemFont(QFontDatabase::GeneralFont));
    EXPECT_TRUE(waitUntil([&] { return iconWithAlpha(24) == wanted; }));
    EXPECT_EQ(qAlpha(wanted.pixel(0, 0)), 0);
}

TEST_F(XembedIconTest, IsNeverLargerThanAnyPanelsIcons) {
    dock(darkTray);
    tray_->resizeIcon(QSize(160, 160));
    EXPECT_TRUE(waitUntil(
        [this] { return tray_->picture().copy(16, 16, 128, 128) == expected(badgeWith("87"), 128, darkTray); }));
    EXPECT_EQ(tray_->picture().pixelColor(15, 80), darkTray);
}

TEST_F(XembedIconTest, SurvivesEverySizeWithAndWithoutAnOpacity) {
    for (const bool withOpacity : {false, true}) {
        icon_.reset();
        tray_.reset();
        ASSERT_TRUE(waitUntil([this] { return knownTray_.window() == XCB_WINDOW_NONE; }));
        startTray(darkTray);
        if (withOpacity) {
            tray_->setProperty("_NET_SYSTEM_TRAY_VISUAL", XCB_ATOM_VISUALID, visualWithAlpha());
        }
        enter();
        for (const QSize& size : {QSize(1, 1), QSize(2, 3), QSize(7, 5), QSize(1, 32767), QSize(32767, 32767)}) {
            tray_->resizeIcon(size);
            QCoreApplication::processEvents();
        }
        tray_->resizeIcon(QSize(32, 32));
        EXPECT_TRUE(withOpacity ? waitUntil([this] {
            return iconWithAlpha(32) ==
                   paintStatusIcon(badgeWith("87"), 32, QFontDatabase::systemFont(QFontDatabase::GeneralFont));
        })
                                : shows(expected(badgeWith("87"), 32, darkTray)));
        EXPECT_EQ(xcb_connection_has_error(connection_->get()), 0);
    }
}

TEST_F(XembedIconTest, IsPaintedOnceForManyEvents) {
    dock(darkTray);
    ASSERT_TRUE(shows(expected(badgeWith("87"), 24, darkTray)));
    const auto requestsSoFar = [this] { return xcb_no_operation(connection_->get()).sequence; };
    const unsigned before = requestsSoFar();
    for (int change = 0; change < 500; ++change) {
        tray_->resizeIcon(QSize(20 + change % 2, 20));
    }
    tray_->resizeIcon(QSize(22, 22));
    // Its answer stands for all that was sent before it.
    tray_->wantedSize();
    EXPECT_TRUE(shows(expected(badgeWith("87"), 22, darkTray)));
    EXPECT_LT(requestsSoFar() - before, 250U);
}

TEST_F(XembedIconTest, BecomesAsLargeAsAThickTrayHasRoomFor) {
    startTray(darkTray, FakeTray::Manner::stretchesIcons);
    enter();
    EXPECT_TRUE(shows(expected(badgeWith("87"), 48, darkTray)));
}

TEST_F(XembedIconTest, BecomesAsLargeAsAThickUprightTrayHasRoomFor) {
    startTray(darkTray, FakeTray::Manner::stretchesIconsSideways);
    tray_->setProperty(orientation_, XCB_ATOM_CARDINAL, 1);
    enter();
    EXPECT_TRUE(shows(expected(badgeWith("87"), 48, darkTray)));
}

TEST_F(XembedIconTest, BecomesAsLargeAsAThickUprightTrayThatDoesNotSayHowItStands) {
    startTray(darkTray, FakeTray::Manner::stretchesIconsSideways);
    enter();
    EXPECT_TRUE(shows(expected(badgeWith("87"), 48, darkTray)));
}

TEST_F(XembedIconTest, DoesNotAskALyingTrayToBeThickerBecauseItsPlaceIsWide) {
    startTray(darkTray, FakeTray::Manner::stretchesIconsSideways);
    tray_->setProperty(orientation_, XCB_ATOM_CARDINAL, 0);
    enter();
    EXPECT_FALSE(waitUntil([this] { return tray_->picture().height() > 22; }, std::chrono::milliseconds(300)));
}

class XembedIconAtDepth : public XembedIconTest, public testing::WithParamInterface<int> {
  protected:
    XembedIconAtDepth() : XembedIconTest(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(Depths, XembedIconAtDepth, testing::Values(16, 30));

TEST_P(XembedIconAtDepth, IsShownInItsColours) {
    dock(darkTray);
    const StatusIcon icon = badgeWith("87");
    EXPECT_TRUE(waitUntil([&] {
        return tray_->picture().convertToFormat(QImage::Format_RGB32) ==
               expected(icon, 24, darkTray).convertToFormat(QImage::Format_RGB32);
    }));
    const QColor dot = dotShades(Status::online).fill;
    const QColor seen = tray_->picture().pixelColor(12, 5);
    EXPECT_NEAR(seen.red(), dot.red(), 8);
    EXPECT_NEAR(seen.green(), dot.green(), 8);
    EXPECT_NEAR(seen.blue(), dot.blue(), 8);
}

using XembedIconWithAPaletteTest = VirtualScreenTest;

TEST_F(XembedIconWithAPaletteTest, DoesNotAskForARoomThatItCannotPaint) {
    const VirtualScreen screen(8);
    const std::unique_ptr<X11Connection> connection = X11Connection::open(screen.display());
    ASSERT_NE(connection, nullptr);
    const FakeTray tray(screen.display(), Qt::black);
    const X11Tray knownTray(*connection);
    ASSERT_TRUE(waitUntil([&] { return knownTray.window() != XCB_WINDOW_NONE; }));
    const XembedIcon icon(*connection, knownTray.window(), badgeWith("87"), 1);
    connection->flush();
    EXPECT_FALSE(waitUntil([&] { return tray.requests() > 0; }, std::chrono::milliseconds(300)));
}

TEST_F(XembedIconTest, StandsInTheMiddleOfAPlaceThatIsNotSquare) {
    dock(darkTray);
    tray_->resizeIcon(QSize(40, 24));
    EXPECT_TRUE(
        waitUntil([this] { return tray_->picture().copy(8, 0, 24, 24) == expected(badgeWith("87"), 24, darkTray); }));
}

TEST_F(XembedIconTest, AsksForMorePixelsWhereTheScreenHasMore) {
    for (const auto& [scale, side] : {std::pair{1.0, 22}, {1.5, 33}, {2.0, 44}, {0.5, 22}, {100.0, 128}}) {
        icon_.reset();
        tray_.reset();
        ASSERT_TRUE(waitUntil([this] { return knownTray_.window() == XCB_WINDOW_NONE; }));
        dock(lightTray, scale);
        EXPECT_EQ(tray_->wantedSize(), QSize(side, side)) << scale;
    }
}

TEST_F(XembedIconTest, TellsWhereItIsWhenItIsPressed) {
    dock(darkTray);
    ASSERT_TRUE(waitUntil([this] { return icon_->place() == QRect(8, 8, 24, 24); }));
    QRect pressed;
    QObject::connect(icon_.get(), &XembedIcon::pressed, icon_.get(), [&](QRect place) { pressed = place; });
    tray_->press();
    ASSERT_TRUE(waitUntil([&] { return !pressed.isNull(); }));
    EXPECT_EQ(pressed, QRect(8, 8, 24, 24));
}

TEST_F(XembedIconTest, LeavesTheWheelAndTheMiddleButtonAlone) {
    dock(darkTray);
    int presses = 0;
    bool entered = false;
    QObject::connect(icon_.get(), &XembedIcon::pressed, icon_.get(), [&] { ++presses; });
    QObject::connect(icon_.get(), &XembedIcon::entered, icon_.get(), [&] { entered = true; });
    for (const xcb_button_t button : std::array<xcb_button_t, 5>{1, 2, 3, 4, 5}) {
        presses = 0;
        entered = false;
        tray_->press(button);
        tray_->enter();
        ASSERT_TRUE(waitUntil([&] { return entered; }));
        EXPECT_EQ(presses, button == 1 || button == 3 ? 1 : 0) << static_cast<int>(button);
    }
}

TEST_F(XembedIconTest, FreesTheMouseThatThePressHasGivenIt) {
    dock(darkTray);
    const std::unique_ptr<X11Connection> other = X11Connection::open(screen_.display());
    const auto grab = [](const X11Connection& client) {
        const auto cookie =
            xcb_grab_pointer(client.get(), 1, client.screen().root, XCB_EVENT_MASK_BUTTON_PRESS, XCB_GRAB_MODE_ASYNC,
                             XCB_GRAB_MODE_ASYNC, XCB_WINDOW_NONE, XCB_CURSOR_NONE, XCB_CURRENT_TIME);
        const XcbReply<xcb_grab_pointer_reply_t> reply(xcb_grab_pointer_reply(client.get(), cookie, nullptr));
        return reply && reply->status == XCB_GRAB_STATUS_SUCCESS;
    };
    // What the server does on its own when a real button goes down.
    ASSERT_TRUE(grab(*connection_));
    ASSERT_FALSE(grab(*other));
    std::optional<bool> free;
    QObject::connect(icon_.get(), &XembedIcon::pressed, icon_.get(), [&] { free = grab(*other); });
    tray_->press();
    ASSERT_TRUE(waitUntil([&] { return free.has_value(); }));
    EXPECT_TRUE(*free);
}

TEST_F(XembedIconTest, KnowsWhenItIsPutOut) {
    dock(darkTray);
    int expelled = 0;
    QObject::connect(icon_.get(), &XembedIcon::expelled, icon_.get(), [&] { ++expelled; });
    tray_->expel();
    EXPECT_TRUE(waitUntil([&] { return expelled == 1; }));
    EXPECT_FALSE(icon_->isEmbedded());
}

TEST_F(XembedIconTest, LeavesTheTrayWhenItEnds) {
    dock(darkTray);
    ASSERT_TRUE(shows(expected(badgeWith("87"), 24, darkTray)));
    icon_.reset();
    EXPECT_TRUE(waitUntil([this] { return tray_->picture().pixelColor(12, 12) == darkTray; }));
}

TEST_F(XembedIconTest, SeesOneTrayFollowAnother) {
    dock(darkTray);
    const xcb_window_t first = knownTray_.window();
    icon_.reset();
    tray_ = std::make_unique<FakeTray>(screen_.display(), lightTray);
    EXPECT_TRUE(waitUntil([&] { return knownTray_.window() != XCB_WINDOW_NONE && knownTray_.window() != first; }));
}

TEST(X11Connection, IsNotThereWhereNoServerIs) {
    EXPECT_EQ(X11Connection::open(QByteArray()), nullptr);
    EXPECT_EQ(X11Connection::open(QByteArrayLiteral(":4711")), nullptr);
}

using X11ServerTest = VirtualScreenTest;

TEST_F(X11ServerTest, TellsOfTheEndOfTheServer) {
    VirtualScreen screen;
    const std::unique_ptr<X11Connection> connection = X11Connection::open(screen.display());
    ASSERT_NE(connection, nullptr);
    bool lost = false;
    QObject::connect(connection.get(), &X11Connection::lost, connection.get(), [&] { lost = true; });
    screen.kill();
    EXPECT_TRUE(waitUntil([&] { return lost; }));
}

} // namespace
} // namespace skylet
