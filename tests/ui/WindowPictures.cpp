#include "platform/linux/desktop/ApplicationIcon.h"
#include "support/RuntimeFolder.h"
#include "ui/OffscreenScreen.h"
#include "ui/WindowStates.h"

#include <QApplication>
#include <QDir>
#include <QFont>
#include <QPixmap>
#include <QTextStream>

#include <cstdlib>

/// Renders every window in every state: window_pictures FOLDER light|dark [POINTS [FONT]]. The language comes from
/// LANGUAGE, the scale from QT_SCALE_FACTOR. For looking at; what can be judged without eyes the tests judge.
int main(int argc, char** argv) {
    using namespace skylet;
    const test::RuntimeFolder runtimeFolder;
    test::useOffscreenScreen(runtimeFolder);
    const QApplication application(argc, argv);
    QGuiApplication::setWindowIcon(applicationIcon());
    QGuiApplication::setQuitOnLastWindowClosed(false);
    const QStringList arguments = QCoreApplication::arguments();
    const QDir folder(arguments.value(1));
    const QString shade = arguments.value(2);
    if (!folder.mkpath(QStringLiteral("."))) {
        return EXIT_FAILURE;
    }
    QFont font(arguments.value(4, QApplication::font().family()));
    font.setPointSizeF(arguments.value(3, QStringLiteral("10")).toDouble());
    QApplication::setFont(font);
    QApplication::setPalette(test::desktopPalette(shade == u"dark"));
    for (const QString& name : test::WindowStates::names()) {
        test::WindowStates states;
        QWidget* window = states.show(name);
        QCoreApplication::processEvents();
        const QString file = QStringLiteral("%1-%2-%3-x%4-%5pt.png")
                                 .arg(name, qEnvironmentVariable("LANGUAGE"), shade)
                                 .arg(window->devicePixelRatioF())
                                 .arg(font.pointSizeF());
        if (!window->grab().save(folder.filePath(file))) {
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}
