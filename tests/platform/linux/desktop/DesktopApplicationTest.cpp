#include "platform/linux/desktop/DesktopApplication.h"

#include "platform/linux/statusitem/drawing/SampleDisplays.h"
#include "support/QStringPrinting.h"

#include <QApplication>
#include <QTimer>
#include <QWidget>

#include <gtest/gtest.h>

#include <chrono>

namespace skylet {
namespace {

using namespace std::chrono_literals;

TEST(DesktopApplication, TellsTheDesktopWhoItIs) {
    const DesktopApplication application;
    EXPECT_EQ(QGuiApplication::desktopFileName(), QStringLiteral("com.vorn.skylet"));
    EXPECT_TRUE(application.hasApplicationIcon());
}

TEST(DesktopApplication, MissesAnIconThatIsNotThere) {
    const DesktopApplication application;
    QGuiApplication::setWindowIcon(QIcon());
    EXPECT_FALSE(application.hasApplicationIcon());
}

TEST(DesktopApplication, LivesOnWhenItsLastWindowIsClosed) {
    DesktopApplication application;
    QGuiApplication::setQuitOnLastWindowClosed(true);
    application.becomeAccessory();
    bool quitByItself = true;
    QWidget window;
    QTimer::singleShot(0, &window, [&] {
        window.show();
        window.close();
        QTimer::singleShot(50ms, &window, [&] {
            quitByItself = false;
            QCoreApplication::quit();
        });
    });
    QApplication::exec();
    EXPECT_FALSE(quitByItself);
}

TEST(DesktopApplication, TerminatesFromTheEventLoop) {
    DesktopApplication application;
    bool stillRunning = false;
    QTimer::singleShot(0, qApp, [&] {
        application.terminate();
        stillRunning = true;
    });
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, qApp, [] { QCoreApplication::exit(1); });
    guard.start(5s);
    EXPECT_EQ(QApplication::exec(), 0);
    EXPECT_TRUE(stillRunning);
}

TEST(DesktopApplication, HasAHarmlessItemWhereThereIsNoSessionBus) {
    DesktopApplication application;
    EXPECT_FALSE(DesktopApplication::statusItemBus().isConnected());
    const std::unique_ptr<StatusItem> item = application.makeStatusItem();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->buttonDescription(), QStringLiteral("none (no session bus)"));
    EXPECT_EQ(item->windowDescription(), QStringLiteral("none (no status host yet)"));
    item->setAutosaveName(QStringLiteral("Skylet"));
    item->setVisible(true);
    item->setMenu({std::make_shared<MenuItem>(QStringLiteral("one"), nullptr, QString())});
    item->setDisplay(sample::fast());
    EXPECT_FALSE(application.requestAttention({}));
    QCoreApplication::processEvents();
    item->setVisible(false);
    QCoreApplication::processEvents();
}

TEST(DesktopApplication, AsksForNoAttentionWithoutAnItem) {
    DesktopApplication application;
    EXPECT_FALSE(application.requestAttention({}));
    application.makeStatusItem().reset();
    EXPECT_FALSE(application.requestAttention({}));
    QCoreApplication::processEvents();
    EXPECT_FALSE(DesktopApplication::statusItemBus().isConnected());
}

} // namespace
} // namespace skylet
