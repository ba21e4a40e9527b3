#include "platform/linux/system/PortalLaunchAgent.h"

#include "support/EventLoop.h"
#include "support/PrivateBus.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <utility>

namespace skylet::test {

namespace {

using namespace std::chrono_literals;

/// Stands in for the desktop's portal, and answers when the test says so.
class FakePortal : public QDBusVirtualObject {
  public:
    explicit FakePortal(QDBusConnection bus) : bus_(std::move(bus)) {
        bus_.registerVirtualObject(QStringLiteral("/org/freedesktop/portal/desktop"), this);
        bus_.registerService(QStringLiteral("org.freedesktop.portal.Desktop"));
    }

    QString introspect(const QString& /*path*/) const override { return {}; }

    bool handleMessage(const QDBusMessage& call, const QDBusConnection& connection) override {
        if (call.interface() != QStringLiteral("org.freedesktop.portal.Background") ||
            call.member() != QStringLiteral("RequestBackground") || call.signature() != QStringLiteral("sa{sv}")) {
            return false;
        }
        requests += qdbus_cast<QVariantMap>(call.arguments().at(1));
        handle_ = QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2")
                      .arg(call.service().mid(1).replace(u'.', u'_'),
                           requests.constLast().value(QStringLiteral("handle_token")).toString());
        return connection.send(call.createReply(QVariant::fromValue(QDBusObjectPath(handle_))));
    }

    void answer(uint response, const QVariantMap& results) {
        auto signal = QDBusMessage::createSignal(handle_, QStringLiteral("org.freedesktop.portal.Request"),
                                                 QStringLiteral("Response"));
        signal << response << results;
        bus_.send(signal);
    }

    QList<QVariantMap> requests;

  private:
    QDBusConnection bus_;
    QString handle_;
};

class PortalLaunchAgentTest : public testing::Test {
  protected:
    PortalLaunchAgentTest() {
        agent_.onChange = [this] { ++changes_; };
    }

    /// Toggles, and waits until the portal knows.
    void toggle() {
        const auto before = portal_.requests.size();
        agent_.toggle();
        ASSERT_TRUE(waitUntil([&] { return portal_.requests.size() > before; }));
    }

    void answer(uint response, const QVariantMap& results) {
        const int before = changes_;
        portal_.answer(response, results);
        ASSERT_TRUE(waitUntil([&] { return changes_ > before; }));
    }

    void answer(uint response, bool autostart) {
        answer(response,
               {{QStringLiteral("background"), response == success}, {QStringLiteral("autostart"), autostart}});
    }

    static constexpr uint success = 0;
    static constexpr uint refused = 1;
    static constexpr uint failed = 2;

    const QTemporaryDir folder_;
    PrivateBus bus_;
    FakePortal portal_{bus_.connect()};
    const QString path_ = folder_.filePath(QStringLiteral("autostart/skylet.desktop"));
    PortalLaunchAgent agent_{bus_.connect(), path_, QStringLiteral("/app/bin/skylet")};
    int changes_ = 0;
};

} // namespace

TEST_F(PortalLaunchAgentTest, AsksThePortalAndDoesWhatItSays) {
    EXPECT_FALSE(agent_.exists());
    toggle();
    EXPECT_EQ(portal_.requests.constLast().value(QStringLiteral("autostart")), true);
    EXPECT_EQ(portal_.requests.constLast().value(QStringLiteral("commandline")).toStringList(),
              QStringList{QStringLiteral("/app/bin/skylet")});
    EXPECT_FALSE(agent_.exists()) << "not before it has answered";
    answer(success, true);
    EXPECT_TRUE(agent_.exists());
    toggle();
    EXPECT_EQ(portal_.requests.constLast().value(QStringLiteral("autostart")), false);
    EXPECT_TRUE(agent_.exists());
    answer(success, false);
    EXPECT_FALSE(agent_.exists());
}

TEST_F(PortalLaunchAgentTest, TheAnswerOutlivesTheProgram) {
    toggle();
    answer(success, true);
    EXPECT_TRUE(PortalLaunchAgent(bus_.connect(), path_, QStringLiteral("/app/bin/skylet")).exists());
}

TEST_F(PortalLaunchAgentTest, AnAnswerThatComesWhenTheProgramHasEndedIsAskedForAgain) {
    {
        PortalLaunchAgent ended(bus_.connect(), path_, QStringLiteral("/app/bin/skylet"));
        ended.toggle();
        ASSERT_TRUE(waitUntil([&] { return portal_.requests.size() == 1; }));
    }
    PortalLaunchAgent next(bus_.connect(), path_, QStringLiteral("/app/bin/skylet"));
    ASSERT_TRUE(waitUntil([&] { return portal_.requests.size() == 2; }));
    EXPECT_EQ(portal_.requests.constLast().value(QStringLiteral("autostart")), true);
    portal_.answer(success, {{QStringLiteral("autostart"), true}});
    EXPECT_TRUE(waitUntil([&] { return next.exists(); }));
}

TEST_F(PortalLaunchAgentTest, NothingIsAskedForAgainThatHasBeenAnswered) {
    toggle();
    answer(success, true);
    toggle();
    answer(failed, QVariantMap());
    const PortalLaunchAgent next(bus_.connect(), path_, QStringLiteral("/app/bin/skylet"));
    runFor(100ms);
    EXPECT_EQ(portal_.requests.size(), 2);
}

TEST_F(PortalLaunchAgentTest, ARefusalSwitchesItOff) {
    toggle();
    answer(success, false);
    EXPECT_FALSE(agent_.exists()) << "granted, but not the start at login";
    toggle();
    answer(refused, false);
    EXPECT_FALSE(agent_.exists());
    toggle();
    answer(success, true);
    toggle();
    answer(refused, false);
    EXPECT_FALSE(agent_.exists()) << "the permission was taken away meanwhile";
}

TEST_F(PortalLaunchAgentTest, ARequestThatEndsWithoutAResultChangesNothing) {
    toggle();
    answer(failed, QVariantMap());
    EXPECT_FALSE(agent_.exists());
    toggle();
    answer(success, true);
    toggle();
    answer(failed, QVariantMap());
    EXPECT_TRUE(agent_.exists());
}

TEST_F(PortalLaunchAgentTest, OfTwoAnswersTheLastCounts) {
    toggle();
    toggle();
    answer(success, true);
    answer(success, false);
    EXPECT_FALSE(agent_.exists());
}

TEST_F(PortalLaunchAgentTest, WithoutAPortalNothingChanges) {
    PrivateBus bus;
    PortalLaunchAgent agent(bus.connect(), path_, QStringLiteral("/app/bin/skylet"));
    agent.toggle();
    runFor(100ms);
    EXPECT_FALSE(agent.exists());
}

} // namespace skylet::test
