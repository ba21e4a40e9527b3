#include "platform/linux/statusitem/drawing/StatusIcon.h"

#include "platform/linux/statusitem/drawing/SampleDisplays.h"
#include "platform/linux/statusitem/drawing/StatusColors.h"

#include <QFontDatabase>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <numeric>
#include <vector>

namespace skylet {
namespace {

using sample::allStatuses;

QImage paint(const StatusIcon& icon, int size) {
    return paintStatusIcon(icon, size, QFontDatabase::systemFont(QFontDatabase::GeneralFont))
        .convertToFormat(QImage::Format_ARGB32);
}

StatusIcon numbered(const char* number, Status status = Status::online) {
    return {Presentation::badge, status, QString::fromLatin1(number)};
}

StatusIcon unnumbered(Presentation presentation, Status status) {
    return {presentation, status};
}

bool isColoured(const QColor& pixel) {
    const auto [weakest, strongest] = std::minmax({pixel.red(), pixel.green(), pixel.blue()});
    return pixel.alpha() > 0 && strongest - weakest > 8;
}

bool isDigit(const QColor& pixel) {
    return pixel.alpha() > 200 && pixel.red() > 150 && pixel.blue() > 150;
}

/// The smallest rectangle around the pixels that `wanted` accepts.
template <typename Wanted>
QRect extent(const QImage& image, Wanted wanted) {
    QRect found;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (wanted(image.pixelColor(x, y))) {
                found |= QRect(x, y, 1, 1);
            }
        }
    }
    return found;
}

class StatusIconAtSize : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(PanelSizes, StatusIconAtSize, testing::Values(16, 22, 24, 32, 48, 64));

TEST_P(StatusIconAtSize, PaintsTheDotInTheShadeOfTheTable) {
    const int size = GetParam();
    for (const Status status : allStatuses) {
        const QRgb fill = dotShades(status).fill.rgba();
        EXPECT_EQ(paint(unnumbered(Presentation::label, status), size).pixel(size / 2, size / 2), fill);
        // Above the signs.
        EXPECT_EQ(paint(unnumbered(Presentation::badge, status), size).pixel(size / 2, size / 5), fill);
        EXPECT_EQ(paint(numbered("87", status), size).pixel(size / 2, size / 5), fill);
    }
}

TEST_P(StatusIconAtSize, ColoursNothingButTheDot) {
    const int size = GetParam();
    const QImage image = paint(numbered("87", Status::offline), size);
    const QRect coloured = extent(image, isColoured);
    EXPECT_LE(coloured.bottom(), size / 2);
    EXPECT_LE(std::abs(coloured.width() - coloured.height()), 1) << "not a round dot";
    EXPECT_LE(std::abs(coloured.left() - (size - 1 - coloured.right())), 1) << "the dot is not in the middle";
}

TEST_P(StatusIconAtSize, ShowsDigitsBeneathTheDot) {
    const int size = GetParam();
    const QImage image = paint(numbered("128"), size);
    const QRect digits = extent(image, isDigit);
    const QRect dot = extent(image, isColoured);
    EXPECT_GT(digits.top(), dot.bottom());
    EXPECT_GE(digits.height(), size * 2 / 5);
    EXPECT_GE(digits.width(), size / 2);
    EXPECT_NE(image, paint(numbered("129"), size));
}

TEST_P(StatusIconAtSize, CutsNothingAtTheBorder) {
    const int size = GetParam();
    const QRect inside(1, 1, size - 2, size - 2);
    for (const char* number : {"8", "87", "1.2s", "888", "2.8s", "10.5", "8888"}) {
        const QRect digits = extent(paint(numbered(number), size), isDigit);
        EXPECT_TRUE(inside.contains(digits)) << number << " at " << size;
        EXPECT_FALSE(digits.isEmpty()) << number;
    }
    for (const Presentation presentation : {Presentation::label, Presentation::badge}) {
        const QRect dot = extent(paint(unnumbered(presentation, Status::online), size),
                                 [](const QColor& pixel) { return pixel.alpha() > 0; });
        EXPECT_TRUE(inside.contains(dot));
    }
}

TEST_P(StatusIconAtSize, PutsTheNumberInTheMiddle) {
    const int size = GetParam();
    for (const char* number : {"8", "88", "888"}) {
        const QRect digits = extent(paint(numbered(number), size), isDigit);
        EXPECT_LE(std::abs(digits.left() - (size - 1 - digits.right())), 1) << number;
    }
}

TEST_P(StatusIconAtSize, DoesNotMoveADigitWhenAnotherOneChanges) {
    const int size = GetParam();
    const QImage one = paint(numbered("18"), size);
    const QImage other = paint(numbered("48"), size);
    EXPECT_NE(one, other);
    const QRect second(size / 2 + 1, 0, size / 2 - 1, size);
    EXPECT_EQ(one.copy(second), other.copy(second));
}

TEST_P(StatusIconAtSize, PaintsNumbersOfOneAndOfThreeDigitsEquallyHigh) {
    const int size = GetParam();
    EXPECT_EQ(extent(paint(numbered("8"), size), isDigit).height(),
              extent(paint(numbered("888"), size), isDigit).height());
}

TEST_P(StatusIconAtSize, SetsSecondsApartFromMillisecondsByTheirUnit) {
    const int size = GetParam();
    const QImage seconds = paint(numbered("2.8s"), size);
    const QRect number = extent(seconds, isDigit);
    EXPECT_NEAR(number.height(), extent(paint(numbered("288"), size), isDigit).height(), 1);
    // The small letter at the end: bright below, with nothing beside the digits' upper third.
    const int right = number.right() - number.width() / 8;
    int bright = 0;
    for (int x = right; x <= number.right(); ++x) {
        for (int y = number.top(); y <= number.bottom(); ++y) {
            const bool isBright = isDigit(seconds.pixelColor(x, y));
            bright += isBright ? 1 : 0;
            EXPECT_FALSE(isBright && y < number.top() + number.height() / 5) << x << ' ' << y;
        }
    }
    EXPECT_GE(bright, size / 8);
}

TEST_P(StatusIconAtSize, CanBeReadOnEveryPanelBecauseTheDigitsBringTheirOwnGround) {
    const int size = GetParam();
    const QImage image = paint(numbered("87"), size);
    const QRect digits = extent(image, isDigit);
    for (int y = digits.top(); y <= digits.bottom(); ++y) {
        const QColor beside = image.pixelColor(2, y);
        EXPECT_GT(beside.alpha(), 200);
        EXPECT_LT(beside.red(), 40);
    }
}

/// Which pixels in the middle of the dot, within its rim, differ from its colour in brightness.
std::vector<bool> signOn(Status status, int size) {
    const QImage image = paint(unnumbered(Presentation::badge, status), size);
    const int ground = qGray(dotShades(status).fill.rgb());
    std::vector<bool> sign;
    for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x) {
            const bool inside = std::hypot(x + 0.5 - size / 2.0, y + 0.5 - size / 2.0) < 0.29 * size;
            sign.push_back(inside && std::abs(qGray(image.pixel(x, y)) - ground) > 30);
        }
    }
    return sign;
}

std::ptrdiff_t differences(const std::vector<bool>& one, const std::vector<bool>& other) {
    return std::inner_product(one.begin(), one.end(), other.begin(), std::ptrdiff_t{0}, std::plus<>(),
                              std::not_equal_to<>());
}

TEST_P(StatusIconAtSize, TellsStatesApartWithoutColour) {
    const int size = GetParam();
    for (const Status one : sample::allColors) {
        for (const Status other : sample::allColors) {
            const auto different = differences(signOn(one, size), signOn(other, size));
            EXPECT_TRUE(one == other || different >= size / 4) << different;
        }
    }
}

TEST_P(StatusIconAtSize, ShowsTheSameSignForEverySpeedTestWhateverTheColour) {
    const std::vector<bool> sign = signOn(Status::online, GetParam());
    const auto inked = std::count(sign.begin(), sign.end(), true);
    EXPECT_GE(inked, GetParam() / 2);
    EXPECT_LE(differences(signOn(Status::slow, GetParam()), sign), inked / 2) << "more than its edges";
}

TEST(StatusIcon, MakesTheDotLargerWhereThereIsNoNumber) {
    EXPECT_GT(extent(paint(unnumbered(Presentation::badge, Status::offline), 22), isColoured).width(),
              extent(paint(numbered("87", Status::offline), 22), isColoured).width());
}

} // namespace
} // namespace skylet
