#include "platform/linux/system/HomeFolder.h"

#include <QByteArray>
#include <QDir>

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <utility>

namespace skylet::test {

namespace {

class HomeFolderTest : public testing::Test {
  protected:
    void TearDown() override {
        for (const auto& [name, value] : before_) {
            value.isNull() ? qunsetenv(name) : qputenv(name, value);
        }
    }

    static std::pair<const char*, QByteArray> variable(const char* name) { return {name, qgetenv(name)}; }

    const std::array<std::pair<const char*, QByteArray>, 3> before_ = {variable("HOME"), variable("XDG_CONFIG_HOME"),
                                                                       variable("XDG_RUNTIME_DIR")};
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

TEST_F(HomeFolderTest, FoldersBelowTheOneItIsStartedInCountAsNone) {
    for (const auto& [name, value] : before_) {
        qputenv(name, "some/where");
    }
    ensureHome();
    EXPECT_TRUE(qgetenv("HOME").startsWith('/'));
    EXPECT_FALSE(qEnvironmentVariableIsSet("XDG_CONFIG_HOME"));
    EXPECT_FALSE(qEnvironmentVariableIsSet("XDG_RUNTIME_DIR"));
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
