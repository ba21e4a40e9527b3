#include "platform/desktop/Menu.h"

#include "support/QStringPrinting.h"

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
    EXPECT_EQ(changes, 0);
    item.setTitle(QStringLiteral("Check Now"));
    item.setEnabled(false);
    EXPECT_EQ(changes, 2);
}

TEST_F(MenuItemTest, AnItemThatWasGivenACheckMarkOffIsACheckItem) {
    item.setChecked(false);
    EXPECT_TRUE(item.isCheckable());
    EXPECT_FALSE(item.isChecked());
    EXPECT_EQ(changes, 1);
    item.setChecked(false);
    EXPECT_EQ(changes, 1);
}

TEST(SeparatorTest, HasNoTitleAndDoesNothing) {
    const auto separator = MenuItem::separator();
    EXPECT_TRUE(separator->isSeparator());
    EXPECT_EQ(separator->title(), QString());
    EXPECT_NO_THROW(separator->trigger());
}

TEST(MenuTest, RunsFromRightToLeftOnceOneOfItsTitlesDoes) {
    const Menu menu = {MenuItem::separator(), std::make_shared<MenuItem>(QStringLiteral("Quit"), nullptr, QString())};
    EXPECT_FALSE(isRightToLeft(menu));
    menu.back()->setTitle(QStringLiteral("87 ms מחובר"));
    EXPECT_TRUE(isRightToLeft(menu));
}

} // namespace
} // namespace skylet
