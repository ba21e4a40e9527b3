#include "speedtest/SpeedTest.h"

#include "speedtest/GaugeScale.h"
#include "speedtest/PanelControls.h"
#include "ui/Fonts.h"
#include "ui/Strings.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QPaintEvent>
#include <QPainter>
#include <QPalette>

#include <algorithm>
#include <chrono>
#include <utility>

namespace skylet {

namespace {

constexpr std::chrono::duration<std::int64_t, std::ratio<1, 30>> frameTime{1};
/// The shortest time between two new speeds that a screen reader announces.
constexpr std::chrono::milliseconds announcementInterval{2000};

/// The gauge for assistive technologies. Its speed is a text: with a value that can be asked for, Qt would offer to
/// increase and decrease it.
class AccessibleGauge final : public QAccessibleWidget {
  public:
    explicit AccessibleGauge(GaugeView& gauge) : QAccessibleWidget(&gauge, QAccessible::Dial), gauge_(gauge) {}

    QString text(QAccessible::Text kind) const override {
        switch (kind) {
        case QAccessible::Name:
            return L(QStringLiteral("Speed Test"));
        case QAccessible::Description:
            // The measured speed, which the needle may not have reached yet.
            return gauge::number(gauge_.target()) + QStringLiteral(" Mbps, ") + gauge_.phase();
        default:
            return QAccessibleWidget::text(kind);
        }
    }

  private:
    GaugeView& gauge_;
};

QAccessibleInterface* makeAccessibleGauge(const QString& /*className*/, QObject* object) {
    auto* gauge = qobject_cast<GaugeView*>(object);
    return gauge != nullptr ? new AccessibleGauge(*gauge) : nullptr;
}

QRegion scaled(const QRegion& region, double scale) {
    QRegion result;
    for (const QRect& part : region) {
        result += QRectF(QPointF(part.topLeft()) * scale, QSizeF(part.size()) * scale).toAlignedRect();
    }
    return result;
}

} // namespace

GaugeView::GaugeView(QSize bounds, QWidget* parent)
    : QWidget(parent), bounds_(bounds), drawing_(bounds), phase_(L(QStringLiteral("READY"))),
      accent_(toColor(downloadColor)) {
    QAccessible::installFactory(makeAccessibleGauge);
    resize(bounds + QSize(0, drawing_.overhang()));
    setAttribute(Qt::WA_OpaquePaintEvent);
    timer_.setTimerType(Qt::PreciseTimer);
    timer_.setSingleShot(true);
    timer_.callOnTimeout(this, &GaugeView::tick);
    announcementTimer_.setSingleShot(true);
    announcementTimer_.callOnTimeout(this, &GaugeView::announce);
}

void GaugeView::setTarget(double speed) {
    if (std::exchange(target_, speed) != speed && QAccessible::isActive() && !announcementTimer_.isActive()) {
        const std::chrono::milliseconds silent(sinceAnnouncement_.isValid() ? sinceAnnouncement_.elapsed()
                                                                            : announcementInterval.count());
        announcementTimer_.start(std::max(std::chrono::milliseconds(0), announcementInterval - silent));
    }
    animateIfNeeded();
}

void GaugeView::setValue(double speed) {
    value_ = speed;
    repaintAll_ = true;
}

void GaugeView::setPhase(const QString& phase) {
    phase_ = phase;
    repaintAll_ = true;
    // Only when the event loop runs again: the speed that belongs to the phase is set after it.
    announcementTimer_.start(0);
}

void GaugeView::setAccent(const QColor& accent) {
    accent_ = accent;
    repaintAll_ = true;
}

void GaugeView::animateIfNeeded() {
    if (timer_.isActive() || !window()->isVisible()) {
        return;
    }
    if (!isOnScreen(*window())) {
        // Minimised or on another desktop: there is no movement to see, and the value is right when it is back.
        value_ = target_;
        update();
        return;
    }
    if (gauge::animationIsDue(value_, target_)) {
        sinceStart_.start();
        frame_ = 0;
        startFrameTimer();
    }
}

void GaugeView::tick() {
    const gauge::Step step = gauge::step(value_, target_, isOnScreen(*window()));
    const double before = std::exchange(value_, step.value);
    if (std::exchange(repaintAll_, false)) {
        update();
    } else {
        update(scaled(drawing_.difference(before, value_), scale()));
    }
    if (!step.isLast) {
        startFrameTimer();
    }
}

void GaugeView::startFrameTimer() {
    // Timers count whole milliseconds. Each frame has a fixed time since the animation's start, so that rounding does
    // not add up; frames that a busy program missed are left out.
    const std::chrono::nanoseconds elapsed(sinceStart_.nsecsElapsed());
    frame_ = std::max(frame_ + 1, elapsed / frameTime + 1);
    timer_.start(std::chrono::ceil<std::chrono::milliseconds>(frame_ * frameTime - elapsed));
}

void GaugeView::announce() {
    sinceAnnouncement_.start();
    if (QAccessible::isActive()) {
        QAccessibleEvent described(this, QAccessible::DescriptionChanged);
        QAccessible::updateAccessibility(&described);
    }
}

void GaugeView::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    drawing_.forget();
}

void GaugeView::paintEvent(QPaintEvent* event) {
    QPainter painter(this);
    painter.scale(scale(), scale());
    drawing_.draw(painter, scaled(event->region(), 1 / scale()), value_, phase_, accent_);
}

SpeedTestController::SpeedTestController(const BulkTransferSessionFactory& makeSession, const Clock& clock,
                                         Schedule schedule, const SessionConfiguration& configuration,
                                         Seconds phaseSeconds)
    : measurement_(*this, *this, makeSession, clock, std::move(schedule), configuration, phaseSeconds) {}

void SpeedTestController::show() {
    if (!window_) {
        build();
    }
    window_->bringToFront();
    if (!isRunning()) {
        measurement_.start();
    }
}

void SpeedTestController::build() {
    window_ = std::make_unique<PlainWindow>(L(QStringLiteral("Speed Test")), QSize(360, 420));
    window_->setObjectName(QStringLiteral("speedTestWindow"));
    window_->setOnClose([this] { windowWillClose(); });
    QPalette dark;
    dark.setColor(QPalette::Window, panelBackground());
    window_->setPalette(dark);
    window_->setAutoFillBackground(true);

    gauge_ = new GaugeView(QSize(360, 300));
    gauge_->setObjectName(QStringLiteral("gauge"));
    const int overhang = gauge_->height() - 300;
    window_->place(gauge_, {0, 110 - overhang, 360, 300 + overhang});
    addColumn(QStringLiteral("https"), L(QStringLiteral("HTTPS")));
    addColumn(QStringLiteral("download"), L(QStringLiteral("DOWNLOAD")));
    addColumn(QStringLiteral("upload"), L(QStringLiteral("UPLOAD")));
    runButton_ = new PanelButton(QStringLiteral("runButton"), L(QStringLiteral("Run Again")), systemFont(13));
    runButton_->setEnabled(false);
    QObject::connect(runButton_, &QPushButton::clicked, window_.get(), [this] { runAgain(); });
    window_->place(runButton_, {120, 14, 120, 32});
}

void SpeedTestController::addColumn(const QString& name, const QString& title) {
    const int x = 20 + 110 * static_cast<int>(resultLabels_.size());
    auto* caption =
        new PanelLabel(name + QStringLiteral("Caption"), title, systemFont(9, QFont::Bold), whiteWithAlpha(0.5));
    window_->place(caption, {x, 82, 100, 14});
    auto* value = new PanelLabel(name + QStringLiteral("Value"), QString(), systemFont(17, QFont::DemiBold), Qt::white);
    window_->place(value, {x, 56, 100, 24});
    // Assistive technologies read the caption with the value.
    caption->setBuddy(value);
    resultLabels_.push_back(value);
    captions_.push_back(title);
    setResult(static_cast<ResultColumn>(resultLabels_.size() - 1), SpeedTestMeasurement::unknownResult());
}

void SpeedTestController::setResult(ResultColumn column, const QString& text) {
    auto* label = resultLabels_.at(static_cast<std::size_t>(column));
    label->setText(text);
    // To a screen reader a dash says nothing, and the unit stands on the gauge, which is not read with the result.
    const bool isSpeed = column != ResultColumn::https && text.front().isDigit();
    label->setAccessibleName(text == SpeedTestMeasurement::unknownResult() ? L(QStringLiteral("not run yet"))
                             : isSpeed                                     ? text + QStringLiteral(" Mbps")
                                                                           : text);
}

void SpeedTestController::setRunEnabled(bool enabled) {
    if (!window_) {
        return;
    }
    // Read out with the button when it takes the focus.
    QStringList figures;
    for (std::size_t i = 0; i < resultLabels_.size(); ++i) {
        figures.append(captions_.at(static_cast<qsizetype>(i)) + u' ' + resultLabels_[i]->accessibleName());
    }
    runButton_->setAccessibleDescription(enabled ? figures.join(QStringLiteral(", ")) : QString());
    runButton_->setEnabled(enabled);
    // A disabled button loses the keyboard focus, and no other widget of the window takes it.
    if (enabled) {
        runButton_->setFocus();
    }
}

void SpeedTestController::setGaugePhase(const QString& phase) {
    gauge_->setPhase(phase);
    gauge_->update();
}

void SpeedTestController::setGaugeAccent(const GaugeColor& accent) {
    gauge_->setAccent(toColor(accent));
    gauge_->update();
}

void SpeedTestController::setGaugeValue(double speed) {
    gauge_->setValue(speed);
    gauge_->update();
}

void SpeedTestController::stopGaugeAnimation() {
    if (window_) {
        gauge_->stopAnimation();
    }
}

} // namespace skylet
