#include "platform/linux/desktop/ApplicationIcon.h"

#include <QFile>
#include <QImage>
#include <QImageReader>
#include <QPainter>
#include <QProcess>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <ostream>

namespace skylet {
namespace {

/// One of those who draw the installed icons on users' desktops.
struct Renderer {
    const char* name;
    /// Empty optional: it is not on this machine. A null image: it cannot read the file.
    std::optional<QImage> (*draw)(const QString& file, int side);
};

void PrintTo(const Renderer& renderer, std::ostream* out) {
    *out << renderer.name;
}

/// GNOME, Xfce, MATE and Cinnamon.
std::optional<QImage> drawWithLibrsvg(const QString& file, int side) {
    const QString program = QStringLiteral(RSVG_CONVERT);
    if (!QFile::exists(program)) {
        return std::nullopt;
    }
    QProcess convert;
    const QString length = QString::number(side);
    convert.start(program, {QStringLiteral("--width"), length, QStringLiteral("--height"), length, file});
    convert.waitForFinished();
    return QImage::fromData(convert.readAllStandardOutput(), "PNG");
}

/// Plasma and LXQt.
std::optional<QImage> drawWithQt(const QString& file, int side) {
    if (!QImageReader::supportedImageFormats().contains("svg")) {
        return std::nullopt;
    }
    QImageReader reader(file, "svg");
    reader.setScaledSize(QSize(side, side));
    return reader.read();
}

QString iconFile(const char* name) {
    return QStringLiteral(SKYLET_ICONS "/") + QString::fromLatin1(name);
}

/// How the icon looks on a grey ground, which shows differences of colour and of coverage alike.
QImage onGray(const QImage& icon) {
    QImage result(icon.size(), QImage::Format_RGB32);
    result.fill(Qt::gray);
    QPainter painter(&result);
    painter.drawImage(0, 0, icon);
    return result;
}

struct Difference {
    /// Steps of 255, over all channels of all pixels.
    double mean = 0;
    /// Pixels with a channel that is more than 24 steps away.
    int farOff = 0;
};

Difference difference(const QImage& first, const QImage& second) {
    constexpr int farOffSteps = 24;
    const QImage left = onGray(first);
    const QImage right = onGray(second);
    const double pixels = left.width() * left.height();
    Difference result;
    for (int y = 0; y < left.height(); ++y) {
        for (int x = 0; x < left.width(); ++x) {
            const QColor a = left.pixelColor(x, y);
            const QColor b = right.pixelColor(x, y);
            const int red = std::abs(a.red() - b.red());
            const int green = std::abs(a.green() - b.green());
            const int blue = std::abs(a.blue() - b.blue());
            result.mean += (red + green + blue) / 3.0 / pixels;
            result.farOff += std::max({red, green, blue}) > farOffSteps ? 1 : 0;
        }
    }
    return result;
}

class InstalledIcon : public testing::TestWithParam<Renderer> {
  protected:
    QImage draw(const char* name, int side) {
        const auto image = GetParam().draw(iconFile(name), side);
        return image.value_or(QImage());
    }

    void SetUp() override {
        if (!GetParam().draw(iconFile("com.vorn.skylet.svg"), 16)) {
            GTEST_SKIP() << "not on this machine: " << GetParam().name;
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Renderers, InstalledIcon,
                         testing::Values(Renderer{"librsvg", drawWithLibrsvg}, Renderer{"Qt", drawWithQt}),
                         [](const auto& tested) { return tested.param.name; });

TEST_P(InstalledIcon, LooksLikeTheOneThatTheProgramPaints) {
    // Both smooth their edges in their own ways, which is 18 pixels at 256; the smallest star would be 10 more.
    constexpr int withoutAStar = 24;
    for (const int side : {48, 64, 128, 256}) {
        const QImage drawn = draw("com.vorn.skylet.svg", side);
        const QImage painted = applicationIcon().pixmap(QSize(side, side), 1).toImage();
        ASSERT_EQ(drawn.size(), painted.size());
        const Difference found = difference(drawn, painted);
        EXPECT_LT(found.mean, 0.4) << "at " << side;
        EXPECT_LT(found.farOff, withoutAStar) << "at " << side;
    }
}

TEST_P(InstalledIcon, HasASymbolOfOneColourForTheDesktopToReplace) {
    const QImage symbol = draw("com.vorn.skylet-symbolic.svg", 64).convertToFormat(QImage::Format_ARGB32);
    ASSERT_EQ(symbol.size(), QSize(64, 64));
    int filled = 0;
    for (int y = 0; y < symbol.height(); ++y) {
        for (int x = 0; x < symbol.width(); ++x) {
            if (symbol.pixelColor(x, y).alpha() == 255) {
                EXPECT_EQ(symbol.pixelColor(x, y), QColor(0x2e, 0x34, 0x36));
                ++filled;
            }
        }
    }
    EXPECT_GT(filled, 64 * 64 / 6);
    // From top to bottom: the glow, the light and the ground, with nothing between them.
    EXPECT_EQ(symbol.pixelColor(32, 8).alpha(), 255);
    EXPECT_EQ(symbol.pixelColor(32, 16).alpha(), 0);
    EXPECT_EQ(symbol.pixelColor(32, 32).alpha(), 255);
    EXPECT_EQ(symbol.pixelColor(32, 45).alpha(), 0);
    EXPECT_EQ(symbol.pixelColor(32, 52).alpha(), 255);
    EXPECT_EQ(symbol.pixelColor(0, 0).alpha(), 0);
}

} // namespace
} // namespace skylet
