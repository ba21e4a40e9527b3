#include "HostilePeerTest.h"

#include "PrivateSystem.h"

#include <QJsonArray>

namespace skylet::test {

void HostilePeerTest::SetUp() {
    if (const auto reason = PrivateSystem::enter()) {
        GTEST_SKIP() << "needs namespaces: " << reason->toStdString();
    }
    hostile = std::make_unique<SpeedServer>();
    good = SpeedServer::beside(*hostile);
    hostile->speak(QString::fromUtf8(GetParam().protocol));
    hostile->speakTls(QString::fromUtf8(GetParam().tls));
    // half of a head is to be more than its status line
    const QJsonArray padding{QStringLiteral("x-padding"), QString(200, u'x')};
    for (const auto& way : {QStringLiteral("down"), QStringLiteral("up"), QStringLiteral("head")}) {
        hostile->set(way, {{QStringLiteral("headers"), QJsonArray{padding}}});
    }
    // whatever is made once and kept for good
    const auto session = makeSession(epoch);
    expectAnswer(*session, *hostile);
    expectAnswer(*session, *good);
}

void HostilePeerTest::beginHostility() {
    hostile->turnHostile(GetParam().hostility);
    beginWatch();
}

void HostilePeerTest::endHostility() {
    const auto flooded = hostile->flooded();
    RecordProperty("floodedKB", std::to_string(flooded / 1024));
    if (GetParam().isEndless()) {
        EXPECT_GT(flooded, 0) << "there was to be a flood";
    }
    hostile->turnHostile({});
}

} // namespace skylet::test
