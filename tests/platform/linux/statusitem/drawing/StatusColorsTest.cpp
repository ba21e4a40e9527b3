#include "platform/linux/statusitem/drawing/StatusColors.h"

#include "platform/linux/statusitem/drawing/SampleDisplays.h"
#include "ui/SemanticColors.h"

#include <gtest/gtest.h>

#include <array>

namespace skylet {
namespace {

using sample::allColors;

// The usual shades of dark and of light panels (GNOME black, Xfce, Breeze Dark; Adwaita, Xfce, white).
const std::array darkPanels = {QColor(0, 0, 0), QColor(0x35, 0x35, 0x35), QColor(0x31, 0x36, 0x3b)};
const std::array lightPanels = {QColor(0xeb, 0xeb, 0xeb), QColor(0xf5, 0xf4, 0xf2), QColor(255, 255, 255)};

TEST(StatusColors, FillsStandOutFromDarkPanels) {
    for (const Status status : allColors) {
        for (const QColor& panel : darkPanels) {
            EXPECT_GE(contrast(dotShades(status).fill, panel), 3.0) << qPrintable(panel.name());
        }
    }
}

TEST(StatusColors, RimsStandOutFromLightPanels) {
    for (const Status status : allColors) {
        for (const QColor& panel : lightPanels) {
            EXPECT_GE(contrast(dotShades(status).rim, panel), 3.0) << qPrintable(panel.name());
        }
    }
}

TEST(StatusColors, SignsStandOutFromTheDotsThatBearThem) {
    for (const Status status : sample::allStatuses) {
        EXPECT_GE(contrast(dotShades(status).sign, dotShades(status).fill), 3.0);
    }
}

TEST(StatusColors, DifferInBrightnessToo) {
    for (std::size_t one = 0; one < allColors.size(); ++one) {
        for (std::size_t other = one + 1; other < allColors.size(); ++other) {
            EXPECT_GE(contrast(dotShades(allColors[one]).fill, dotShades(allColors[other]).fill), 1.2);
        }
    }
}

TEST(StatusColors, AreGreenYellowAndRed) {
    const auto hue = [](Status status) { return dotShades(status).fill.hsvHue(); };
    EXPECT_NEAR(hue(Status::online), 120, 30);
    EXPECT_NEAR(hue(Status::checking), 45, 15);
    EXPECT_EQ(dotShades(Status::slow), dotShades(Status::checking));
    EXPECT_NEAR(hue(Status::offline), 0, 10);
}

TEST(StatusColors, GrayIsTheOnlyOneWithoutAHue) {
    for (const Status status : allColors) {
        const QColor fill = dotShades(status).fill;
        EXPECT_EQ(fill.hsvSaturation() < 20, status == Status::paused);
    }
}

} // namespace
} // namespace skylet
