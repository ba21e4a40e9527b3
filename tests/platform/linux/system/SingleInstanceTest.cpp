#include "platform/linux/system/SingleInstance.h"

#include "support/ChildProcess.h"
#include "support/EventLoop.h"
#include "support/PrivateBus.h"
#include "support/Timing.h"

#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QProcess>

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <memory>

namespace skylet::test {

namespace {

using namespace std::chrono_literals;
using Role = SingleInstance::Role;

const auto service = QString::fromLatin1(SingleInstance::serviceName);
const auto path = QString::fromLatin1(SingleInstance::objectPath);
const auto interface = QStringLiteral("org.freedesktop.Application");

/// Another process that claims to be the one that runs.
class Start {
  public:
    explicit Start(const PrivateBus& bus) {
        endWithThisProcess(process_);
        process_.start(QString::fromUtf8(SECOND_START_PATH), {bus.address()});
    }
    ~Start() {
        process_.kill();
        process_.waitForFinished();
    }
    Start(const Start&) = delete;
    Start& operator=(const Start&) = delete;
    Start(Start&&) = delete;
    Start& operator=(Start&&) = delete;

    /// Its role as text; waits for it with the event loop running.
    QByteArray role() {
        waitUntil([this] { return process_.canReadLine(); });
        const auto words = process_.readLine().trimmed().split(' ');
        took_ = std::chrono::milliseconds(words.value(1).toInt());
        return words.constFirst();
    }
    /// How long it waited until it knew.
    std::chrono::milliseconds took() const { return took_; }
    bool endsWithZero() {
        return waitUntil([this] { return process_.state() == QProcess::NotRunning; }) &&
               process_.exitStatus() == QProcess::NormalExit && process_.exitCode() == 0;
    }
    void freeze() { ::kill(static_cast<pid_t>(process_.processId()), SIGSTOP); }
    void killAfter(std::chrono::milliseconds delay) {
        QTimer::singleShot(delay, &process_, [this] { process_.kill(); });
    }

  private:
    QProcess process_;
    std::chrono::milliseconds took_{};
};

class SingleInstanceTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(bus_.isRunning()); }

    std::unique_ptr<SingleInstance> instance() {
        return std::make_unique<SingleInstance>(bus_.connect(), [this](const QString& token) {
            ++activations_;
            token_ = token;
        });
    }

    QDBusMessage::MessageType call(const char* method, const QVariantList& arguments) {
        auto message = QDBusMessage::createMethodCall(service, path, interface, QString::fromUtf8(method));
        message.setArguments(arguments);
        const QDBusPendingCall pending = control_.asyncCall(message);
        waitUntil([&] { return pending.isFinished(); });
        return pending.reply().type();
    }

    PrivateBus bus_;
    QDBusConnection control_ = bus_.connect();
    int activations_ = 0;
    QString token_;
};

} // namespace

TEST_F(SingleInstanceTest, TheFirstStartOwnsTheName) {
    const auto first = instance();
    EXPECT_EQ(first->claim(), Role::first);
    EXPECT_TRUE(isOnBus(control_, service));
    EXPECT_EQ(activations_, 0);
}

TEST_F(SingleInstanceTest, ASecondStartBringsTheFirstToAttentionAndEnds) {
    const auto first = instance();
    ASSERT_EQ(first->claim(), Role::first);
    qputenv("XDG_ACTIVATION_TOKEN", "token-2");
    Start second(bus_);
    qunsetenv("XDG_ACTIVATION_TOKEN");
    EXPECT_EQ(second.role(), "second");
    if (runsAlone()) {
        EXPECT_LT(second.took(), allowing(1000ms));
    }
    EXPECT_TRUE(second.endsWithZero());
    EXPECT_EQ(activations_, 1);
    EXPECT_EQ(token_, QStringLiteral("token-2"));
    Start third(bus_);
    EXPECT_EQ(third.role(), "second");
    EXPECT_EQ(activations_, 2);
}

TEST_F(SingleInstanceTest, OfManyStartsAtTheSameTimeExactlyOneIsTheFirst) {
    for (int round = 0; round < 3; ++round) {
        std::array<std::unique_ptr<Start>, 6> starts;
        for (auto& start : starts) {
            start = std::make_unique<Start>(bus_);
        }
        QByteArrayList roles;
        for (const auto& start : starts) {
            roles.append(start->role());
        }
        EXPECT_EQ(roles.count("first"), 1);
        EXPECT_EQ(roles.count("second"), 5);
    }
}

TEST_F(SingleInstanceTest, AFirstThatHangsKeepsNobodyWaitingForLong) {
    Start first(bus_);
    ASSERT_EQ(first.role(), "first");
    first.freeze();
    Start second(bus_);
    EXPECT_EQ(second.role(), "second");
    EXPECT_GE(second.took(), 1500ms) << "a busy one gets its chance";
    if (runsAlone()) {
        EXPECT_LT(second.took(), allowing(2500ms));
    }
    EXPECT_TRUE(second.endsWithZero());
}

TEST_F(SingleInstanceTest, AFirstThatEndsMeanwhileIsSucceeded) {
    Start ending(bus_);
    ASSERT_EQ(ending.role(), "first");
    ending.freeze();
    Start next(bus_);
    ending.killAfter(300ms);
    EXPECT_EQ(next.role(), "first");
    if (runsAlone()) {
        EXPECT_LT(next.took(), allowing(1500ms));
    }
}

TEST_F(SingleInstanceTest, TheNameIsFreeAgainOnceTheFirstHasEnded) {
    {
        Start first(bus_);
        ASSERT_EQ(first.role(), "first");
    }
    ASSERT_TRUE(waitUntil([this] { return !isOnBus(control_, service); }));
    EXPECT_EQ(instance()->claim(), Role::first);
}

TEST_F(SingleInstanceTest, NobodyTakesTheNameAway) {
    const auto first = instance();
    ASSERT_EQ(first->claim(), Role::first);
    auto request =
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/"),
                                       QStringLiteral("org.freedesktop.DBus"), QStringLiteral("RequestName"));
    constexpr unsigned replaceExisting = 2;
    constexpr unsigned doNotQueue = 4;
    constexpr unsigned exists = 3;
    request << service << (replaceExisting | doNotQueue);
    EXPECT_EQ(control_.call(request).arguments().value(0).toUInt(), exists);
}

TEST_F(SingleInstanceTest, ASecondStartDoesNotQueueForTheName) {
    auto first = std::make_unique<Start>(bus_);
    ASSERT_EQ(first->role(), "first");
    const auto second = instance();
    ASSERT_EQ(second->claim(), Role::second);
    first.reset();
    ASSERT_TRUE(waitUntil([this] { return !isOnBus(control_, service); }));
    EXPECT_EQ(activations_, 0);
}

TEST_F(SingleInstanceTest, WithoutABusNobodyCanTell) {
    SingleInstance alone(QDBusConnection(QStringLiteral("nowhere")), [](const QString&) {});
    EXPECT_EQ(alone.claim(), Role::noBus);
}

TEST_F(SingleInstanceTest, ABusThatBrokeCountsAsNone) {
    const auto first = instance();
    bus_.kill();
    EXPECT_EQ(first->claim(200ms), Role::noBus);
}

TEST_F(SingleInstanceTest, RequestsOfTheDesktopAreAnswered) {
    const auto first = instance();
    ASSERT_EQ(first->claim(), Role::first);
    EXPECT_EQ(call("Activate", {QVariantMap{{QStringLiteral("desktop-startup-id"), QStringLiteral("x")}}}),
              QDBusMessage::ReplyMessage);
    EXPECT_EQ(activations_, 1);
    EXPECT_EQ(call("Open", {QStringList{QStringLiteral("file:///etc/hosts")}, QVariantMap()}),
              QDBusMessage::ReplyMessage);
    EXPECT_EQ(call("ActivateAction", {QStringLiteral("quit"), QVariantList(), QVariantMap()}),
              QDBusMessage::ReplyMessage);
    EXPECT_EQ(activations_, 1);
    EXPECT_EQ(call("NoSuchMethod", {}), QDBusMessage::ErrorMessage);
}

} // namespace skylet::test
