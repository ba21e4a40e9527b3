#pragma once

#include "platform/Clock.h"
#include "platform/Timers.h"
#include "platform/transfer/BulkTransferSession.h"
#include "speedtest/GaugeDrawing.h"
#include "speedtest/SpeedTestDisplay.h"
#include "speedtest/SpeedTestMeasurement.h"
#include "speedtest/SpeedTesting.h"
#include "ui/PlainWindow.h"

#include <QColor>
#include <QElapsedTimer>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QWidget>

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

class QLabel;
class QPushButton;

namespace skylet {

/// A dial that shows a speed in Mbit/s. The speed shown moves smoothly to a target, 30 times a second, and only while
/// the window is on the screen; at rest it costs nothing. To assistive technologies it is a dial whose description
/// gives the speed and the phase.
class GaugeView final : public QWidget {
    Q_OBJECT

  public:
    /// `bounds`: of the dial, logical pixels. Where the unit would lie below them, the widget reaches that much further
    /// down, since a widget is clipped. Given another size, it draws everything larger or smaller.
    explicit GaugeView(QSize bounds, QWidget* parent = nullptr);

    /// What is drawn now. Writing it neither redraws nor animates.
    double value() const { return value_; }
    void setValue(double speed);
    /// Where the value moves to. Every write starts the animation if one is due.
    double target() const { return target_; }
    void setTarget(double speed);
    /// The caption, as it stands. Writing it does not redraw.
    QString phase() const { return phase_; }
    void setPhase(const QString& phase);
    /// Colour of the arc, the hub and the caption. Writing it does not redraw.
    QColor accent() const { return accent_; }
    void setAccent(const QColor& accent);

    /// Starts moving unless it already does or is there already; what is not on the screen is there at once.
    void animateIfNeeded();
    /// The value stays where it is.
    void stopAnimation() { timer_.stop(); }
    bool animationIsRunning() const { return timer_.isActive(); }

  protected:
    void paintEvent(QPaintEvent* event) override;
    void hideEvent(QHideEvent* event) override;

  private:
    void tick();
    void startFrameTimer();
    void announce();
    /// The widget's size is that many times the one that it was made with.
    double scale() const { return static_cast<double>(width()) / bounds_.width(); }

    const QSize bounds_;
    GaugeDrawing drawing_;
    double value_ = 0;
    double target_ = 0;
    QString phase_;
    QColor accent_;
    /// Whether a field was written since the last step, so that the picture may differ anywhere.
    bool repaintAll_ = false;
    /// One-shot, started anew for each frame.
    QTimer timer_{this};
    QElapsedTimer sinceStart_;
    /// The next frame, counted from the animation's start.
    std::int64_t frame_ = 0;
    /// Runs while there is a change to announce to assistive technologies.
    QTimer announcementTimer_;
    QElapsedTimer sinceAnnouncement_;
};

/// The speed test and its window: the small dark panel with the gauge, the three results and the button. The window is
/// made when it is first shown, kept when it is closed, and the same in both languages but for its texts. Closing it
/// ends a test.
class SpeedTestController final : public SpeedTesting, private SpeedTestDisplay {
  public:
    SpeedTestController(const BulkTransferSessionFactory& makeSession, const Clock& clock,
                        Schedule schedule = commonTimer, const SessionConfiguration& configuration = {},
                        Seconds phaseSeconds = SpeedTestMeasurement::defaultPhaseSeconds);

    bool isRunning() const override { return measurement_.isRunning(); }
    void setLatencyMs(std::int64_t milliseconds) override { measurement_.setLatencyMs(milliseconds); }
    void show() override;
    void cancel() override { measurement_.cancel(); }

  private:
    void build();
    /// The next one to the right. `name`: how the names of its widgets begin.
    void addColumn(const QString& name, const QString& title);
    void runAgain() { measurement_.start(); }
    void windowWillClose() { cancel(); }

    void setResult(ResultColumn column, const QString& text) override;
    void setRunEnabled(bool enabled) override;
    void setGaugePhase(const QString& phase) override;
    void setGaugeAccent(const GaugeColor& accent) override;
    void setGaugeTarget(double speed) override { gauge_->setTarget(speed); }
    void setGaugeValue(double speed) override;
    void stopGaugeAnimation() override;

    std::unique_ptr<PlainWindow> window_;
    /// These belong to the window.
    GaugeView* gauge_ = nullptr;
    std::vector<QLabel*> resultLabels_;
    QStringList captions_;
    QPushButton* runButton_ = nullptr;
    SpeedTestMeasurement measurement_;
};

} // namespace skylet
