#include "support/QStringPrinting.h"
#include "ui/Controls.h"
#include "ui/Fonts.h"
#include "ui/Picture.h"
#include "ui/PlainWindow.h"
#include "ui/SemanticColors.h"

#include <QApplication>
#include <QFontMetricsF>
#include <QLabel>
#include <QPalette>
#include <QProxyStyle>
#include <QScreen>

#include <gtest/gtest.h>

namespace skylet {
namespace {

TEST(FontsTest, RoundToWholePixels) {
    EXPECT_EQ(systemFont(12.5).pixelSize(), 13);
    EXPECT_EQ(systemFont(10.5).pixelSize(), 11);
    EXPECT_EQ(systemFont(9, QFont::Bold).weight(), QFont::Bold);
    EXPECT_EQ(systemFont(9).family(), QApplication::font().family());
}

TEST(PlainWindowTest, PlacesWidgetsFromItsBottomLeftCorner) {
    PlainWindow window(QString(), QSize(200, 100));
    auto* label = new QLabel(QStringLiteral("short"));
    window.place(label, {10, 60, 100, 30});
    EXPECT_EQ(window.size(), QSize(200, 100));
    EXPECT_EQ(label->parentWidget(), &window);
    EXPECT_EQ(label->geometry(), QRect(10, 10, 100, 30));
}

TEST(PlainWindowTest, GrowsForATextAndMovesWhatIsBeneath) {
    PlainWindow window(QString(), QSize(120, 100));
    auto* text = new TextLabel(QStringLiteral("text"), QStringLiteral("many words that take more than a single line"),
                               systemFont(12));
    auto* beneath = new QLabel;
    window.place(text, {10, 70, 100, 20});
    window.place(beneath, {10, 10, 100, 20});
    const int growth = window.height() - 100;
    EXPECT_GT(growth, 0);
    EXPECT_GE(text->height(), text->heightForWidth(100));
    EXPECT_EQ(text->geometry(), QRect(10, 10, 100, 20 + growth));
    EXPECT_EQ(beneath->geometry(), QRect(10, 70 + growth, 100, 20));
}

TEST(PlainWindowTest, ShrinksOnAScreenThatIsTooSmallAndKeepsItsTitleBarThere) {
    const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
    PlainWindow window(QString(), screen.size() * 1.2);
    auto* label = new TextLabel(QStringLiteral("text"), QStringLiteral("text"), systemFont(20));
    window.place(label, {0, 0, 100, 50});
    window.bringToFront();
    EXPECT_LE(window.width(), screen.width());
    EXPECT_LE(window.height(), screen.height() - 40);
    EXPECT_GE(window.geometry().y(), screen.y() + 40);
    EXPECT_GT(window.height(), screen.height() / 2);
    EXPECT_LT(label->font().pixelSize(), 20);
    EXPECT_NEAR(label->width(), 100.0 * window.width() / (screen.width() * 1.2), 1);
}

TEST(PlainWindowTest, GrowsForTheIndicatorOfACheckBox) {
    class LargeIndicators : public QProxyStyle {
      public:
        int pixelMetric(PixelMetric metric, const QStyleOption* option, const QWidget* widget) const override {
            return metric == PM_IndicatorHeight ? 30 : QProxyStyle::pixelMetric(metric, option, widget);
        }
    };
    LargeIndicators style;
    auto* box = new CheckBox(QStringLiteral("text"));
    box->setStyle(&style);
    PlainWindow window(QString(), QSize(120, 100));
    window.place(box, {10, 60, 100, 22});
    EXPECT_GE(box->height(), 30);
}

TEST(TextLabelTest, EndsEachWrappedLineAtItsMargin) {
    TextLabel label(QString(), QStringLiteral("לא רואים אותה? פנו מקום דרך הגדרות המערכת ← מרכז הבקרה."),
                    systemFont(13), Qt::AlignLeft);
    label.resize(300, 60);
    const test::Picture picture(label);
    const QColor background = picture.at(QPointF(150, 58));
    const double line = QFontMetricsF(label.font()).height();
    for (int i = 0; i < 2; ++i) {
        const QRectF drawn = picture.extentOtherThan(QRectF(0, i * line, 300, line), background);
        ASSERT_FALSE(drawn.isNull());
        EXPECT_NEAR(drawn.right(), 300, 2.5) << "line " << i;
    }
}

TEST(TextLabelTest, RunsFromRightToLeftWhereAnythingInItDoes) {
    const auto direction = [](const char16_t* text) {
        return TextLabel(QString(), QString::fromUtf16(text), systemFont(12)).layoutDirection();
    };
    EXPECT_EQ(direction(u"Skylet"), Qt::LeftToRight);
    EXPECT_EQ(direction(u"גרסה 1.0"), Qt::RightToLeft);
    EXPECT_EQ(direction(u"Skylet נמצא עכשיו"), Qt::RightToLeft);
}

TEST(SemanticColorsTest, MeasureContrastAsTheGuidelinesDo) {
    EXPECT_NEAR(contrast(Qt::white, Qt::black), 21, 0.01);
    EXPECT_NEAR(contrast(Qt::black, Qt::white), 21, 0.01);
    EXPECT_NEAR(contrast(QColor(0x77, 0x77, 0x77), Qt::white), 4.48, 0.01);
    EXPECT_EQ(contrast(Qt::red, Qt::red), 1);
}

TEST(SemanticColorsTest, RankTheTextsAndKeepThemLegible) {
    for (const QColor& window : {QColor(0xef, 0xef, 0xef), QColor(0x31, 0x36, 0x3b), QColor(Qt::white)}) {
        const QPalette palette(window);
        const SemanticColors colors = semanticColors(palette);
        EXPECT_EQ(colors.label, palette.color(QPalette::WindowText));
        EXPECT_GT(contrast(colors.label, window), contrast(colors.secondaryLabel, window));
        EXPECT_GT(contrast(colors.secondaryLabel, window), contrast(colors.tertiaryLabel, window));
        EXPECT_GE(contrast(colors.tertiaryLabel, window), 4.5);
    }
}

TEST(SemanticColorsTest, TakeTheUsersAccentWhereItIsLegible) {
    QPalette palette{QColor(Qt::white)};
    palette.setColor(QPalette::Highlight, QColor(0x10, 0x40, 0x90));
    EXPECT_EQ(semanticColors(palette).controlAccent, QColor(0x10, 0x40, 0x90));
    palette.setColor(QPalette::Highlight, Qt::yellow);
    const QColor accent = semanticColors(palette).controlAccent;
    EXPECT_GE(contrast(accent, Qt::white), 4.5);
    EXPECT_LT(contrast(accent, Qt::white), 6);
}

} // namespace
} // namespace skylet
