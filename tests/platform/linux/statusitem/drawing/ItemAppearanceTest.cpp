#include "platform/linux/statusitem/drawing/ItemAppearance.h"

#include "platform/linux/statusitem/drawing/SampleDisplays.h"
#include "support/QStringPrinting.h"

#include <gtest/gtest.h>

namespace skylet {
namespace {

ItemAppearance label(const StatusDisplay& display) {
    return appearance(Presentation::label, display);
}

ItemAppearance badge(const StatusDisplay& display) {
    return appearance(Presentation::badge, display);
}

TEST(LabelAppearance, SetsTheTitleWithoutTheGapBeforeIt) {
    EXPECT_EQ(label(sample::fast()).label, QStringLiteral("87 ms  Responsive  ↓12.4M ↑210K"));
    EXPECT_EQ(label(sample::offline()).label, QStringLiteral("Offline"));
}

TEST(LabelAppearance, LeavesTheDotAloneInTheIcon) {
    const StatusIcon icon = label(sample::slow()).icon;
    EXPECT_EQ(icon.presentation, Presentation::label);
    EXPECT_EQ(icon.status, Status::slow);
    EXPECT_TRUE(icon.number.isEmpty());
    EXPECT_TRUE(icon.title.empty());
}

TEST(LabelAppearance, HasTheSameIconWhileTheColourStays) {
    EXPECT_EQ(label(sample::fast()).icon, label(sample::responsive(QStringLiteral("91"))).icon);
    EXPECT_EQ(label(sample::slow()).icon, label(sample::checking()).icon);
    EXPECT_NE(label(sample::slow()).icon, label(sample::fast()).icon);
}

TEST(LabelAppearance, KeepsThePartsFromLeftToRightAroundHebrew) {
    EXPECT_EQ(label(sample::hebrew()).label, QStringLiteral("\u200E87 ms  מגיב מהר\u200F\u200E  ↓12.4M ↑210K"));
}

TEST(LabelAppearance, KeepsTheDotsOfAHebrewWordAtItsEnd) {
    const StatusDisplay checking = sample::stateWord(Status::checking, QStringLiteral("בודק…"));
    EXPECT_EQ(label(checking).label, QStringLiteral("\u200Eבודק…\u200F\u200E"));
}

TEST(LabelAppearance, HasAGuideAsWideForEveryNumberOfTheSameLength) {
    const QString guide = label(sample::fast()).labelGuide;
    EXPECT_EQ(guide, QStringLiteral("00 ms  Responsive  ↓00.0M ↑000K"));
    EXPECT_EQ(label(sample::responsive(QStringLiteral("61"))).labelGuide, guide);
}

TEST(LabelAppearance, HasATooltipThatDoesNotChangeWithTheNumber) {
    const ItemAppearance fast = label(sample::fast());
    const ItemAppearance slow = label(sample::slow());
    EXPECT_EQ(fast.toolTipTitle, sample::toolTip);
    EXPECT_EQ(fast.toolTipTitle, slow.toolTipTitle);
    EXPECT_EQ(fast.toolTipText, slow.toolTipText);
}

TEST(WideAppearance, PutsTheWholeTitleIntoTheIconAndNoneIntoTheTooltip) {
    const ItemAppearance wide = appearance(Presentation::wide, sample::fast());
    EXPECT_EQ(wide.icon.presentation, Presentation::wide);
    EXPECT_EQ(wide.icon.title, sample::fast().title);
    EXPECT_EQ(wide.icon.number, QStringLiteral("87"));
    EXPECT_TRUE(wide.label.isEmpty());
    EXPECT_EQ(wide.toolTipTitle, sample::toolTip);
    EXPECT_TRUE(wide.toolTipText.isEmpty());
}

TEST(BadgeAppearance, TakesTheNumberAndNoTextBesideTheIcon) {
    const ItemAppearance fast = badge(sample::fast());
    EXPECT_EQ(fast.icon.presentation, Presentation::badge);
    EXPECT_EQ(fast.icon.status, Status::online);
    EXPECT_EQ(fast.icon.number, QStringLiteral("87"));
    EXPECT_TRUE(fast.icon.title.empty());
    EXPECT_TRUE(fast.label.isEmpty());
    EXPECT_TRUE(fast.labelGuide.isEmpty());
    EXPECT_EQ(badge(sample::slow()).icon.number, QStringLiteral("1.2s"));
}

TEST(BadgeAppearance, HasAnotherIconForEachNumberAndEachState) {
    EXPECT_NE(badge(sample::fast()).icon, badge(sample::responsive(QStringLiteral("91"))).icon);
    EXPECT_NE(badge(sample::banner(Status::slow)).icon, badge(sample::checking()).icon) << "the sign is gone";
    StatusDisplay otherTraffic = sample::fast();
    otherTraffic.title.back().text = QStringLiteral("  ↓1K ↑2K");
    EXPECT_EQ(badge(sample::fast()).icon, badge(otherTraffic).icon);
}

TEST(BadgeAppearance, PutsTheTitleAboveTheTooltip) {
    const ItemAppearance fast = badge(sample::fast());
    EXPECT_EQ(fast.toolTipTitle, QStringLiteral("87 ms  Responsive  ↓12.4M ↑210K"));
    EXPECT_EQ(fast.toolTipText, sample::toolTip);
    EXPECT_EQ(badge(sample::banner(Status::online)).toolTipTitle, QStringLiteral("↓ 48.2 Mbps  ↑ 11.0 Mbps"));
}

TEST(ItemAppearance, TakesADisplayWithoutATitle) {
    for (const Presentation presentation : {Presentation::label, Presentation::wide, Presentation::badge}) {
        const ItemAppearance nothing = appearance(presentation, {Status::offline, {}, {}, {}});
        EXPECT_EQ(nothing.icon.status, Status::offline);
        EXPECT_TRUE(nothing.label.isEmpty());
        EXPECT_TRUE(nothing.icon.number.isEmpty());
    }
}

} // namespace
} // namespace skylet
