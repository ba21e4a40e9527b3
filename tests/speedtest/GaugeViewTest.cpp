#include "speedtest/GaugeScale.h"
#include "speedtest/SpeedTest.h"
#include "support/EventLoop.h"
#include "support/QStringPrinting.h"
#include "ui/Fonts.h"
#include "ui/Picture.h"
#include "ui/TextPicture.h"
#include "ui/Widgets.h"

#include <QAccessible>
#include <QBackingStore>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QImage>
#include <QPaintEvent>
#include <QPointer>
#include <QTimer>
#include <QTimerEvent>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <numbers>
#include <utility>
#include <vector>

namespace skylet {
namespace {

using namespace std::chrono_literals;
using test::PaintCounter;
using test::Picture;
using test::runFor;

constexpr QSize bounds{360, 300};
// Where the dial lies in those bounds, y downward.
constexpr QPointF center{180, 160};
constexpr double radius = 108;
constexpr QRectF numberArea{0, 250, 360, 48};
constexpr QRectF unitArea{0, 300, 360, 14};
// Between the labels of 10 and 100.
constexpr QRectF captionArea{145, 106.2, 70, 16};

constexpr QColor background{20, 23, 31};
constexpr QColor green{51, 212, 115};
constexpr QColor blue{89, 158, 255};
// White with an alpha of 0.1 on the background.
constexpr QColor track{44, 46, 53};

QPointF polar(double degrees, double distance) {
    const double radians = degrees * std::numbers::pi / 180;
    return center + QPointF(distance * std::cos(radians), -distance * std::sin(radians));
}

/// Of any colour part of any pixel.
int largestDifference(const QImage& a, const QImage& b) {
    if (a.size() != b.size()) {
        return 255;
    }
    int largest = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const QRgb first = a.pixel(x, y);
            const QRgb second = b.pixel(x, y);
            largest = std::max({largest, std::abs(qRed(first) - qRed(second)), std::abs(qGreen(first) - qGreen(second)),
                                std::abs(qBlue(first) - qBlue(second))});
        }
    }
    return largest;
}

/// How many logical pixels of a widget are painted at once.
class PaintedArea final : public QObject {
  public:
    explicit PaintedArea(QWidget& widget) { widget.installEventFilter(this); }
    int largest = 0;

  protected:
    bool eventFilter(QObject* /*watched*/, QEvent* event) override {
        if (event->type() == QEvent::Paint) {
            int area = 0;
            for (const QRect& part : static_cast<QPaintEvent*>(event)->region()) {
                area += part.width() * part.height();
            }
            largest = std::max(largest, area);
        }
        return false;
    }
};

class GaugeViewTest : public testing::Test {
  protected:
    void showWindow() {
        window.show();
        runFor(20ms);
    }
    void paint(double value) { gauge->setValue(value); }

    /// The direction in which the needle points, in degrees counter-clockwise from the right.
    double needleAngle() {
        QPointF sum;
        Picture(*gauge).forEach(QRectF(QPointF(0, 0), bounds), [&sum](QPointF place, const QColor& color) {
            const QPointF fromCenter = place - center;
            const double distance = std::hypot(fromCenter.x(), fromCenter.y());
            // Clear of the hub, the caption, and the number beneath the dial.
            if (distance > 10 && distance < 84 && place.y() < numberArea.top() &&
                Picture::isNear(color, Qt::white, 40)) {
                sum += fromCenter;
            }
        });
        return std::atan2(-sum.y(), sum.x()) * 180 / std::numbers::pi;
    }

    /// The values that the gauge takes on one after the other until it is at rest.
    std::vector<double> valuesUntilAtRest() {
        std::vector<double> values;
        const QDeadlineTimer limit(1min);
        double last = gauge->value();
        while (gauge->animationIsRunning() && !limit.hasExpired()) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
            if (gauge->value() != last) {
                last = gauge->value();
                values.push_back(last);
            }
        }
        return values;
    }

    QTimer& frameTimer() const { return *gauge->findChild<QTimer*>(); }

    /// Of all parts of all pixels, from 0 to 255.
    static double averageDifference(const QImage& a, const QImage& b) {
        double sum = 0;
        for (int y = 0; y < a.height(); ++y) {
            for (int x = 0; x < a.width(); ++x) {
                const QColor one = a.pixelColor(x, y);
                const QColor other = b.pixelColor(x, y);
                sum += std::abs(one.red() - other.red()) + std::abs(one.green() - other.green()) +
                       std::abs(one.blue() - other.blue());
            }
        }
        return sum / (3.0 * a.width() * a.height());
    }

    /// What the window shows, with all that was painted there one over the other.
    QImage onScreen() const {
        const auto* painted = dynamic_cast<QImage*>(window.backingStore()->paintDevice());
        return painted != nullptr ? painted->copy() : QImage();
    }

    QWidget window;
    GaugeView* gauge = new GaugeView(bounds, &window);
};

TEST_F(GaugeViewTest, IsReadyAtFirst) {
    EXPECT_EQ(gauge->value(), 0);
    EXPECT_EQ(gauge->target(), 0);
    EXPECT_EQ(gauge->phase(), QStringLiteral("READY"));
    EXPECT_EQ(gauge->accent().rgb(), green.rgb());
    EXPECT_FALSE(gauge->animationIsRunning());
}

TEST_F(GaugeViewTest, ReachesBelowItsFrameAsFarAsTheUnitDoes) {
    EXPECT_EQ(gauge->size(), QSize(360, 314));
    const Picture picture(*gauge);
    EXPECT_EQ(picture.deviceSize(), QSize(360, 314) * picture.scale());
    const QRectF unit = picture.extentOtherThan(unitArea, background);
    ASSERT_FALSE(unit.isNull());
    EXPECT_NEAR(unit.center().x(), 180, 1.5);
    EXPECT_GT(unit.width(), 20);
    // Capitals and descenders whole, with room to spare for the captions beneath.
    EXPECT_GE(unit.top(), 300);
    EXPECT_LE(unit.bottom(), 313.6);
}

TEST_F(GaugeViewTest, StaysWithinAFrameThatHasRoomForTheUnit) {
    EXPECT_EQ(GaugeView(QSize(300, 600)).size(), QSize(300, 600));
}

TEST_F(GaugeViewTest, FillsItsBackground) {
    const Picture picture(*gauge);
    for (const QPointF corner : {QPointF(1, 1), QPointF(358, 1), QPointF(1, 298), QPointF(358, 298)}) {
        EXPECT_EQ(picture.at(corner).rgb(), background.rgb());
    }
}

TEST_F(GaugeViewTest, DrawsTheTrackOverTheTop) {
    const Picture picture(*gauge);
    for (const double angle : {-44.0, 0.0, 45.0, 90.0, 135.0, 180.0, 224.0}) {
        EXPECT_TRUE(Picture::isNear(picture.at(polar(angle, radius)), track, 2)) << angle;
    }
    // The ends are round, and the lower quarter is open.
    EXPECT_TRUE(Picture::isNear(picture.at(polar(-47, radius)), track, 2));
    EXPECT_EQ(picture.at(polar(-52, radius)).rgb(), background.rgb());
    EXPECT_EQ(picture.at(polar(232, radius)).rgb(), background.rgb());
    // 14 wide.
    EXPECT_TRUE(Picture::isNear(picture.at(polar(90, radius + 6)), track, 2));
    EXPECT_TRUE(Picture::isNear(picture.at(polar(90, radius - 6)), track, 2));
    EXPECT_EQ(picture.at(polar(90, radius + 9)).rgb(), background.rgb());
}

TEST_F(GaugeViewTest, EndsTheArcAtTheValue) {
    for (const double value : {0.3, 1.0, 7.0, 30.0, 50.0, 320.0, 1000.0}) {
        paint(value);
        const Picture picture(*gauge);
        const double end = gauge::angle(value);
        EXPECT_TRUE(Picture::isNear(picture.at(polar(225, radius)), green, 2)) << value;
        EXPECT_TRUE(Picture::isNear(picture.at(polar((225 + end) / 2, radius)), green, 2)) << value;
        EXPECT_TRUE(Picture::isNear(picture.at(polar(end + 0.5, radius)), green, 2)) << value;
        // The round end reaches half the line's width further: 3.7 degrees.
        EXPECT_TRUE(Picture::isNear(picture.at(polar(end - 2.5, radius)), green, 2)) << value;
        EXPECT_FALSE(Picture::isNear(picture.at(polar(end - 4.5, radius)), green, 30)) << value;
    }
}

TEST_F(GaugeViewTest, DrawsNoArcAtZero) {
    for (const double value : {0.0, 0.034, -3.0}) {
        paint(value);
        EXPECT_TRUE(Picture::isNear(Picture(*gauge).at(polar(225, radius)), track, 2)) << value;
    }
    paint(0.037);
    EXPECT_TRUE(Picture::isNear(Picture(*gauge).at(polar(225, radius)), green, 2));
}

TEST_F(GaugeViewTest, GoesOnPastTheEndOfTheTrack) {
    paint(5000);
    const Picture picture(*gauge);
    EXPECT_TRUE(Picture::isNear(picture.at(polar(-60, radius)), green, 2));
    EXPECT_EQ(picture.at(polar(-125, radius)).rgb(), background.rgb());
    EXPECT_NEAR(needleAngle(), -107.9, 1);
}

TEST_F(GaugeViewTest, PointsTheNeedleAtTheValue) {
    for (const double value : {0.0, 1.0, 3.0, 22.0, 70.0, 200.0, 1000.0}) {
        paint(value);
        const double difference = std::remainder(needleAngle() - gauge::angle(value), 360);
        EXPECT_NEAR(difference, 0, 1) << value;
    }
    paint(-3);
    EXPECT_NEAR(std::remainder(needleAngle() - 225, 360), 0, 1);
}

TEST_F(GaugeViewTest, EndsTheNeedleShortOfTheTicks) {
    paint(std::sqrt(1001) - 1);
    const Picture picture(*gauge);
    EXPECT_TRUE(Picture::isNear(picture.at(center - QPointF(0.25, 20)), Qt::white, 2));
    const QRectF needle = picture.extent(QRectF(176, 60, 8, 60),
                                         [](const QColor& color) { return Picture::isNear(color, Qt::white, 120); });
    // The very tip is thinner than a pixel.
    EXPECT_GE(needle.top(), 160 - 84);
    EXPECT_LE(needle.top(), 160 - 84 + 16);
}

TEST_F(GaugeViewTest, DrawsTicksBetweenTheArcAndTheirLabels) {
    paint(1000);
    const Picture picture(*gauge);
    for (const int tick : {0, 1, 5, 10, 50, 100, 500}) {
        const double angle = gauge::angle(tick);
        const QPointF label = polar(angle, radius - 34);
        EXPECT_GT(picture.at(polar(angle, radius - 17)).lightness(), 50) << tick;
        EXPECT_LT(picture.at(polar(angle + 4, radius - 17)).lightness(), 40) << tick;
        const QRectF text = picture.extentOtherThan(QRectF(label - QPointF(12, 7), QSizeF(24, 14)), background);
        ASSERT_FALSE(text.isNull()) << tick;
        EXPECT_NEAR(text.center().x(), label.x(), 2) << tick;
        EXPECT_NEAR(text.center().y(), label.y(), 2.5) << tick;
    }
}

TEST_F(GaugeViewTest, DrawsHubArcAndCaptionInItsAccent) {
    gauge->setAccent(blue);
    paint(3);
    const Picture picture(*gauge);
    EXPECT_TRUE(Picture::isNear(picture.at(center), blue, 2));
    EXPECT_TRUE(Picture::isNear(picture.at(center + QPointF(4.5, 0)), blue, 2));
    EXPECT_FALSE(Picture::isNear(picture.at(center + QPointF(7, 0)), blue, 60));
    EXPECT_TRUE(Picture::isNear(picture.at(polar(200, radius)), blue, 2));
    const QRectF caption =
        picture.extent(captionArea, [](const QColor& color) { return Picture::isNear(color, blue, 60); });
    ASSERT_FALSE(caption.isNull());
    EXPECT_NEAR(caption.center().x(), 180, 3);
}

TEST_F(GaugeViewTest, ShowsTheCaptionAsItStands) {
    const auto captionWidth = [this] {
        return Picture(*gauge)
            .extent(captionArea, [](const QColor& color) { return Picture::isNear(color, green, 60); })
            .width();
    };
    const double ready = captionWidth();
    gauge->setPhase(QStringLiteral("LONGER"));
    EXPECT_GT(captionWidth(), 1.1 * ready);
    gauge->setPhase(QString());
    EXPECT_EQ(captionWidth(), 0);
}

TEST_F(GaugeViewTest, WritesTheNumberInTheMiddleUnderTheDial) {
    for (const double value : {0.0, 48.2, 1000.0, -3.0}) {
        paint(value);
        const QRectF number = Picture(*gauge).extentOtherThan(numberArea, background);
        ASSERT_FALSE(number.isNull()) << value;
        EXPECT_NEAR(number.center().x(), 180, 3) << value;
        EXPECT_NEAR(number.height(), 30, 5) << value;
        EXPECT_GT(number.top(), numberArea.top()) << value;
        EXPECT_LT(number.bottom(), numberArea.bottom()) << value;
    }
}

TEST_F(GaugeViewTest, WritesItsTextsInTheirSizesAndWeights) {
    const Picture picture(*gauge);
    const auto expectLike = [&picture](const QRectF& area, const char16_t* text, const QFont& font,
                                       const QColor& color) {
        SCOPED_TRACE(QString::fromUtf16(text).toStdString());
        const auto inFont = test::textPicture(QString::fromUtf16(text), font, color, background);
        EXPECT_NEAR(test::ink(picture, area, color, background), inFont.ink, 0.06 * inFont.ink);
        EXPECT_NEAR(picture.extentOtherThan(area, background).width(), inFont.size.width(), 1);
        EXPECT_NEAR(picture.extentOtherThan(area, background).height(), inFont.size.height(), 1);
    };
    expectLike(numberArea, u"0.0", systemFont(40, QFont::DemiBold), Qt::white);
    expectLike(unitArea, u"Mbps", systemFont(12, QFont::Medium), QColor(161, 162, 165));
    QFont caption = systemFont(11, QFont::Bold);
    caption.setLetterSpacing(QFont::AbsoluteSpacing, 2);
    expectLike(captionArea, u"READY", caption, green);
    const QPointF label = polar(gauge::angle(500), radius - 34);
    expectLike(QRectF(label - QPointF(13, 7), QSizeF(26, 14)), u"500", systemFont(9, QFont::Medium),
               QColor(138, 139, 143));
}

TEST_F(GaugeViewTest, DoesNotLetTheNumberJitter) {
    const auto extent = [this](double value) {
        paint(value);
        const QRectF number = Picture(*gauge).extentOtherThan(numberArea, background);
        return std::pair(number.left(), number.right());
    };
    const QFont font = QApplication::font();
    // Digits of one width, and of nine different ones.
    for (const char* family : {"Noto Sans", "Cantarell"}) {
        QApplication::setFont(QFont(QString::fromUtf8(family)));
        // The same first and last digit, whatever stands between them.
        EXPECT_EQ(extent(401.0 * 10 + 4), extent(417.0 * 10 + 4)) << family;
        EXPECT_EQ(extent(41.4), extent(48.4)) << family;
    }
    QApplication::setFont(font);
}

TEST_F(GaugeViewTest, SurvivesWhatIsNoNumber) {
    paint(std::nan(""));
    EXPECT_NEAR(std::remainder(needleAngle() - 225, 360), 0, 1);
    paint(HUGE_VAL);
    EXPECT_FALSE(Picture(*gauge).extentOtherThan(numberArea, background).isNull());
}

TEST_F(GaugeViewTest, MovesTowardsTheTargetAndSnaps) {
    showWindow();
    gauge->setTarget(100);
    EXPECT_TRUE(gauge->animationIsRunning());
    EXPECT_EQ(gauge->value(), 0);
    QElapsedTimer clock;
    clock.start();
    const std::vector<double> values = valuesUntilAtRest();
    // Thirty a second, and never sooner. How late they may be is up to the machine.
    EXPECT_GE(clock.elapsed(), 39 * 1000 / 30);
    ASSERT_EQ(values.size(), 40U);
    double expected = 0;
    for (std::size_t i = 0; i < 39; ++i) {
        expected += (100 - expected) * 0.18;
        EXPECT_DOUBLE_EQ(values[i], expected) << i;
    }
    EXPECT_EQ(values.back(), 100);
    EXPECT_FALSE(gauge->animationIsRunning());
}

TEST_F(GaugeViewTest, IsDueThirtyTimesASecond) {
    showWindow();
    QElapsedTimer clock;
    clock.start();
    gauge->setTarget(1000);
    for (int frame = 1; frame <= 30; ++frame) {
        // Each frame is made to come at once. The one that is waited for is due at its time since the start all the
        // same, or earlier if the machine has been so slow that frames were missed.
        const double due = frame * 1000.0 / 30;
        ASSERT_LE(frameTimer().interval(), std::ceil(due));
        ASSERT_GE(frameTimer().interval(), due - static_cast<double>(clock.nsecsElapsed()) / 1e6);
        const double before = gauge->value();
        QTimerEvent runsOut(frameTimer().timerId());
        QCoreApplication::sendEvent(&frameTimer(), &runsOut);
        ASSERT_GT(gauge->value(), before);
    }
}

TEST_F(GaugeViewTest, RepaintsWithEachTickAndThenRests) {
    showWindow();
    const PaintCounter paints(*gauge);
    gauge->setTarget(1);
    const auto ticks = static_cast<int>(valuesUntilAtRest().size());
    runFor(20ms);
    // Two ticks that a busy machine lets follow close upon each other are painted as one.
    const int painted = paints.count;
    EXPECT_LE(painted, ticks);
    EXPECT_GT(painted, ticks / 2);
    runFor(150ms);
    EXPECT_EQ(paints.count, painted);
}

TEST_F(GaugeViewTest, LeavesNothingOfAnEarlierFrameOnTheScreen) {
    showWindow();
    // Slowly, fast, below the least arc, past the end of the scale, and through the number and the caption.
    for (const double target : {3.0, 700.0, 0.01, 5000.0, 48.2, 47.0, -3.0, 30.0}) {
        gauge->setTarget(target);
        for (int frame = 0; gauge->animationIsRunning(); ++frame) {
            const double before = gauge->value();
            while (gauge->value() == before && gauge->animationIsRunning()) {
                QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
            }
            if (frame == 4) {
                gauge->setPhase(QStringLiteral("PHASE %1").arg(target));
                gauge->setAccent(gauge->accent() == blue ? green : blue);
            } else if (frame % 5 == 0) {
                test::settle();
                ASSERT_EQ(largestDifference(onScreen(), window.grab().toImage()), 0)
                    << gauge->value() << " on the way to " << target;
            }
        }
    }
}

TEST_F(GaugeViewTest, FollowsTheDesktopsFont) {
    showWindow();
    const QFont font = QApplication::font();
    const QImage before = onScreen();
    QApplication::setFont(QFont(QStringLiteral("DejaVu Serif")));
    test::settle();
    EXPECT_NE(onScreen(), before);
    EXPECT_EQ(largestDifference(onScreen(), window.grab().toImage()), 0);
    QApplication::setFont(font);
    test::settle();
    EXPECT_EQ(onScreen(), before);
}

TEST_F(GaugeViewTest, PaintsOfAFrameWhatChanges) {
    showWindow();
    gauge->setValue(40);
    gauge->update();
    gauge->setTarget(60);
    runFor(100ms);
    const PaintedArea painted(*gauge);
    valuesUntilAtRest();
    test::settle();
    EXPECT_GT(painted.largest, 0);
    EXPECT_LT(painted.largest, gauge->width() * gauge->height() / 4);
}

TEST_F(GaugeViewTest, PicksUpANewTargetOnTheWay) {
    showWindow();
    gauge->setTarget(100);
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    while (gauge->value() == 0) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    EXPECT_DOUBLE_EQ(gauge->value(), 18);
    gauge->setTarget(10);
    const std::vector<double> values = valuesUntilAtRest();
    // One step at a time: a second timer would take two.
    ASSERT_FALSE(values.empty());
    EXPECT_DOUBLE_EQ(values.front(), 18 + (10 - 18) * 0.18);
    EXPECT_EQ(values.back(), 10);
}

TEST_F(GaugeViewTest, DoesNotMoveForASmallGap) {
    showWindow();
    const PaintCounter paints(*gauge);
    gauge->setTarget(0.05);
    EXPECT_FALSE(gauge->animationIsRunning());
    runFor(60ms);
    EXPECT_EQ(gauge->value(), 0);
    EXPECT_EQ(paints.count, 0);
}

TEST_F(GaugeViewTest, DoesNotMoveWhileHidden) {
    gauge->setTarget(100);
    EXPECT_FALSE(gauge->animationIsRunning());
    showWindow();
    runFor(60ms);
    EXPECT_FALSE(gauge->animationIsRunning());
    EXPECT_EQ(gauge->value(), 0);
    gauge->setTarget(100);
    EXPECT_TRUE(gauge->animationIsRunning());
}

TEST_F(GaugeViewTest, SnapsWhenTheWindowIsHidden) {
    showWindow();
    gauge->setTarget(100);
    window.hide();
    EXPECT_EQ(valuesUntilAtRest(), std::vector<double>{100});
}

TEST_F(GaugeViewTest, SnapsWhenTheWindowIsMinimised) {
    showWindow();
    gauge->setTarget(100);
    window.showMinimized();
    EXPECT_EQ(valuesUntilAtRest(), std::vector<double>{100});
    gauge->setTarget(50);
    EXPECT_FALSE(gauge->animationIsRunning());
}

TEST_F(GaugeViewTest, StaysWhereItIsWhenStopped) {
    showWindow();
    gauge->setTarget(100);
    while (gauge->value() == 0) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    const double value = gauge->value();
    gauge->stopAnimation();
    EXPECT_FALSE(gauge->animationIsRunning());
    const PaintCounter paints(*gauge);
    runFor(100ms);
    EXPECT_EQ(gauge->value(), value);
    EXPECT_LE(paints.count, 1);
}

TEST_F(GaugeViewTest, LeavesRepaintingToItsOwner) {
    showWindow();
    const PaintCounter paints(*gauge);
    gauge->setValue(50);
    gauge->setPhase(QStringLiteral("DOWNLOAD"));
    gauge->setAccent(blue);
    runFor(60ms);
    EXPECT_EQ(paints.count, 0);
}

TEST_F(GaugeViewTest, CanGoInMidAnimation) {
    showWindow();
    gauge->setTarget(100);
    const QPointer<QTimer> frames = &frameTimer();
    delete gauge;
    EXPECT_TRUE(frames.isNull());
    runFor(60ms);
}

TEST_F(GaugeViewTest, TellsItsValueAndPhaseInWords) {
    gauge->setObjectName(QStringLiteral("gauge"));
    gauge->setPhase(QStringLiteral("DOWNLOAD"));
    gauge->setTarget(48.2123);
    ASSERT_EQ(gauge->value(), 0) << "what was measured is told, wherever the needle is";
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(gauge);
    ASSERT_NE(accessible, nullptr);
    EXPECT_EQ(accessible->role(), QAccessible::Dial);
    EXPECT_EQ(accessible->text(QAccessible::Name), QStringLiteral("Speed Test"));
    EXPECT_EQ(accessible->text(QAccessible::Description), QStringLiteral("48.2 Mbps, DOWNLOAD"));
    EXPECT_EQ(accessible->valueInterface(), nullptr) << "Qt would offer to increase and decrease it";
}

TEST_F(GaugeViewTest, DrawsEverythingLargerInALargerFrame) {
    gauge->setValue(48.2);
    const QImage usual = gauge->grab().toImage();
    gauge->resize(gauge->size() * 1.5);
    const QImage large = gauge->grab().toImage();
    ASSERT_EQ(large.size(), usual.size() * 1.5);
    const QImage shrunk = large.scaled(usual.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    EXPECT_LT(averageDifference(shrunk, usual), 2) << "of 255";
    // What is painted again as it moves looks as if it had been drawn at once.
    window.resize(gauge->size());
    window.show();
    runFor(60ms);
    for (const double target : {3.0, 170.0}) {
        gauge->setValue(target - 1);
        gauge->update();
        gauge->setTarget(target);
        ASSERT_TRUE(test::waitUntil([this] { return !gauge->animationIsRunning(); }));
        test::settle();
        const QImage moved = onScreen();
        gauge->repaint();
        EXPECT_EQ(moved, onScreen()) << target;
    }
}

} // namespace
} // namespace skylet
