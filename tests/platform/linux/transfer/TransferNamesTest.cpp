#include "platform/linux/transfer/TransferNames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace skylet {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const QUrl target(QStringLiteral("https://probe.example/generate_204"));
const HostAndPort targetName{QStringLiteral("probe.example"), 443};
const HostAndPort proxyName{QStringLiteral("proxy.example"), 3128};

Proxy proxy(bool wantsAddress, const QString& host = proxyName.host) {
    return {.url = {}, .host = host, .port = proxyName.port, .wantsAddress = wantsAddress};
}

TEST(TransferNames, DirectlyOnlyTheTargetsIsNeeded) {
    EXPECT_THAT(namesFor(target, {}), ElementsAre(targetName));
    EXPECT_THAT(namesFor(QUrl(QStringLiteral("https://probe.example:8443/")), {}),
                ElementsAre(HostAndPort{QStringLiteral("probe.example"), 8443}));
}

TEST(TransferNames, BehindAProxyThatLooksTheTargetUpOnlyTheProxys) {
    EXPECT_THAT(namesFor(target, proxy(false)), ElementsAre(proxyName));
}

TEST(TransferNames, BehindAProxyThatIsToldAddressesBoth) {
    EXPECT_THAT(namesFor(target, proxy(true)), ElementsAre(proxyName, targetName));
}

TEST(TransferNames, AddressesAreNoNames) {
    EXPECT_THAT(namesFor(QUrl(QStringLiteral("https://192.0.2.1/")), {}), IsEmpty());
    EXPECT_THAT(namesFor(QUrl(QStringLiteral("https://[2001:db8::1]/")), {}), IsEmpty());
    EXPECT_THAT(namesFor(target, proxy(false, QStringLiteral("127.0.0.1"))), IsEmpty());
    EXPECT_THAT(namesFor(target, proxy(true, QStringLiteral("::1"))), ElementsAre(targetName));
}

TEST(TransferNames, AProxyWithoutAHostNeedsNone) {
    EXPECT_THAT(namesFor(target, proxy(false, {})), IsEmpty());
}

TEST(TransferNames, LibcurlIsToldAllAddressesInOrder) {
    EXPECT_EQ(resolveEntry(targetName, {"2001:db8::1", "192.0.2.1"}), "+probe.example:443:[2001:db8::1],192.0.2.1");
}

TEST(TransferNames, LibcurlForgetsByNameAndPort) {
    EXPECT_EQ(removalEntry(targetName), "-probe.example:443");
}

} // namespace
} // namespace skylet
