#include "BuildConstants.h"
#include "SkyletFixture.h"

#include <gmock/gmock.h>

namespace skylet {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The welcome and About windows, and the launch at login.
class SkyletWindowsTest : public SkyletTest {
  protected:
    void launchForTheFirstTime() {
        defaults.stored.remove(QStringLiteral("didOnboard"));
        launch();
    }

    bool onboarded() const { return defaults.stored.value(QStringLiteral("didOnboard"), false); }
};

TEST_F(SkyletWindowsTest, TheFirstLaunchWelcomesAfterAllElseHasStarted) {
    defaults.stored.clear();
    skylet->applicationDidFinishLaunching();
    EXPECT_EQ(calls.last(2), (QStringList{QStringLiteral("welcome.make"), QStringLiteral("welcome.bringToFront")}));
    EXPECT_TRUE(calls.contains(QStringLiteral("probe")));
    EXPECT_TRUE(calls.contains(QStringLiteral("interfaceCounters.read")));
    EXPECT_FALSE(onboarded());
}

TEST_F(SkyletWindowsTest, AStoredFalseWelcomesToo) {
    defaults.stored[QStringLiteral("didOnboard")] = false;
    skylet->applicationDidFinishLaunching();
    EXPECT_TRUE(calls.contains(QStringLiteral("welcome.make")));
}

TEST_F(SkyletWindowsTest, OnceWelcomedNoLaunchWelcomesAgain) {
    skylet->applicationDidFinishLaunching();
    EXPECT_FALSE(calls.contains(QStringLiteral("welcome.make")));
}

TEST_F(SkyletWindowsTest, TheLoginBoxStartsOffOnAFreshInstallationAndLeftOffWritesNothing) {
    launchForTheFirstTime();
    EXPECT_FALSE(windows.loginBox);
    windows.gotIt();
    EXPECT_FALSE(launchAgent.present);
    EXPECT_TRUE(onboarded());
    EXPECT_THAT(calls, ElementsAre(QStringLiteral("welcome.close")));
}

TEST_F(SkyletWindowsTest, TheLoginBoxTurnedOnWritesTheAgentAndChecksTheMenuItem) {
    launchForTheFirstTime();
    windows.loginBox = true;
    windows.gotIt();
    EXPECT_TRUE(launchAgent.present);
    EXPECT_TRUE(item(login)->isChecked());
    EXPECT_TRUE(onboarded());
    EXPECT_THAT(calls, ElementsAre(QStringLiteral("welcome.close")));
}

TEST_F(SkyletWindowsTest, WithTheAgentInPlaceTheLoginBoxStartsOnAndTurnedOffRemovesIt) {
    launchAgent.present = true;
    launchForTheFirstTime();
    EXPECT_TRUE(windows.loginBox);
    windows.loginBox = false;
    windows.gotIt();
    EXPECT_FALSE(launchAgent.present);
    EXPECT_FALSE(item(login)->isChecked());
}

TEST_F(SkyletWindowsTest, WithTheAgentInPlaceTheLoginBoxLeftOnKeepsItAsItIs) {
    launchAgent.present = true;
    launchForTheFirstTime();
    windows.gotIt();
    EXPECT_TRUE(launchAgent.present);
    EXPECT_EQ(launchAgent.toggles, 0);
}

TEST_F(SkyletWindowsTest, TheLoginCommandTogglesTheAgentAndItsCheckMark) {
    launch();
    item(login)->trigger();
    EXPECT_TRUE(launchAgent.present);
    EXPECT_TRUE(item(login)->isChecked());
    item(login)->trigger();
    EXPECT_FALSE(launchAgent.present);
    EXPECT_FALSE(item(login)->isChecked());
}

TEST_F(SkyletWindowsTest, TheLoginItemStaysUncheckedWhenTheAgentCannotBeWritten) {
    launchAgent.canToggle = false;
    launch();
    item(login)->trigger();
    EXPECT_EQ(launchAgent.toggles, 1);
    EXPECT_FALSE(item(login)->isChecked());
}

TEST_F(SkyletWindowsTest, TheLoginItemStaysCheckedWhenTheAgentCannotBeRemoved) {
    launchAgent.present = true;
    launchAgent.canToggle = false;
    launch();
    item(login)->trigger();
    EXPECT_EQ(launchAgent.toggles, 1);
    EXPECT_TRUE(item(login)->isChecked());
}

TEST_F(SkyletWindowsTest, AboutIsMadeOnceAndBroughtToTheFrontEachTime) {
    launch();
    item(about)->trigger();
    item(about)->trigger();
    EXPECT_THAT(calls, ElementsAre(QStringLiteral("about.make"), QStringLiteral("about.bringToFront"),
                                   QStringLiteral("about.bringToFront")));
}

TEST_F(SkyletWindowsTest, TheLinkOpensTheWebSiteOfTheBuild) {
    launch();
    item(about)->trigger();
    calls.clear();
    windows.link();
    EXPECT_THAT(calls, ElementsAre(QStringLiteral("application.openURL ") + QString::fromUtf8(build::webSite)));
}

TEST_F(SkyletWindowsTest, ButtonsOfAnApplicationThatIsGoneDoNothing) {
    launchForTheFirstTime();
    item(about)->trigger();
    skylet.reset();
    calls.clear();
    windows.gotIt();
    windows.link();
    EXPECT_FALSE(onboarded());
    EXPECT_THAT(calls, IsEmpty());
}

} // namespace
} // namespace skylet
