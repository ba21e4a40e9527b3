#include "platform/linux/statusitem/drawing/ItemAppearance.h"

#include "platform/linux/statusitem/drawing/SampleTitles.h"
#include "support/QStringPrinting.h"

#include <gtest/gtest.h>

namespace skylet {
namespace {

ItemAppearance label(const StatusTitle& title) {
    return appearance(Presentation::label, title, QStringLiteral("the tooltip"));
}

ItemAppearance badge(const StatusTitle& title) {
    return appearance(Presentation::badge, title, QStringLiteral("the tooltip"));
}

TEST(LabelAppearance, SetsAllThatFollowsTheDotWithoutTheGapAfterIt) {
    EXPECT_EQ(label(sample::fast()).label, QStringLiteral("87 ms  Responsive  ↓12.4M ↑210K"));
    EXPECT_EQ(label(sample::offline()).label, QStringLiteral("Offline"));
}

TEST(LabelAppearance, LeavesTheDotAloneInTheIcon) {
    const ItemAppearance slow = label(sample::slow());
    EXPECT_EQ(slow.icon.form, StatusIcon::Form::textDot);
    EXPECT_EQ(slow.icon.color, DotColor::systemYellow);
    EXPECT_TRUE(slow.icon.number.isEmpty());
    EXPECT_EQ(label(sample::offline()).icon.sign, DotSign::none);
}

TEST(LabelAppearance, KeepsThePartsFromLeftToRightAroundHebrew) {
    const StatusTitle title =
        sample::latency(DotColor::systemGreen, QStringLiteral("87"), QStringLiteral("ms"), QStringLiteral("מגיב מהר"));
    EXPECT_EQ(label(title).label, QStringLiteral("\u200E87 ms  מגיב מהר\u200E  ↓12.4M ↑210K"));
}

TEST(LabelAppearance, HasAGuideAsWideForEveryNumberOfTheSameLength) {
    const QString guide = label(sample::fast()).labelGuide;
    EXPECT_EQ(guide, QStringLiteral("00 ms  Responsive  ↓00.0M ↑000K"));
    const StatusTitle other = sample::latency(DotColor::systemGreen, QStringLiteral("61"), QStringLiteral("ms"),
                                              QStringLiteral("Responsive"));
    EXPECT_EQ(label(other).labelGuide, guide);
}

TEST(LabelAppearance, HasATooltipThatDoesNotChangeWithTheNumber) {
    const ItemAppearance fast = label(sample::fast());
    const ItemAppearance slow = label(sample::slow());
    EXPECT_EQ(fast.toolTipTitle, QStringLiteral("the tooltip"));
    EXPECT_EQ(fast.toolTipTitle, slow.toolTipTitle);
    EXPECT_EQ(fast.toolTipText, slow.toolTipText);
}

TEST(WideAppearance, PutsTheWholeTitleIntoTheIconAndNoneIntoTheTooltip) {
    const ItemAppearance wide = appearance(Presentation::wide, sample::fast(), QStringLiteral("the tooltip"));
    EXPECT_EQ(wide.icon.form, StatusIcon::Form::wide);
    EXPECT_EQ(wide.icon.title, sample::fast());
    EXPECT_TRUE(wide.label.isEmpty());
    EXPECT_EQ(wide.toolTipTitle, QStringLiteral("the tooltip"));
    EXPECT_TRUE(wide.toolTipText.isEmpty());
}

TEST(BadgeAppearance, TakesTheFigureAndNoTextBesideTheIcon) {
    const ItemAppearance fast = badge(sample::fast());
    EXPECT_EQ(fast.icon.form, StatusIcon::Form::badge);
    EXPECT_EQ(fast.icon.color, DotColor::systemGreen);
    EXPECT_EQ(fast.icon.number, QStringLiteral("87"));
    EXPECT_TRUE(fast.label.isEmpty());
    EXPECT_TRUE(fast.labelGuide.isEmpty());
    EXPECT_EQ(badge(sample::slow()).icon.number, QStringLiteral("1.2"));
}

TEST(BadgeAppearance, MarksTheStatesThatHaveNoNumber) {
    EXPECT_EQ(badge(sample::checking()).icon.sign, DotSign::waiting);
    EXPECT_EQ(badge(sample::offline()).icon.sign, DotSign::cross);
    EXPECT_EQ(badge(sample::paused()).icon.sign, DotSign::pause);
    EXPECT_TRUE(badge(sample::offline()).icon.number.isEmpty());
    EXPECT_EQ(badge(sample::fast()).icon.sign, DotSign::none);
    EXPECT_EQ(badge(sample::slow()).icon.sign, DotSign::none);
}

TEST(BadgeAppearance, ShowsThePlainDotWhileABannerStandsInThePlaceOfTheNumber) {
    for (const DotColor color : {DotColor::systemGreen, DotColor::systemYellow}) {
        const ItemAppearance result = badge(sample::banner(color));
        EXPECT_EQ(result.icon.color, color);
        EXPECT_TRUE(result.icon.number.isEmpty());
        EXPECT_EQ(result.icon.sign, DotSign::none);
        EXPECT_EQ(result.toolTipTitle, QStringLiteral("↓ 48.2 Mbps  ↑ 11.0 Mbps"));
    }
}

TEST(BadgeAppearance, PutsTheTitleAboveTheTooltip) {
    const ItemAppearance fast = badge(sample::fast());
    EXPECT_EQ(fast.toolTipTitle, QStringLiteral("87 ms  Responsive  ↓12.4M ↑210K"));
    EXPECT_EQ(fast.toolTipText, QStringLiteral("the tooltip"));
}

TEST(ItemAppearance, TakesATitleThatIsEmptyOrOfTheDotAlone) {
    for (const Presentation presentation : {Presentation::label, Presentation::wide, Presentation::badge}) {
        const ItemAppearance nothing = appearance(presentation, {}, {});
        EXPECT_EQ(nothing.icon.color, DotColor::systemGray);
        EXPECT_TRUE(nothing.label.isEmpty());
        const ItemAppearance dot = appearance(presentation, {sample::dot(DotColor::systemRed)}, {});
        EXPECT_EQ(dot.icon.color, DotColor::systemRed);
        EXPECT_TRUE(dot.icon.number.isEmpty());
    }
}

} // namespace
} // namespace skylet
