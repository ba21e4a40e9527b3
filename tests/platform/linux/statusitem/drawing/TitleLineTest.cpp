#include "platform/linux/statusitem/drawing/TitleLine.h"

#include "platform/linux/statusitem/drawing/SampleDisplays.h"
#include "platform/linux/statusitem/drawing/StatusColors.h"
#include "ui/SemanticColors.h"

#include <QFontDatabase>
#include <QPaintEngine>
#include <QPainter>

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace skylet {
namespace {

using sample::allColors;

QFont titleFont() {
    return QFontDatabase::systemFont(QFontDatabase::GeneralFont);
}

QImage plate(const StatusDisplay& display, int height = 22) {
    return paintTitlePlate(display.status, display.title, height, titleFont());
}

/// As it looks on a panel of that colour.
QImage onPanel(const QImage& image, const QColor& panel) {
    QImage seen(image.size(), QImage::Format_RGB32);
    seen.fill(panel);
    QPainter(&seen).drawImage(0, 0, image);
    return seen;
}

bool hasColour(QRgb pixel) {
    const auto [weakest, strongest] = std::minmax({qRed(pixel), qGreen(pixel), qBlue(pixel)});
    return strongest - weakest > 8;
}

template <typename Wanted>
QRect boxAround(const QImage& image, Wanted wanted) {
    QRect found;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (wanted(image.pixel(x, y))) {
                found |= QRect(x, y, 1, 1);
            }
        }
    }
    return found;
}

QRect letters(const QImage& image) {
    return boxAround(image, [](QRgb pixel) { return qAlpha(pixel) > 240 && qBlue(pixel) > 170; });
}

/// Takes down what is painted instead of painting it, so that fonts count as they are asked for and not as the machine
/// has them.
class PaintRecord : public QPaintDevice, public QPaintEngine {
  public:
    struct Text {
        QString text;
        int size = 0;
        int weight = 0;
        double baseline = 0;
    };

    PaintRecord() : QPaintEngine(AllFeatures) {}

    Text find(const char* text) const {
        const auto found = std::find_if(texts.cbegin(), texts.cend(), [text](const Text& one) {
            return one.text.trimmed() == QString::fromUtf8(text);
        });
        EXPECT_NE(found, texts.cend()) << text;
        return found == texts.cend() ? Text() : *found;
    }

    std::vector<Text> texts;
    std::vector<QRectF> ellipses;

    bool begin(QPaintDevice* /*device*/) override { return true; }
    bool end() override { return true; }
    void updateState(const QPaintEngineState& /*state*/) override {}
    void drawPixmap(const QRectF& /*area*/, const QPixmap& /*pixmap*/, const QRectF& /*source*/) override {}
    void drawEllipse(const QRectF& area) override { ellipses.push_back(area); }
    void drawTextItem(const QPointF& place, const QTextItem& item) override {
        texts.push_back({item.text(), item.font().pixelSize(), item.font().weight(), place.y()});
    }
    Type type() const override { return User; }
    QPaintEngine* paintEngine() const override { return const_cast<PaintRecord*>(this); }

  protected:
    int metric(PaintDeviceMetric metric) const override {
        switch (metric) {
        case PdmWidth:
        case PdmHeight:
            return 1000;
        case PdmDpiX:
        case PdmDpiY:
        case PdmPhysicalDpiX:
        case PdmPhysicalDpiY:
            return 96;
        case PdmDepth:
            return 32;
        case PdmDevicePixelRatio:
            return 1;
        case PdmDevicePixelRatioScaled:
            return static_cast<int>(devicePixelRatioFScale());
        default:
            return 0;
        }
    }
};

TEST(TitlePlate, ColoursTheDotAlone) {
    for (const Status status : allColors) {
        const QImage image = plate(sample::stateWord(status, QStringLiteral("Offline")));
        EXPECT_EQ(image.pixel(11, 11), dotShades(status).fill.rgb());
        const QRect coloured = boxAround(image, hasColour);
        EXPECT_LE(coloured.right(), 16);
        EXPECT_GT(letters(image).right(), 40);
    }
}

TEST(TitlePlate, CanBeReadOnDarkAndOnLightPanels) {
    for (const QColor& panel : {QColor(Qt::white), QColor(Qt::black), QColor(128, 128, 128), QColor(40, 44, 52)}) {
        const QImage seen = onPanel(plate(sample::fast()), panel);
        const QRect text = letters(plate(sample::fast()));
        double brightest = 0;
        for (int y = text.top(); y <= text.bottom(); ++y) {
            for (int x = text.left(); x <= text.right(); ++x) {
                brightest = std::max(brightest, contrast(seen.pixelColor(x, y), seen.pixelColor(3, 11)));
            }
        }
        // What WCAG 2.1 (1.4.3) asks of text, and 1.4.11 of graphics.
        EXPECT_GE(brightest, 4.5) << qPrintable(panel.name());
        for (const Status status : allColors) {
            EXPECT_GE(contrast(dotShades(status).fill, seen.pixelColor(3, 11)), 3) << qPrintable(panel.name());
        }
    }
}

TEST(TitlePlate, HasFontsOfTheSameSizeOnEveryPanelAndTwiceThatSizeForScale2) {
    const QSize usual = letters(plate(sample::fast(), 22)).size();
    for (const int height : {16, 24, 28, 32}) {
        EXPECT_EQ(letters(plate(sample::fast(), height)).size(), usual) << height;
    }
    for (const int height : {44, 48}) {
        const QSize twice = letters(plate(sample::fast(), height)).size();
        EXPECT_NEAR(twice.width(), 2 * usual.width(), 6);
        EXPECT_NEAR(twice.height(), 2 * usual.height(), 2);
    }
}

TEST(TitlePlate, CutsNothingAtTheTopOrTheBottom) {
    for (const int height : {16, 22, 24, 28, 32, 44}) {
        const QImage image = plate(sample::hebrew(), height);
        EXPECT_EQ(image.height(), height);
        EXPECT_TRUE(QRect(1, 1, image.width() - 2, height - 2).contains(letters(image))) << height;
    }
}

TEST(TitlePlate, SetsTheUnitSmallerAndRaised) {
    const StatusDisplay usual = sample::stateWord(Status::online, QStringLiteral("h"));
    StatusDisplay small = usual;
    small.title[0].font = sample::unitFont;
    StatusDisplay raised = small;
    raised.title[0].baselineOffset = 0.5;
    const QRect large = letters(plate(usual));
    EXPECT_LT(letters(plate(small)).height(), large.height());
    EXPECT_EQ(letters(plate(raised)).bottom(), letters(plate(small)).bottom() - 1);
}

TEST(TitlePlate, DoesNotMoveWhenADigitChanges) {
    const QImage one = plate(sample::responsive(QStringLiteral("111")));
    const QImage other = plate(sample::responsive(QStringLiteral("848")));
    ASSERT_EQ(one.size(), other.size());
    const int afterNumber = 60;
    const QRect rest(afterNumber, 0, one.width() - afterNumber, one.height());
    EXPECT_EQ(one.copy(rest), other.copy(rest));
    EXPECT_NE(one, other);
}

class TitleLineAtScale : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Scales, TitleLineAtScale, testing::Values(1, 2));

TEST_P(TitleLineAtScale, SetsEachSegmentAsTheTitleAsksForIt) {
    const int scale = GetParam();
    const StatusTitle title = {{QStringLiteral("word"), sample::numberFont},
                               {QStringLiteral("ms"), sample::unitFont, 2},
                               {QStringLiteral("banner"), sample::bannerFont}};
    PaintRecord record;
    {
        QPainter painter(&record);
        TitleLine(Status::online, title, titleFont(), scale).paint(painter, 0, 40);
    }
    const PaintRecord::Text word = record.find("word");
    EXPECT_EQ(word.size, 12 * scale);
    EXPECT_EQ(word.weight, QFont::Normal);
    const PaintRecord::Text unit = record.find("ms");
    EXPECT_EQ(unit.size, 9 * scale);
    EXPECT_EQ(unit.weight, QFont::Medium);
    EXPECT_EQ(unit.baseline, word.baseline - 2 * scale);
    const PaintRecord::Text banner = record.find("banner");
    EXPECT_EQ(banner.size, 12 * scale);
    EXPECT_EQ(banner.weight, QFont::Medium);
    EXPECT_EQ(banner.baseline, word.baseline);
    ASSERT_FALSE(record.ellipses.empty());
    EXPECT_EQ(record.ellipses.front(), QRectF(0, 40 - 5 * scale, 10 * scale, 10 * scale));
}

TEST(TitleLine, GivesEachDigitAsMuchRoomAsTheWidestHas) {
    // A family whose digits differ in width would show it; here the cells add up at least.
    const auto width = [](const char* number) {
        const StatusTitle title = {{QString::fromLatin1(number), sample::numberFont}};
        return TitleLine(Status::online, title, titleFont(), 1).width() -
               TitleLine(Status::online, {}, titleFont(), 1).width();
    };
    EXPECT_DOUBLE_EQ(width("111"), width("888"));
    EXPECT_NEAR(width("888"), 3 * width("8"), 0.01);
    EXPECT_NEAR(width("1111"), 4 * width("8"), 0.01);
}

TEST(TitlePlate, KeepsThePartsFromLeftToRightAroundHebrew) {
    const QImage hebrew = plate(sample::hebrew());
    const QImage english = plate(sample::fast());
    // The number and its unit on the left, the traffic on the right, whatever stands between.
    const QRect start(0, 0, 50, 22);
    EXPECT_EQ(hebrew.copy(start), english.copy(start));
    const auto end = [](const QImage& image) { return image.copy(image.width() - 80, 0, 74, 22); };
    EXPECT_EQ(end(hebrew), end(english));
}

TEST(TitlePlate, KeepsTheDotsOfAHebrewWordAtItsEnd) {
    const QImage image = plate(sample::stateWord(Status::checking, QStringLiteral("בודק…")));
    // From right to left: the first letter stands on the right, where dots would be three pixels high at most.
    const QImage rightmost = image.copy(letters(image).right() - 3, 0, 4, image.height());
    EXPECT_GT(letters(rightmost).height(), 4);
}

TEST(TitlePlate, CutsATitleThatIsTooWideForAnyPanel) {
    const QImage image = plate(sample::stateWord(Status::offline, QString(400, u'W')));
    EXPECT_EQ(image.width(), 640);
    EXPECT_EQ(image.height(), 22);
}

TEST(TitlePlate, IsAsWideForAShorterTitleAsTheRoomThatIsKept) {
    const QFont font = titleFont();
    const double room = plateTitleWidth(sample::fast().title, font);
    for (const int height : {22, 44}) {
        const QImage wide = paintTitlePlate(Status::online, sample::fast().title, height, font, room);
        const QImage shorter = paintTitlePlate(Status::offline, sample::offline().title, height, font, room);
        EXPECT_EQ(shorter.size(), wide.size());
        EXPECT_EQ(letters(shorter), letters(plate(sample::offline(), height))) << "the title stays where it was";
        EXPECT_LT(wide.width() - plate(sample::fast(), height).width(), 10) << "no more than it needs";
    }
}

TEST(TitlePlate, IsTheDotAloneWhereThereIsNoTitle) {
    const QImage image = plate({});
    EXPECT_EQ(image.width(), 22);
    EXPECT_TRUE(letters(image).isEmpty());
}

} // namespace
} // namespace skylet
