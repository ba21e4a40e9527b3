#include "support/RuntimeFolder.h"

#include <QApplication>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

// Qt goes by their names: the first one is the primary screen. The other has scale 2, and stands where X11 has it: a
// screen there keeps its corner and shrinks to its logical size.
constexpr auto screens = R"({"screens": [
    {"name": "1", "x": 0, "y": 0, "width": 800, "height": 800, "logicalDpi": 96, "logicalBaseDpi": 96, "dpr": 1},
    {"name": "2", "x": 0, "y": 800, "width": 600, "height": 400, "logicalDpi": 96, "logicalBaseDpi": 96, "dpr": 2}
]})";

} // namespace

/// Widgets without a screen that anybody could see, and no session bus but those that a test starts.
int main(int argc, char** argv) {
    const QTemporaryDir folder;
    QFile configuration(folder.filePath(QStringLiteral("screens.json")));
    if (!configuration.open(QIODevice::WriteOnly) || configuration.write(screens) < 0) {
        return 1;
    }
    configuration.close();
    qputenv("QT_QPA_PLATFORM", "offscreen:configfile=" + configuration.fileName().toUtf8());
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    const skylet::test::RuntimeFolder runtimeFolder;
    testing::InitGoogleTest(&argc, argv);
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
