#include "platform/linux/statusitem/DesktopStatusItem.h"
#include "platform/linux/statusitem/drawing/SampleDisplays.h"
#include "platform/linux/statusitem/host/FakeStatusHost.h"
#include "support/EventLoop.h"
#include "support/PrivateBus.h"
#include "support/QStringPrinting.h"

#include <QApplication>
#include <QDBusVirtualObject>
#include <QMenu>
#include <QMouseEvent>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <utility>

namespace skylet {
namespace {

using test::PrivateBus;
using test::runFor;
using test::waitUntil;

using namespace std::chrono_literals;

/// GNOME's screen lock, as far as it can be asked.
class FakeScreenLock final : public QDBusVirtualObject {
  public:
    explicit FakeScreenLock(QDBusConnection bus) : bus_(std::move(bus)) {
        EXPECT_TRUE(bus_.registerVirtualObject(path(), this));
        EXPECT_TRUE(bus_.registerService(QStringLiteral("org.gnome.Shell.ScreenShield")));
    }

    int asked = 0;

    void unlock() {
        isLocked_ = false;
        auto signal = QDBusMessage::createSignal(path(), QStringLiteral("org.gnome.ScreenSaver"),
                                                 QStringLiteral("ActiveChanged"));
        signal << isLocked_;
        EXPECT_TRUE(bus_.send(signal));
    }

    QString introspect(const QString& /*path*/) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        ++asked;
        return connection.send(message.createReply(isLocked_));
    }

  private:
    static QString path() { return QStringLiteral("/org/gnome/ScreenSaver"); }

    bool isLocked_ = true;
    QDBusConnection bus_;
};

class StatusItemMovesTest : public testing::Test {
  protected:
    static constexpr auto delay = 400ms;

    void makeItem() {
        StatusItemOptions options;
        options.environment.processName = [](uint /*processId*/) { return QStringLiteral("panel-2-systray"); };
        options.environment.currentDesktop = QString();
        options.environment.panelsStandUpright = [] { return false; };
        options.hostlessDelay = delay;
        options.stripDelay = stripDelay_;
        options.hostless = {QByteArray(), 100ms, {}};
        item_ = std::make_unique<DesktopStatusItem>(itemConnection_, options);
        item_->setMenu({std::make_shared<MenuItem>(QStringLiteral("line"), nullptr, QString())});
        item_->setDisplay(sample::fast());
    }

    static QMenu* openMenu() { return qobject_cast<QMenu*>(QApplication::activePopupWidget()); }

    bool isShownWithoutHost() const { return item_->hostless() != nullptr; }

    std::chrono::milliseconds stripDelay_{0};
    PrivateBus bus_;
    QDBusConnection itemConnection_ = bus_.connect();
    FakeStatusHost host_{bus_.connect()};
    std::unique_ptr<DesktopStatusItem> item_;
};

TEST_F(StatusItemMovesTest, ShowsNothingOfItsOwnWhereAHostIs) {
    host_.appear();
    makeItem();
    ASSERT_TRUE(waitUntil([this] { return !host_.item().isEmpty(); }));
    EXPECT_FALSE(waitUntil([this] { return isShownWithoutHost(); }, 2 * delay));
}

TEST_F(StatusItemMovesTest, WaitsAMomentForAHostBeforeItShowsItselfWithoutOne) {
    const auto began = std::chrono::steady_clock::now();
    makeItem();
    ASSERT_TRUE(waitUntil([this] { return isShownWithoutHost(); }));
    EXPECT_GE(std::chrono::steady_clock::now() - began, delay / 2);
    EXPECT_TRUE(item_->hostless()->strip()->isVisible());
}

TEST_F(StatusItemMovesTest, MovesToAHostThatComesAndBackWhenItGoes) {
    makeItem();
    for (int round = 1; round <= 2; ++round) {
        ASSERT_TRUE(waitUntil([this] { return isShownWithoutHost(); }));
        host_.appear();
        ASSERT_TRUE(waitUntil([&] { return host_.registrations().size() == round; }));
        EXPECT_FALSE(isShownWithoutHost()) << "two items at once";
        host_.disappear();
    }
    EXPECT_TRUE(waitUntil([this] { return isShownWithoutHost(); }));
}

TEST_F(StatusItemMovesTest, StaysOutOfSightWhileAHostRestarts) {
    host_.appear();
    makeItem();
    ASSERT_TRUE(waitUntil([this] { return host_.registrations().size() == 1; }));
    host_.disappear();
    EXPECT_FALSE(waitUntil([this] { return isShownWithoutHost(); }, delay / 2));
    host_.appear();
    ASSERT_TRUE(waitUntil([this] { return host_.registrations().size() == 2; }));
    EXPECT_FALSE(waitUntil([this] { return isShownWithoutHost(); }, 2 * delay));
}

TEST_F(StatusItemMovesTest, ShowsItselfWhereHostsComeAndGoWithoutEnd) {
    makeItem();
    bool wasShown = false;
    for (int round = 0; round < 40 && !wasShown; ++round) {
        host_.appear();
        runFor(delay / 2);
        host_.disappear();
        wasShown = waitUntil([this] { return isShownWithoutHost(); }, delay / 2);
    }
    EXPECT_TRUE(wasShown);
}

TEST_F(StatusItemMovesTest, ShowsNoStripWhileTheScreenIsLocked) {
    FakeScreenLock lock(bus_.connect());
    makeItem();
    ASSERT_TRUE(waitUntil([&] { return lock.asked == 1; }));
    EXPECT_FALSE(waitUntil([this] { return isShownWithoutHost(); }, 3 * delay));
    EXPECT_EQ(lock.asked, 1) << "nobody is asked again and again while the screen is locked";
    lock.unlock();
    EXPECT_TRUE(waitUntil([this] { return isShownWithoutHost(); }));
}

TEST_F(StatusItemMovesTest, GivesAHostTimeToComeBackToTheUnlockedScreen) {
    FakeScreenLock lock(bus_.connect());
    makeItem();
    ASSERT_TRUE(waitUntil([&] { return lock.asked == 1; }));
    const auto unlocked = std::chrono::steady_clock::now();
    lock.unlock();
    ASSERT_TRUE(waitUntil([this] { return isShownWithoutHost(); }));
    // Timers may be early by a twentieth.
    EXPECT_GE(std::chrono::steady_clock::now() - unlocked, delay * 9 / 10);
}

TEST_F(StatusItemMovesTest, ShowsNoStripInItsFirstSeconds) {
    stripDelay_ = 4 * delay;
    const auto began = std::chrono::steady_clock::now();
    makeItem();
    ASSERT_TRUE(waitUntil([this] { return isShownWithoutHost() && item_->hostless()->strip() != nullptr; }));
    // Timers may be early by a twentieth.
    EXPECT_GE(std::chrono::steady_clock::now() - began, stripDelay_ * 9 / 10);
}

TEST_F(StatusItemMovesTest, ShowsItselfBesideAWatcherThatHasNoHost) {
    host_.saysHostIsRegistered = false;
    host_.appear();
    makeItem();
    ASSERT_TRUE(waitUntil([this] { return isShownWithoutHost(); }));
    host_.saysHostIsRegistered = true;
    host_.tellOfHosts();
    EXPECT_TRUE(waitUntil([this] { return !isShownWithoutHost(); }));
}

TEST_F(StatusItemMovesTest, MovesToAHostThatComesBesideAWatcherThatHadNone) {
    host_.saysHostIsRegistered = false;
    host_.appear();
    makeItem();
    ASSERT_TRUE(waitUntil([this] { return isShownWithoutHost(); }));
    QDBusConnection host = bus_.connect();
    ASSERT_TRUE(host.registerService(QStringLiteral("org.kde.StatusNotifierHost-42")));
    EXPECT_TRUE(waitUntil([this] { return !isShownWithoutHost(); })) << "two items at once";
    host.unregisterService(QStringLiteral("org.kde.StatusNotifierHost-42"));
    EXPECT_TRUE(waitUntil([this] { return isShownWithoutHost(); }));
}

TEST_F(StatusItemMovesTest, TellsTheStripOfEachNewDisplay) {
    makeItem();
    item_->setDisplay(sample::slow());
    ASSERT_TRUE(waitUntil([this] { return isShownWithoutHost(); }));
    const QWidget* strip = item_->hostless()->strip();
    EXPECT_EQ(strip->accessibleName(), QStringLiteral("1.2 s  Very high delay  ↓12.4M ↑210K"));
    item_->setDisplay(sample::offline());
    EXPECT_EQ(strip->accessibleName(), QStringLiteral("Offline"));
}

TEST_F(StatusItemMovesTest, IsNowhereWhileItIsHidden) {
    makeItem();
    ASSERT_TRUE(waitUntil([this] { return isShownWithoutHost(); }));
    item_->setVisible(false);
    EXPECT_FALSE(isShownWithoutHost());
    EXPECT_FALSE(waitUntil([this] { return isShownWithoutHost(); }, 2 * delay));
    item_->setVisible(true);
    EXPECT_TRUE(waitUntil([this] { return isShownWithoutHost(); }));
}

TEST_F(StatusItemMovesTest, OpensTheSameMenuFromTheStrip) {
    makeItem();
    ASSERT_TRUE(waitUntil([this] { return isShownWithoutHost(); }));
    QWidget* strip = item_->hostless()->strip();
    for (const QEvent::Type type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
        QMouseEvent event(type, QPointF(5, 5), strip->mapToGlobal(QPointF(5, 5)), Qt::LeftButton, Qt::LeftButton,
                          Qt::NoModifier);
        QApplication::sendEvent(strip, &event);
    }
    ASSERT_NE(openMenu(), nullptr);
    EXPECT_EQ(openMenu()->actions().at(0)->text(), QStringLiteral("line"));
    item_.reset();
}

TEST_F(StatusItemMovesTest, OpensItsMenuToAskForAttentionWithoutAHost) {
    makeItem();
    EXPECT_FALSE(item_->requestAttention());
    EXPECT_EQ(openMenu(), nullptr) << "before there is an item to be seen";
    ASSERT_TRUE(waitUntil([this] { return isShownWithoutHost(); }));
    EXPECT_TRUE(item_->requestAttention());
    ASSERT_NE(openMenu(), nullptr);
    const QRect strip = item_->hostless()->strip()->geometry();
    EXPECT_EQ(openMenu()->geometry().top(), strip.bottom() + 1);
    openMenu()->close();
}

TEST_F(StatusItemMovesTest, LeavesTheMenuClosedWhenAHostAsksForAttention) {
    host_.appear();
    makeItem();
    ASSERT_TRUE(waitUntil([this] { return !host_.item().isEmpty(); }));
    EXPECT_FALSE(item_->requestAttention());
    EXPECT_EQ(openMenu(), nullptr);
}

TEST_F(StatusItemMovesTest, ClosesTheMenuOfTheStripThatAHostReplaces) {
    makeItem();
    ASSERT_TRUE(waitUntil([this] { return isShownWithoutHost(); }));
    item_->requestAttention();
    ASSERT_NE(openMenu(), nullptr);
    host_.appear();
    ASSERT_TRUE(waitUntil([this] { return !isShownWithoutHost(); }));
    EXPECT_EQ(openMenu(), nullptr);
}

TEST_F(StatusItemMovesTest, BringsTheStripToTheFrontWhenItAsksForAttention) {
    class Watch : public QObject {
      public:
        int raised = 0;
        bool eventFilter(QObject* /*object*/, QEvent* event) override {
            raised += event->type() == QEvent::ZOrderChange ? 1 : 0;
            return false;
        }
    } watch;
    makeItem();
    ASSERT_TRUE(waitUntil([this] { return isShownWithoutHost(); }));
    item_->hostless()->strip()->installEventFilter(&watch);
    item_->requestAttention();
    EXPECT_EQ(watch.raised, 1);
}

} // namespace
} // namespace skylet
