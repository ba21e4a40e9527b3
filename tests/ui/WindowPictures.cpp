#include "platform/linux/desktop/ApplicationIcon.h"
#include "support/RuntimeFolder.h"
#include "ui/WindowStates.h"

#include <QApplication>
#include <QDir>
#include <QFont>
#include <QPixmap>
#include <QTextStream>

#include <cstdlib>

/// Renders every window in every state: window_pictures FOLDER light|dark [FONT]. The language comes from LANGUAGE, the
/// scale from QT_SCALE_FACTOR. For looking at; what can be judged without eyes the tests judge.
int main(int argc, char** argv) {
    using namespace skylet;
    const test::RuntimeFolder runtimeFolder;
    const QApplication application(argc, argv);
    QGuiApplication::setWindowIcon(applicationIcon());
    QGuiApplication::setQuitOnLastWindowClosed(false);
    const QStringList arguments = QCoreApplication::arguments();
    const QDir folder(arguments.value(1));
    const QString shade = arguments.value(2);
    if (!folder.mkpath(QStringLiteral("."))) {
        return EXIT_FAILURE;
    }
    if (arguments.size() > 3) {
        QApplication::setFont(QFont(arguments.at(3)));
    }
    QApplication::setPalette(test::desktopPalette(shade == u"dark"));
    for (const QString& name : test::WindowStates::names()) {
        test::WindowStates states;
        QWidget* window = states.show(name);
        QCoreApplication::processEvents();
        const QString file = QStringLiteral("%1-%2-%3-x%4.png")
                                 .arg(name, qEnvironmentVariable("LANGUAGE"), shade)
                                 .arg(window->devicePixelRatioF());
        if (!window->grab().save(folder.filePath(file))) {
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}
