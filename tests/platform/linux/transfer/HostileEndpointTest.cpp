#include "HostilePeerTest.h"

#include <string>

namespace skylet::test {
namespace {

using namespace std::chrono_literals;

using Answer = Hostile::Answer;

/// An endpoint of the connectivity check that misbehaves.
class HostileEndpointTest : public HostilePeerTest {
  protected:
    void SetUp() override {
        HostilePeerTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        runFor(50ms);
        holdingsBefore = Holdings::now();
        session = makeSession(epoch);
        if (!GetParam().isBeforeRequests()) {
            expectAnswer(*session, *hostile);
        }
        expectAnswer(*session, *good);
    }

    /// One request to each of the two.
    void ask() {
        const auto bad = head(*session, *hostile);
        expectAnswer(*session, *good);
        ASSERT_TRUE(runUntil([&] { return bad->has_value(); }, limit + slack)) << "it does not end at its limit";
        if (GetParam().answer == Answer::never) {
            EXPECT_FALSE((*bad)->response.has_value()) << (*bad)->response->statusCode;
        }
        if (GetParam().answer == Answer::certain && !(*bad)->response) {
            expectAnswer(*session, *hostile);
        }
        const auto text = (*bad)->error ? (*bad)->error->description.toStdString() : "answered";
        RecordProperty("outcome", text);
        RecordProperty("afterMs", std::to_string((*bad)->after / 1ms));
    }

    std::unique_ptr<CurlTransferSession> session;
};

TEST_P(HostileEndpointTest, IsLeftAtTheLimitAtLittleCostAndHarmsNothingElse) {
    beginHostility();
    ask();
    if (GetParam().stage() == QStringLiteral("answer")) {
        runFor(300ms);
    }
    if (GetParam().isFlood()) {
        ask();
    }
    for (int i = 0; i < attempts && lacksItsFlood(); ++i) {
        ask();
    }
    endHostility();
    // its old connections have not come to their senses, and may cost a request each
    expectAnswer(*session, *hostile);
    expectAnswer(*session, *good);
    session.reset();
    expectLittleCost();
    expectNothingLeft();
}

const std::vector<const char*> stages{"accept", "handshake", "open", "settings", "request", "head", "body", "answer"};
const std::vector<const char*> stagesOfHttp1{"open", "request", "head", "body", "answer"};
const std::vector<const char*> breaks{"close", "fin", "reset", "alert", "garbage", "noise"};
const std::vector<const char*> pauses{"stall", "drip"};

INSTANTIATE_TEST_SUITE_P(Stalls, HostileEndpointTest, testing::ValuesIn(deeds("h2", stages, pauses)), hostileName);
INSTANTIATE_TEST_SUITE_P(Stalls1, HostileEndpointTest, testing::ValuesIn(deeds("http/1.1", stagesOfHttp1, pauses)),
                         hostileName);
INSTANTIATE_TEST_SUITE_P(Breaks, HostileEndpointTest, testing::ValuesIn(deeds("h2", stages, breaks)), hostileName);
INSTANTIATE_TEST_SUITE_P(Breaks1, HostileEndpointTest, testing::ValuesIn(deeds("http/1.1", stagesOfHttp1, breaks)),
                         hostileName);

INSTANTIATE_TEST_SUITE_P(FirstFrames, HostileEndpointTest,
                         testing::ValuesIn(floods("h2", "settings",
                                                  {"ping", "settings", "windowUpdate", "unknown", "goAway", "priority",
                                                   "ticket", "largeTicket", "keyUpdate", "keyUpdateRequest"})),
                         hostileName);
INSTANTIATE_TEST_SUITE_P(InPlaceOfAnAnswer, HostileEndpointTest,
                         testing::ValuesIn(floods("h2", "request",
                                                  {"ping",           "pingAnswer",   "settings",
                                                   "settingsAnswer", "windowUpdate", "streamWindowUpdate",
                                                   "unknown",        "goAway",       "goAwayFromAll",
                                                   "priority",       "idleReset",    "interim",
                                                   "continuation",   "fields",       "push",
                                                   "bomb",           "bombs",        "ticket",
                                                   "largeTicket",    "keyUpdate",    "keyUpdateRequest"})),
                         hostileName);
INSTANTIATE_TEST_SUITE_P(AfterTheHead, HostileEndpointTest,
                         testing::ValuesIn(floods("h2", "body", {"ping", "emptyData", "windowUpdate", "keyUpdate"},
                                                  Answer::possible)),
                         hostileName);
INSTANTIATE_TEST_SUITE_P(WhileIdle, HostileEndpointTest,
                         testing::ValuesIn(floods("h2", "answer",
                                                  {"ping", "settings", "windowUpdate", "unknown", "goAway", "priority",
                                                   "closedHeaders", "closedReset", "closedData", "ticket",
                                                   "largeTicket", "keyUpdate", "keyUpdateRequest"},
                                                  Answer::possible)),
                         hostileName);
INSTANTIATE_TEST_SUITE_P(InHttp1, HostileEndpointTest,
                         testing::ValuesIn(floods("http/1.1", "request",
                                                  {"interim", "fields", "shortFields", "foldedField", "field",
                                                   "emptyLines", "ticket", "keyUpdate", "keyUpdateRequest"})),
                         hostileName);
INSTANTIATE_TEST_SUITE_P(InHttp1AfterTheHead, HostileEndpointTest,
                         testing::ValuesIn(floods("http/1.1", "request",
                                                  {"bodyAfter204", "answers", "chunks", "chunkExtension", "trailers"},
                                                  Answer::possible)),
                         hostileName);
INSTANTIATE_TEST_SUITE_P(InHttp1WhileIdle, HostileEndpointTest,
                         testing::ValuesIn(floods("http/1.1", "answer", {"interim", "answers", "ticket", "keyUpdate"},
                                                  Answer::possible)),
                         hostileName);

INSTANTIATE_TEST_SUITE_P(OverTls12, HostileEndpointTest,
                         testing::ValuesIn(floods("h2", "request", {"renegotiation", "ping", "unknown"}, Answer::never,
                                                  "1.2")),
                         hostileName);
INSTANTIATE_TEST_SUITE_P(OverTls12WhileIdle, HostileEndpointTest,
                         testing::ValuesIn(floods("h2", "answer", {"renegotiation"}, Answer::possible, "1.2")),
                         hostileName);

QJsonObject once(const char* kind, int code, bool thenServe) {
    return {{QStringLiteral("stage"), QStringLiteral("request")},
            {QStringLiteral("flood"), QString::fromUtf8(kind)},
            {QStringLiteral("count"), 1},
            {QStringLiteral("code"), code},
            {QStringLiteral("thenServe"), thenServe}};
}

/// One for each error that HTTP/2 knows (RFC 9113, 7).
std::vector<Hostile> resets() {
    constexpr int codes = 14;
    std::vector<Hostile> all;
    all.reserve(codes);
    for (int code = 0; code < codes; ++code) {
        all.push_back({"ResetWithCode" + std::to_string(code), "h2", once("reset", code, false)});
    }
    return all;
}
INSTANTIATE_TEST_SUITE_P(SingleFrames, HostileEndpointTest, testing::ValuesIn(resets()), hostileName);

INSTANTIATE_TEST_SUITE_P(
    Oddities, HostileEndpointTest,
    testing::Values(
        Hostile{"GoAwayAndSilence", "h2", once("goAway", 0, false)},
        Hostile{"GoAwayAndAnAnswer", "h2", once("goAway", 0, true), Answer::certain},
        Hostile{"GoAwayFromAllAndAnAnswer", "h2", once("goAwayFromAll", 0, true), Answer::possible},
        Hostile{"AFewPingsAndAnAnswer",
                "h2",
                {{QStringLiteral("stage"), QStringLiteral("request")},
                 {QStringLiteral("flood"), QStringLiteral("ping")},
                 {QStringLiteral("count"), 5},
                 {QStringLiteral("thenServe"), true}},
                Answer::certain},
        Hostile{"AFewTicketsAndAnAnswer",
                "h2",
                {{QStringLiteral("stage"), QStringLiteral("open")},
                 {QStringLiteral("flood"), QStringLiteral("ticket")},
                 {QStringLiteral("count"), 5},
                 {QStringLiteral("thenServe"), true}},
                Answer::certain},
        Hostile{"SettingsNeverAcknowledged", "h2", {{QStringLiteral("acknowledge"), false}}, Answer::certain},
        Hostile{"NoWindowForBodies", "h2", {{QStringLiteral("window"), 0}}, Answer::certain},
        Hostile{"PingsBeforeSettings",
                "h2",
                {{QStringLiteral("stage"), QStringLiteral("open")}, {QStringLiteral("flood"), QStringLiteral("ping")}}},
        Hostile{"AByteARecord",
                "h2",
                {{QStringLiteral("stage"), QStringLiteral("request")},
                 {QStringLiteral("flood"), QStringLiteral("unknown")},
                 {QStringLiteral("size"), 16384},
                 {QStringLiteral("record"), 1}}},
        Hostile{"LargeUnknownFrames",
                "h2",
                {{QStringLiteral("stage"), QStringLiteral("request")},
                 {QStringLiteral("flood"), QStringLiteral("unknown")},
                 {QStringLiteral("size"), 16384}}}),
    hostileName);

} // namespace
} // namespace skylet::test
