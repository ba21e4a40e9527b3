#include "platform/desktop/Menu.h"

#include <gtest/gtest.h>

namespace skylet {
namespace {

class MenuItemTest : public testing::Test {
  protected:
    MenuItemTest() {
        QObject::connect(&item, &MenuItem::changed, &item, [this] { ++changes; });
    }

    int triggered = 0;
    int changes = 0;
    MenuItem item{QStringLiteral("Check"), [this] { ++triggered; }, QStringLiteral("r")};
};

TEST_F(MenuItemTest, BeginsEnabledWithoutACheckMark) {
    EXPECT_TRUE(item.isEnabled());
    EXPECT_FALSE(item.isCheckable());
    EXPECT_FALSE(item.isSeparator());
}

TEST_F(MenuItemTest, RunsItsAction) {
    item.trigger();
    EXPECT_EQ(triggered, 1);
}

TEST_F(MenuItemTest, TellsOfEachRealChangeAndOfNothingElse) {
    item.setTitle(QStringLiteral("Check"));
    item.setEnabled(true);
    item.setApplicationIconSize(0);
    EXPECT_EQ(changes, 0);
    item.setTitle(QStringLiteral("Check Now"));
    item.setEnabled(false);
    item.setApplicationIconSize(16);
    EXPECT_EQ(changes, 3);
}

TEST_F(MenuItemTest, AnItemThatWasGivenACheckMarkOffIsACheckItem) {
    item.setChecked(false);
    EXPECT_TRUE(item.isCheckable());
    EXPECT_FALSE(item.isChecked());
    EXPECT_EQ(changes, 1);
    item.setChecked(false);
    EXPECT_EQ(changes, 1);
}

TEST_F(MenuItemTest, ASeparatorDoesNothing) {
    const auto separator = MenuItem::separator();
    EXPECT_TRUE(separator->isSeparator());
    separator->trigger();
}

} // namespace
} // namespace skylet
