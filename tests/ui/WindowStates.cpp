#include "ui/WindowStates.h"

#include "ui/Strings.h"
#include "ui/Widgets.h"

#include <QColor>

namespace skylet::test {

namespace {

using End = BulkTransferResult::End;

QWidget* topLevel(const QString& objectName) {
    return windowsNamed(objectName).at(0);
}

} // namespace

QStringList WindowStates::names() {
    return {QStringLiteral("welcome"),         QStringLiteral("about"),          QStringLiteral("about-focus"),
            QStringLiteral("test-built"),      QStringLiteral("test-ready"),     QStringLiteral("test-down"),
            QStringLiteral("test-down-fast"),  QStringLiteral("test-up"),        QStringLiteral("test-done"),
            QStringLiteral("test-done-plain"), QStringLiteral("test-cancelled"), QStringLiteral("test-failed")};
}

QWidget* WindowStates::show(const QString& name) {
    if (name == u"welcome") {
        welcome_ = windows_.makeWelcomeWindow(false, [] {});
        welcome_->bringToFront();
        return topLevel(QStringLiteral("welcomeWindow"));
    }
    if (name.startsWith(u"about")) {
        about_ = windows_.makeAboutWindow([] {});
        about_->bringToFront();
        QWidget* window = topLevel(QStringLiteral("aboutWindow"));
        if (name.endsWith(u"focus")) {
            window->findChild<QWidget*>(QStringLiteral("link"))->setFocus();
        }
        return window;
    }
    return showSpeedTest(name);
}

QWidget* WindowStates::showSpeedTest(const QString& state) {
    speedTest_ = std::make_unique<SpeedTestController>(transfers_.factory(), clock_, schedule_);
    speedTest_->setLatencyMs(state == u"test-ready" ? 0 : 38);
    speedTest_->show();
    QWidget* window = topLevel(QStringLiteral("speedTestWindow"));
    auto* gauge = window->findChild<GaugeView*>(QStringLiteral("gauge"));
    const auto finishPhase = [this](std::int64_t bytes, int status) {
        clock_.uptime += Seconds(4.0);
        const bool upload = transfers_.last().isUpload;
        upload ? transfers_.send(bytes) : transfers_.receive(bytes);
        transfers_.complete(End::finished, status);
        if (!upload) {
            schedule_.fire();
        }
    };
    const auto settle = [gauge](double speed) {
        gauge->setTarget(speed);
        gauge->setValue(speed);
    };
    if (state == u"test-built") {
        gauge->setPhase(L(QStringLiteral("READY")));
    } else if (state == u"test-down") {
        settle(48.2);
    } else if (state == u"test-down-fast") {
        settle(5000);
    } else if (state == u"test-up") {
        finishPhase(24'000'000, 200);
        settle(11.1);
    } else if (state.startsWith(u"test-done")) {
        finishPhase(46'705'000, 200);
        finishPhase(5'000'000, 200);
        settle(10);
    } else if (state == u"test-cancelled") {
        finishPhase(24'000'000, 200);
        settle(7.7);
        speedTest_->cancel();
    } else if (state == u"test-failed") {
        finishPhase(0, 500);
        finishPhase(0, 500);
    }
    if (state == u"test-done-plain") {
        window->setFocus();
    }
    return window;
}

QPalette desktopPalette(bool dark) {
    QPalette palette(dark ? QColor(0x31, 0x36, 0x3b) : QColor(0xef, 0xef, 0xef));
    if (!dark) {
        return palette;
    }
    palette.setColor(QPalette::Base, QColor(0x23, 0x26, 0x29));
    palette.setColor(QPalette::Highlight, QColor(0x2a, 0x52, 0x8c));
    return palette;
}

} // namespace skylet::test
