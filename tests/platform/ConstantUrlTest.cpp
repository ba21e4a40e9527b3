#include "platform/ConstantUrl.h"

#include <gtest/gtest.h>

namespace skylet {
namespace {

TEST(ConstantUrl, IsTheAddressAsItIsWritten) {
    EXPECT_EQ(constantUrl(QStringLiteral("https://one.example/a?b=c")).toString(),
              QStringLiteral("https://one.example/a?b=c"));
}

TEST(ConstantUrlDeathTest, AConstantThatIsNoAddressStopsTheProgram) {
    for (const auto* text : {"", "https://", "https://one example/", "https://one.example:port/"}) {
        EXPECT_DEATH(constantUrl(QString::fromUtf8(text)), "is not a URL") << text;
    }
}

} // namespace
} // namespace skylet
