#include "connectivity/ConnectivityEngine.h"
#include "platform/linux/desktop/ApplicationIcon.h"
#include "platform/linux/desktop/WindowShade.h"
#include "platform/linux/system/SystemClock.h"
#include "speedtest/SpeedTest.h"
#include "support/FakeBulkTransfers.h"
#include "ui/DesktopWindows.h"
#include "ui/WindowStates.h"

#include <QApplication>
#include <QCheckBox>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSocketNotifier>
#include <QWindow>

#include <cstdio>
#include <functional>
#include <iostream>
#include <memory>
#include <string>

using namespace skylet;

namespace {

/// The windows on whatever desktop runs, for tests and for looking at them by hand. Commands come in on standard input,
/// a line each; each is answered with a line of JSON. The speed test transfers what the commands say.
class WindowsDemo {
  public:
    QJsonObject handle(const QString& line) {
        const QString command = line.section(u' ', 0, 0);
        const QString argument = line.section(u' ', 1);
        if (command == u"show") {
            show(argument);
        } else if (command == u"receive") {
            transfers_.receive(argument.toLongLong());
        } else if (command == u"send") {
            transfers_.send(argument.toLongLong());
        } else if (command == u"end") {
            transfers_.complete(BulkTransferResult::End::finished, argument.toInt());
        } else if (command == u"target") {
            gauge()->setTarget(argument.toDouble());
        } else if (command == u"palette") {
            QApplication::setPalette(test::desktopPalette(argument == u"dark"));
        } else if (command == u"points") {
            QFont font = QApplication::font();
            font.setPointSizeF(argument.toDouble());
            QApplication::setFont(font);
        } else if (command == u"where") {
            return where(argument);
        }
        return state();
    }

  private:
    void show(const QString& window) {
        if (window == u"welcome") {
            welcome_ = windows_.makeWelcomeWindow(false, [this] {
                reports_.append(QStringLiteral("finishWelcome"));
                welcome_->close();
            });
            welcome_->bringToFront();
        } else if (window == u"about") {
            if (!about_) {
                about_ = windows_.makeAboutWindow([this] { reports_.append(QStringLiteral("openBrimlake")); });
            }
            about_->bringToFront();
        } else {
            speedTest_.onStarted = [this] { reports_.append(QStringLiteral("started")); };
            speedTest_.onCancelled = [this] { reports_.append(QStringLiteral("cancelled")); };
            speedTest_.onFinished = [this](auto, auto) { reports_.append(QStringLiteral("finished")); };
            speedTest_.setLatencyMs(38);
            speedTest_.show();
        }
    }

    template <typename Widget = QWidget>
    static Widget* find(const QString& objectName) {
        for (QWidget* widget : QApplication::allWidgets()) {
            if (widget->objectName() == objectName) {
                return qobject_cast<Widget*>(widget);
            }
        }
        return nullptr;
    }
    static GaugeView* gauge() { return find<GaugeView>(QStringLiteral("gauge")); }

    /// The middle of a widget on the screen, in device pixels.
    static QJsonObject where(const QString& objectName) {
        const QWidget* widget = find(objectName);
        const QPointF middle = QPointF(widget->mapToGlobal(widget->rect().center())) * widget->devicePixelRatioF();
        return {{QStringLiteral("x"), middle.x()}, {QStringLiteral("y"), middle.y()}};
    }

    QJsonObject state() const {
        QJsonObject windows;
        for (const QWidget* widget : QApplication::topLevelWidgets()) {
            if (widget->objectName().endsWith(u"Window")) {
                windows.insert(widget->objectName(),
                               QJsonObject{{QStringLiteral("visible"), widget->isVisible()},
                                           {QStringLiteral("active"), widget->isActiveWindow()},
                                           {QStringLiteral("minimized"), widget->isMinimized()},
                                           {QStringLiteral("x"), widget->x()},
                                           {QStringLiteral("y"), widget->y()},
                                           {QStringLiteral("id"), static_cast<qint64>(widget->winId())}});
            }
        }
        const QWidget* focused = QApplication::focusWidget();
        QJsonObject state{{QStringLiteral("windows"), windows},
                          {QStringLiteral("reports"), reports_},
                          {QStringLiteral("focus"), focused != nullptr ? focused->objectName() : QString()}};
        if (const auto* box = find<QCheckBox>(QStringLiteral("loginBox"))) {
            state.insert(QStringLiteral("loginBox"), box->isChecked());
        }
        if (const GaugeView* dial = gauge()) {
            state.insert(QStringLiteral("value"), dial->value());
            state.insert(QStringLiteral("phase"), dial->phase());
            state.insert(QStringLiteral("animating"), dial->animationIsRunning());
        }
        return state;
    }

    test::FakeBulkTransfers transfers_;
    SystemClock clock_;
    DesktopWindows windows_;
    QJsonArray reports_;
    std::unique_ptr<WelcomeWindow> welcome_;
    std::unique_ptr<Window> about_;
    SpeedTestController speedTest_{transfers_.factory(), clock_, commonTimer, {}, Seconds(3600)};
};

} // namespace

int main(int argc, char** argv) {
    DesktopWindows::awaitScreenReaders();
    const QApplication application(argc, argv);
    QGuiApplication::setWindowIcon(applicationIcon());
    QGuiApplication::setQuitOnLastWindowClosed(false);
    const WindowShade windowShade;
    WindowsDemo demo;
    QSocketNotifier input(fileno(stdin), QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &application, [&demo] {
        std::string line;
        if (!std::getline(std::cin, line)) {
            QCoreApplication::quit();
            return;
        }
        const QJsonObject answer = demo.handle(QString::fromStdString(line));
        std::cout << QJsonDocument(answer).toJson(QJsonDocument::Compact).toStdString() << std::endl;
    });
    return QApplication::exec();
}
