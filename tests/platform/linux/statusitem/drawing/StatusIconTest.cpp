#include "platform/linux/statusitem/drawing/StatusIcon.h"

#include "platform/linux/statusitem/drawing/SampleTitles.h"
#include "platform/linux/statusitem/drawing/StatusColors.h"

#include <QFontDatabase>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace skylet {
namespace {

using sample::allColors;

QImage paint(const StatusIcon& icon, int size) {
    return paintStatusIcon(icon, size, QFontDatabase::systemFont(QFontDatabase::GeneralFont))
        .convertToFormat(QImage::Format_ARGB32);
}

StatusIcon numbered(const char* number, DotColor color = DotColor::systemGreen) {
    return {StatusIcon::Form::badge, color, QString::fromLatin1(number), DotSign::none};
}

StatusIcon unnumbered(StatusIcon::Form form, DotColor color, DotSign sign = DotSign::none) {
    return {form, color, QString(), sign};
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
    for (const DotColor color : allColors) {
        const QRgb fill = dotShades(color).fill.rgba();
        EXPECT_EQ(paint(unnumbered(StatusIcon::Form::textDot, color), size).pixel(size / 2, size / 2), fill);
        EXPECT_EQ(paint(unnumbered(StatusIcon::Form::badge, color), size).pixel(size / 2, size / 2), fill);
        EXPECT_EQ(paint(numbered("87", color), size).pixel(size / 2, size / 5), fill);
    }
}

TEST_P(StatusIconAtSize, ColoursNothingButTheDot) {
    const int size = GetParam();
    const QImage image = paint(numbered("87", DotColor::systemRed), size);
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
    for (const char* number : {"8", "87", "1.2", "888", "10.5", "8888"}) {
        const QRect digits = extent(paint(numbered(number), size), isDigit);
        EXPECT_TRUE(inside.contains(digits)) << number << " at " << size;
        EXPECT_FALSE(digits.isEmpty()) << number;
    }
    for (const StatusIcon::Form form : {StatusIcon::Form::textDot, StatusIcon::Form::badge}) {
        const QRect dot = extent(paint(unnumbered(form, DotColor::systemGreen), size),
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

TEST_P(StatusIconAtSize, TellsStatesApartWithoutColour) {
    const int size = GetParam();
    const auto form = [size](DotSign sign) {
        return paint(unnumbered(StatusIcon::Form::badge, DotColor::systemGray, sign), size);
    };
    const std::array forms = {form(DotSign::none), form(DotSign::waiting), form(DotSign::cross), form(DotSign::pause)};
    for (std::size_t one = 0; one < forms.size(); ++one) {
        for (std::size_t other = one + 1; other < forms.size(); ++other) {
            int different = 0;
            for (int y = 0; y < size; ++y) {
                for (int x = 0; x < size; ++x) {
                    different += std::abs(qGray(forms[one].pixel(x, y)) - qGray(forms[other].pixel(x, y))) > 30 ? 1 : 0;
                }
            }
            EXPECT_GE(different, size / 4) << one << " and " << other;
        }
    }
}

TEST(StatusIcon, MakesTheDotLargerWhereThereIsNoNumber) {
    EXPECT_GT(extent(paint(unnumbered(StatusIcon::Form::badge, DotColor::systemRed), 22), isColoured).width(),
              extent(paint(numbered("87", DotColor::systemRed), 22), isColoured).width());
}

} // namespace
} // namespace skylet
