#include "platform/linux/transfer/names/TransferNames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace skylet {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const QUrl endpoint(QStringLiteral("https://probe.example/generate_204"));
const HostAndPort endpointName{QStringLiteral("probe.example"), 443};
const HostAndPort proxyName{QStringLiteral("proxy.example"), 3128};

Proxy madeProxy(bool wantsAddress, const QString& proxyHost = proxyName.host) {
    return {.url = {}, .host = proxyHost, .port = proxyName.port, .wantsAddress = wantsAddress};
}

TEST(TransferNames, DirectlyOnlyTheTargetsIsNeeded) {
    EXPECT_THAT(namesFor(endpoint, {}), ElementsAre(endpointName));
    EXPECT_THAT(namesFor(QUrl(QStringLiteral("https://probe.example:8443/")), {}),
                ElementsAre(HostAndPort{QStringLiteral("probe.example"), 8443}));
}

TEST(TransferNames, BehindAProxyThatLooksTheTargetUpOnlyTheProxys) {
    EXPECT_THAT(namesFor(endpoint, madeProxy(false)), ElementsAre(proxyName));
}

TEST(TransferNames, BehindAProxyThatIsToldAddressesBoth) {
    EXPECT_THAT(namesFor(endpoint, madeProxy(true)), ElementsAre(proxyName, endpointName));
}

TEST(TransferNames, AddressesAreNoNames) {
    EXPECT_THAT(namesFor(QUrl(QStringLiteral("https://192.0.2.1/")), {}), IsEmpty());
    EXPECT_THAT(namesFor(QUrl(QStringLiteral("https://[2001:db8::1]/")), {}), IsEmpty());
    EXPECT_THAT(namesFor(endpoint, madeProxy(false, QStringLiteral("127.0.0.1"))), IsEmpty());
    EXPECT_THAT(namesFor(endpoint, madeProxy(true, QStringLiteral("::1"))), ElementsAre(endpointName));
}

TEST(TransferNames, AnAddressOfOneLinkIsNoNameEither) {
    qputenv("https_proxy", "http://[fe80::1%25eth0]:3128");
    const auto neighbour = proxyFor(endpoint);
    qunsetenv("https_proxy");
    EXPECT_THAT(namesFor(endpoint, neighbour), IsEmpty());
}

TEST(TransferNames, AProxyWithoutAHostNeedsNone) {
    EXPECT_THAT(namesFor(endpoint, madeProxy(false, {})), IsEmpty());
}

TEST(TransferNames, LibcurlIsToldAllAddressesInOrder) {
    EXPECT_EQ(resolveEntry(endpointName, {"2001:db8::1", "192.0.2.1"}), "+probe.example:443:[2001:db8::1],192.0.2.1");
}

TEST(TransferNames, LibcurlForgetsByNameAndPort) {
    EXPECT_EQ(removalEntry(endpointName), "-probe.example:443");
}

} // namespace
} // namespace skylet
