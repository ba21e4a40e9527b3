#pragma once

#include "speedtest/SpeedTest.h"
#include "support/FakeBulkTransfers.h"
#include "support/FakeClock.h"
#include "support/FakeSchedule.h"
#include "ui/DesktopWindows.h"

#include <QColor>
#include <QPalette>
#include <QString>
#include <QWidget>

#include <memory>
#include <vector>

namespace skylet::test {

/// The windows of the program, brought into each state that a user can see. Nothing moves by itself but the gauge.
class WindowStates {
  public:
    struct State {
        QString name;
        /// On the screen.
        QWidget* window;
    };

    /// The names of all states.
    static QStringList names();

    /// Brings a window into the state of that name and shows it.
    QWidget* show(const QString& name);

  private:
    QWidget* showSpeedTest(const QString& state);

    FakeBulkTransfers transfers_;
    FakeClock clock_;
    FakeSchedule schedule_;
    DesktopWindows windows_;
    std::unique_ptr<WelcomeWindow> welcome_;
    std::unique_ptr<Window> about_;
    std::unique_ptr<SpeedTestController> speedTest_;
};

/// The palette of a light or of a dark desktop.
QPalette desktopPalette(bool dark);

} // namespace skylet::test
