#include "platform/linux/desktop/ApplicationIcon.h"

#include <QImage>
#include <QPainter>
#include <QPixmap>

#include <gtest/gtest.h>

namespace skylet {
namespace {

class ApplicationIconAtSize : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Sizes, ApplicationIconAtSize, testing::Values(16, 32, 48, 80, 100, 200));

TEST_P(ApplicationIconAtSize, IsATileWithAGreenLight) {
    const int size = GetParam();
    const QImage image = applicationIcon().pixmap(QSize(size, size), 1.0).toImage();
    ASSERT_EQ(image.size(), QSize(size, size));
    EXPECT_EQ(image.pixelColor(0, 0).alpha(), 0) << "the corners are round";
    EXPECT_EQ(image.pixelColor(size - 1, size - 1).alpha(), 0);
    const QColor light = image.pixelColor(size / 2, size * 44 / 100);
    EXPECT_GT(light.green(), light.red() + 60);
    EXPECT_GT(light.green(), light.blue() + 60);
    const QColor sky = image.pixelColor(size / 2, size / 20 + 1);
    EXPECT_GT(sky.alpha(), 240);
    EXPECT_GT(sky.blue(), sky.red());
    const QColor ground = image.pixelColor(size / 2, size - 2);
    EXPECT_LT(ground.lightness(), sky.lightness());
}

TEST(ApplicationIcon, IsDrawnAnewForScreensOfScale2) {
    const QPixmap pixmap = applicationIcon().pixmap(QSize(16, 16), 2.0);
    EXPECT_EQ(pixmap.size(), QSize(32, 32));
    const QImage enlarged = applicationIcon().pixmap(QSize(16, 16), 1.0).toImage().scaled(32, 32);
    EXPECT_NE(pixmap.toImage(), enlarged);
    EXPECT_EQ(pixmap.toImage(), applicationIcon().pixmap(QSize(32, 32), 1.0).toImage());
}

TEST(ApplicationIcon, StaysASquareInTheMiddleOfAnyArea) {
    QImage image(200, 100, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    {
        QPainter painter(&image);
        paintApplicationIcon(painter, QRectF(0, 0, 200, 100));
    }
    EXPECT_EQ(image.pixelColor(40, 50).alpha(), 0);
    EXPECT_EQ(image.pixelColor(52, 50).alpha(), 255);
    EXPECT_EQ(image.pixelColor(147, 50).alpha(), 255);
    EXPECT_EQ(image.pixelColor(160, 50).alpha(), 0);
}

TEST(ApplicationIcon, TakesAnEmptyArea) {
    QImage image(4, 4, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    paintApplicationIcon(painter, QRectF());
    EXPECT_EQ(image.pixelColor(1, 1).alpha(), 0);
}

} // namespace
} // namespace skylet
