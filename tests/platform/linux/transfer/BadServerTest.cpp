#include "BulkResults.h"
#include "PeerWatch.h"
#include "ServerPair.h"
#include "platform/linux/transfer/CurlBulkTransferSession.h"
#include "support/Timing.h"

#include <QFile>
#include <QJsonDocument>

#include <ostream>
#include <string>
#include <vector>

namespace skylet::test {
namespace {

using namespace std::chrono_literals;

/// A row of tests/speedserver/behaviours.json.
struct Behaved {
    QJsonObject row;
    /// "h2" or "http/1.1".
    QString protocol;

    QJsonObject part(const char* name) const { return row.value(QLatin1StringView(name)).toObject(); }
    QString text(const char* name) const { return row.value(QLatin1StringView(name)).toString(); }
    bool has(const char* name) const { return row.contains(QLatin1StringView(name)); }
    bool isGood() const { return text("verdict") == QStringLiteral("good"); }
    /// Versions of libcurl read it differently.
    bool isEither() const { return text("verdict") == QStringLiteral("either"); }
    bool isOfHttp1() const { return part("answer").contains(QStringLiteral("raw")); }
    bool isOfHttp2() const { return part("answer").contains(QStringLiteral("frames")); }
    /// Of downloads and uploads: "finishes", "fails" or "either".
    QString transfer() const {
        return has("transfer") ? text("transfer") : isGood() ? QStringLiteral("finishes") : QStringLiteral("fails");
    }
    std::string name() const {
        return text("name").toStdString() + (protocol == QStringLiteral("h2") || isOfHttp1() ? "" : "InHttp1");
    }
};

void PrintTo(const Behaved& behaved, std::ostream* out) {
    *out << behaved.name();
}

std::string nameOf(const testing::TestParamInfo<Behaved>& info) {
    return info.param.name();
}

QJsonArray table() {
    QFile file(QStringLiteral(SKYLET_BAD_SERVERS));
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).array() : QJsonArray();
}

/// Of those that only one protocol has that one, of answers that both have both.
std::vector<Behaved> towardsProbes() {
    std::vector<Behaved> all;
    for (const auto& value : table()) {
        const Behaved behaved{value.toObject(), QStringLiteral("h2")};
        if (!behaved.isOfHttp1()) {
            all.push_back(behaved);
        }
        if (!behaved.isOfHttp2() && behaved.has("answer")) {
            all.push_back({behaved.row, QStringLiteral("http/1.1")});
        }
    }
    return all;
}

std::vector<Behaved> towardsTransfers() {
    std::vector<Behaved> all;
    for (const auto& value : table()) {
        const Behaved behaved{value.toObject(), QStringLiteral("http/1.1")};
        if (!behaved.isOfHttp2()) {
            all.push_back(behaved);
        }
    }
    return all;
}

/// A server that misbehaves in a way that has a name, towards the probe.
class BadServerTest : public testing::TestWithParam<Behaved>, protected PeerWatch {
  protected:
    static void SetUpTestSuite() { servers = ServerPair::make(); }
    static void TearDownTestSuite() { servers.reset(); }

    void SetUp() override {
        if (!servers) {
            GTEST_SKIP() << "needs namespaces";
        }
        servers->bad.speak(GetParam().protocol);
        // what is made once and kept for good
        expectAnswer(*makeSession(epoch), *servers->good);
        runFor(20ms);
        holdingsBefore = Holdings::now();
        session = makeSession(epoch);
        expectAnswer(*session, *servers->good);
    }

    void misbehave() {
        const auto& behaved = GetParam();
        for (const auto* way : {"head", "down", "up"}) {
            servers->bad.set(QString::fromUtf8(way), behaved.part("answer"));
        }
        servers->bad.turnHostile(behaved.part("hostility"));
        if (behaved.has("certificate")) {
            servers->bad.showCertificate(behaved.text("certificate"));
        }
        if (behaved.has("clientCertificate")) {
            servers->bad.wantClientCertificate();
        }
        if (behaved.has("tls")) {
            servers->bad.speakTls(behaved.text("tls"));
        }
        beginWatch();
    }

    void behave() {
        for (const auto* way : {"head", "down", "up"}) {
            servers->bad.set(QString::fromUtf8(way), {});
        }
        servers->bad.turnHostile({});
        servers->bad.showCertificate(QStringLiteral("good"));
    }

    /// One request, or more where the machine is so busy that a good answer comes too late.
    void expectVerdict() {
        std::string outcome;
        for (int i = 0; i < (GetParam().isGood() ? attempts : 1); ++i) {
            const auto asked = head(*session, servers->bad);
            expectAnswer(*session, *servers->good);
            ASSERT_TRUE(runUntil([&] { return asked->has_value(); }, limit + slack)) << "it does not end at its limit";
            if (runsAlone()) {
                EXPECT_LT((*asked)->after, limit + allowing(250ms));
            }
            const bool isRight = (*asked)->response && (*asked)->response->statusCode == 204;
            outcome = (*asked)->response ? "answered with " + std::to_string((*asked)->response->statusCode)
                                         : (*asked)->error->description.toStdString();
            if (isRight || !outcome.starts_with("timed out")) {
                EXPECT_TRUE(isRight == GetParam().isGood() || GetParam().isEither()) << outcome;
                break;
            }
        }
        RecordProperty("outcome", outcome);
        EXPECT_TRUE(!GetParam().isGood() || outcome == "answered with 204") << outcome;
    }

    static inline std::unique_ptr<ServerPair> servers;
    std::unique_ptr<CurlTransferSession> session;
};

TEST_P(BadServerTest, IsJudgedRightlyAtLittleCostAndForgivenOnceItIsWell) {
    misbehave();
    expectVerdict();
    // on the same connection, if that is kept
    expectVerdict();
    behave();
    expectAnswer(*session, servers->bad);
    session.reset();
    expectLittleCost();
    expectNothingLeft();
}

INSTANTIATE_TEST_SUITE_P(Table, BadServerTest, testing::ValuesIn(towardsProbes()), nameOf);

/// The same towards downloads and uploads.
class BadServerTransferTest : public BadServerTest {
  protected:
    static constexpr std::int64_t bytes = 100'000;

    void SetUp() override {
        BadServerTest::SetUp();
        transfers = std::make_unique<CurlBulkTransferSession>(SessionConfiguration{limit, 2s}, epoch,
                                                              systemNames(epoch), results, nullptr);
    }

    /// How a transfer ends.
    BulkTransferResult::End move(bool isUpload) {
        const auto task = isUpload ? transfers->upload(SpeedServer::up(), "application/octet-stream", bytes, limit)
                                   : transfers->download(SpeedServer::down(bytes));
        const auto isOver = [&] { return results.results.contains(task->taskIdentifier()); };
        EXPECT_TRUE(runUntil(isOver, 2s + slack)) << "it does not end at its limit";
        return isOver() ? results.results.at(task->taskIdentifier()).end : BulkTransferResult::End::failed;
    }

    void run(bool isUpload) {
        misbehave();
        bool hasFinished = false;
        const auto wanted = GetParam().transfer();
        for (int i = 0; i < (wanted == QStringLiteral("finishes") ? attempts : 1) && !hasFinished; ++i) {
            hasFinished = move(isUpload) == BulkTransferResult::End::finished;
        }
        if (wanted != QStringLiteral("either")) {
            EXPECT_EQ(hasFinished, wanted == QStringLiteral("finishes"));
        }
        behave();
        for (int i = 0; i < attempts && move(isUpload) != BulkTransferResult::End::finished; ++i) {
            EXPECT_LT(i, attempts - 1) << "no transfer succeeds";
        }
        expectAnswer(*session, *servers->good);
        session.reset();
        transfers.reset();
        expectLittleCost();
        expectNothingLeft();
    }

    BulkResults results;
    std::unique_ptr<CurlBulkTransferSession> transfers;
};

TEST_P(BadServerTransferTest, ADownloadEndsAsItShouldAtLittleCost) {
    run(false);
}

TEST_P(BadServerTransferTest, AnUploadEndsAsItShouldAtLittleCost) {
    run(true);
}

INSTANTIATE_TEST_SUITE_P(Table, BadServerTransferTest, testing::ValuesIn(towardsTransfers()), nameOf);

} // namespace
} // namespace skylet::test
