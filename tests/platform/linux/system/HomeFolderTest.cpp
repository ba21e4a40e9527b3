#include "platform/linux/system/HomeFolder.h"

#include <QByteArray>
#include <QDir>

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

namespace skylet::test {

namespace {

class HomeFolderTest : public testing::Test {
  protected:
    void TearDown() override { before_.isNull() ? qunsetenv("HOME") : qputenv("HOME", before_); }

    const QByteArray before_ = qgetenv("HOME");
};

} // namespace

TEST_F(HomeFolderTest, ThatOfTheEnvironmentStays) {
    qputenv("HOME", "/some/where");
    ensureHome();
    EXPECT_EQ(qgetenv("HOME"), "/some/where");
}

TEST_F(HomeFolderTest, WithoutOneItIsTheUserDatabases) {
    const passwd* user = getpwuid(geteuid());
    ASSERT_NE(user, nullptr);
    const QByteArray home = user->pw_dir;
    qunsetenv("HOME");
    ensureHome();
    EXPECT_EQ(qgetenv("HOME"), home);
    qputenv("HOME", "");
    ensureHome();
    EXPECT_EQ(qgetenv("HOME"), home);
}

TEST_F(HomeFolderTest, ForAUserWhomNobodyKnowsItIsAPlaceThatTakesNothing) {
    constexpr uid_t unknown = 54321;
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    qunsetenv("HOME");
    ASSERT_EQ(getpwuid(unknown), nullptr);
    ASSERT_EQ(seteuid(unknown), 0);
    ensureHome();
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_FALSE(QDir().mkpath(QDir::homePath() + QStringLiteral("/.config"))) << "not even root could";
}

} // namespace skylet::test
