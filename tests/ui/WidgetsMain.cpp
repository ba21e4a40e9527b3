#include "platform/linux/desktop/ApplicationIcon.h"
#include "support/RuntimeFolder.h"
#include "ui/OffscreenScreen.h"

#include <QApplication>

#include <gtest/gtest.h>

/// Widgets without a screen, and without the session bus of whoever runs the tests.
int main(int argc, char** argv) {
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    const skylet::test::RuntimeFolder runtimeFolder;
    skylet::test::useOffscreenScreen(runtimeFolder);
    testing::InitGoogleTest(&argc, argv);
    const QApplication application(argc, argv);
    QGuiApplication::setWindowIcon(skylet::applicationIcon());
    QGuiApplication::setQuitOnLastWindowClosed(false);
    return RUN_ALL_TESTS();
}
