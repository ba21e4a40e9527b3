#include "HostilePeerTest.h"

#include "support/Timing.h"

namespace skylet::test {

using namespace std::chrono_literals;

namespace {

std::int64_t milliseconds(std::chrono::nanoseconds time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

} // namespace

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

std::unique_ptr<CurlTransferSession> HostilePeerTest::makeSession(const std::shared_ptr<NetworkEpoch>& epoch) {
    return std::make_unique<CurlTransferSession>(SessionConfiguration{60s, limit}, epoch, systemNames(epoch));
}

void HostilePeerTest::runFor(std::chrono::milliseconds time) {
    runUntil([] { return false; }, time);
}

std::shared_ptr<std::optional<Ended>> HostilePeerTest::head(CurlTransferSession& session, const SpeedServer& server) {
    auto ended = std::make_shared<std::optional<Ended>>();
    const auto accepts = [](const TransferResponse& response) { return response.statusCode == 204; };
    session.head(server.endpoint(), accepts,
                 [ended, start = std::chrono::steady_clock::now()](auto response, auto error) {
                     EXPECT_FALSE(ended->has_value()) << "told twice";
                     *ended = Ended{response, error, std::chrono::steady_clock::now() - start};
                 });
    return ended;
}

void HostilePeerTest::expectAnswer(CurlTransferSession& session, const SpeedServer& server) {
    std::string errors;
    for (int i = 0; i < attempts; ++i) {
        const auto ended = head(session, server);
        ASSERT_TRUE(runUntil([&] { return ended->has_value(); }, limit + slack)) << "it does not end at its limit";
        if ((*ended)->response) {
            EXPECT_EQ((*ended)->response->statusCode, 204);
            return;
        }
        errors += (*ended)->error->description.toStdString() + "; ";
    }
    ADD_FAILURE() << "no answer: " << errors;
}

void HostilePeerTest::beginHostility() {
    hostile->turnHostile(GetParam().hostility);
    memoryBefore = privateMemory();
    takePeakMemory();
    residentBefore = takePeakMemory();
    watch = std::make_unique<LoopWatch>();
}

void HostilePeerTest::endHostility() {
    if (GetParam().isEndless()) {
        EXPECT_GT(hostile->flooded(), 0) << "there was to be a flood";
    }
    hostile->turnHostile({});
}

void HostilePeerTest::expectLittleCost() {
    const auto turn = watch->longestTurn();
    const auto total = watch->total();
    const auto grown = takePeakMemory() - residentBefore;
    watch.reset();
    RecordProperty("longestTurnMs", std::to_string(milliseconds(turn)));
    RecordProperty("totalMs", std::to_string(milliseconds(total)));
    RecordProperty("grownKB", std::to_string(grown / 1024));
    RecordProperty("floodedKB", std::to_string(hostile->flooded() / 1024));
    if (runsAlone()) {
        EXPECT_LT(turn, allowing(longestTurn)) << "of the processor at one go";
        EXPECT_LT(total, allowing(totalCost)) << "of the processor in all";
        EXPECT_LT(grown, memoryLimit);
    }
}

void HostilePeerTest::expectNothingLeft() {
    // An earlier test's look-up may have ended meanwhile.
    const auto isNoMore = [this](const Holdings& now) {
        return now.descriptors <= holdingsBefore.descriptors && now.threads <= holdingsBefore.threads;
    };
    runUntil([&] { return isNoMore(Holdings::now()); }, slack);
    const auto now = Holdings::now();
    EXPECT_LE(now.descriptors, holdingsBefore.descriptors);
    EXPECT_LE(now.threads, holdingsBefore.threads);
    RecordProperty("keptKB", std::to_string((privateMemory() - memoryBefore) / 1024));
    if (runsAlone()) {
        EXPECT_LT(privateMemory() - memoryBefore, memoryLimit);
    }
}

} // namespace skylet::test
