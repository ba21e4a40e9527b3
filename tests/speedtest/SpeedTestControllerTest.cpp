#include "speedtest/SpeedTest.h"
#include "support/EventLoop.h"
#include "support/FakeBulkTransfers.h"
#include "support/FakeClock.h"
#include "support/FakeSchedule.h"
#include "support/QStringPrinting.h"
#include "ui/Picture.h"
#include "ui/TextPicture.h"
#include "ui/Widgets.h"

#include <QAccessible>
#include <QLabel>
#include <QPushButton>
#include <QTest>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <optional>
#include <vector>

namespace skylet {
namespace {

using End = BulkTransferResult::End;
using test::Picture;
using test::windowsNamed;
using testing::ElementsAre;

const auto dash = QStringLiteral("—");
constexpr QColor panelColor{20, 23, 31};

/// What translucent white looks like on the panel.
QColor whiteOnPanel(double alpha) {
    const auto part = [alpha](int behind) { return static_cast<int>(std::lround(alpha * 255 + (1 - alpha) * behind)); };
    return {part(panelColor.red()), part(panelColor.green()), part(panelColor.blue())};
}

class SpeedTestControllerTest : public testing::Test {
  protected:
    SpeedTestControllerTest() {
        controller->onStarted = [this] { reports += QStringLiteral("started"); };
        controller->onCancelled = [this] { reports += QStringLiteral("cancelled"); };
        controller->onFinished = [this](std::optional<double> down, std::optional<double> up) {
            reports += QStringLiteral("finished");
            finished = {down, up};
        };
    }
    void TearDown() override { QApplication::setPalette(QPalette()); }

    void show() {
        controller->show();
        ASSERT_TRUE(test::waitUntil([this] { return window().isActiveWindow(); }));
    }
    QWidget& window() const { return *windowsNamed(QStringLiteral("speedTestWindow")).at(0); }
    QLabel& label(const QString& name) const { return *window().findChild<QLabel*>(name); }
    QPushButton& button() const { return *window().findChild<QPushButton*>(QStringLiteral("runButton")); }
    GaugeView& gauge() const { return *window().findChild<GaugeView*>(QStringLiteral("gauge")); }
    QStringList values() const {
        return {label(QStringLiteral("httpsValue")).text(), label(QStringLiteral("downloadValue")).text(),
                label(QStringLiteral("uploadValue")).text()};
    }

    /// Ends the phase under way after 4 s with that many bytes moved.
    void endPhase(std::int64_t bytes, int status = 200) {
        clock.uptime += Seconds(4.0);
        transfers.last().isUpload ? transfers.send(bytes) : transfers.receive(bytes);
        transfers.complete(End::finished, status);
    }
    void runWholeTest() {
        endPhase(24'000'000);
        schedule.fire();
        endPhase(5'000'000);
    }

    test::FakeBulkTransfers transfers;
    test::FakeClock clock;
    test::FakeSchedule schedule;
    QStringList reports;
    std::pair<std::optional<double>, std::optional<double>> finished;
    std::unique_ptr<SpeedTestController> controller =
        std::make_unique<SpeedTestController>(transfers.factory(), clock, schedule);
};

TEST_F(SpeedTestControllerTest, MakesNoWindowBeforeItIsShown) {
    controller->cancel();
    EXPECT_TRUE(windowsNamed(QStringLiteral("speedTestWindow")).isEmpty());
    EXPECT_TRUE(reports.isEmpty());
    EXPECT_EQ(transfers.configurations.size(), 1U);
}

TEST_F(SpeedTestControllerTest, MakesItsWindowOnce) {
    show();
    QWidget* first = &window();
    first->close();
    show();
    EXPECT_THAT(windowsNamed(QStringLiteral("speedTestWindow")), ElementsAre(first));
    EXPECT_EQ(first->findChildren<QLabel*>().size(), 6);
    EXPECT_EQ(first->findChildren<QPushButton*>().size(), 1);
}

TEST_F(SpeedTestControllerTest, PutsEverythingInItsPlace) {
    show();
    EXPECT_EQ(window().windowTitle(), QStringLiteral("Speed Test"));
    EXPECT_EQ(window().size(), QSize(360, 420));
    EXPECT_EQ(gauge().geometry(), QRect(0, 10, 360, 314));
    EXPECT_EQ(label(QStringLiteral("httpsCaption")).geometry(), QRect(20, 324, 100, 14));
    EXPECT_EQ(label(QStringLiteral("downloadCaption")).geometry(), QRect(130, 324, 100, 14));
    EXPECT_EQ(label(QStringLiteral("uploadCaption")).geometry(), QRect(240, 324, 100, 14));
    EXPECT_EQ(label(QStringLiteral("httpsValue")).geometry(), QRect(20, 340, 100, 24));
    EXPECT_EQ(label(QStringLiteral("downloadValue")).geometry(), QRect(130, 340, 100, 24));
    EXPECT_EQ(label(QStringLiteral("uploadValue")).geometry(), QRect(240, 340, 100, 24));
    EXPECT_EQ(button().geometry(), QRect(120, 374, 120, 32));
    EXPECT_EQ(label(QStringLiteral("httpsCaption")).text(), QStringLiteral("HTTPS"));
    EXPECT_EQ(label(QStringLiteral("downloadCaption")).text(), QStringLiteral("DOWNLOAD"));
    EXPECT_EQ(label(QStringLiteral("uploadCaption")).text(), QStringLiteral("UPLOAD"));
    EXPECT_EQ(button().text(), QStringLiteral("Run Again"));
}

TEST_F(SpeedTestControllerTest, WritesItsTextsInTheirSizesAndWeights) {
    show();
    for (const auto& column : {QStringLiteral("https"), QStringLiteral("download"), QStringLiteral("upload")}) {
        test::expectFont(label(column + QStringLiteral("Caption")), 9, QFont::Bold, whiteOnPanel(0.5), panelColor);
        test::expectFont(label(column + QStringLiteral("Value")), 17, QFont::DemiBold, Qt::white, panelColor);
    }
    EXPECT_EQ(button().font().pixelSize(), 13);
    EXPECT_EQ(button().font().weight(), QFont::Normal);
}

TEST_F(SpeedTestControllerTest, DoesNotLetTheResultsJitter) {
    const QFont font = QApplication::font();
    QApplication::setFont(QFont(QStringLiteral("Cantarell")));
    show();
    const auto extent = [this](const QString& text) {
        label(QStringLiteral("downloadValue")).setText(text);
        const QRectF found = Picture(window()).extentOtherThan(QRectF(130, 340, 100, 24), panelColor);
        return std::pair(found.left(), found.right());
    };
    EXPECT_EQ(extent(QStringLiteral("411.4")), extent(QStringLiteral("488.4")));
    QApplication::setFont(font);
}

TEST_F(SpeedTestControllerTest, PaintsItsButtonAnewWhenItCanBePressed) {
    show();
    test::settle();
    const test::PaintCounter paints(button());
    button().setEnabled(true);
    EXPECT_TRUE(test::waitUntil([&paints] { return paints.count > 0; }));
}

TEST_F(SpeedTestControllerTest, CanBeClosedButNeitherResizedNorMinimised) {
    show();
    EXPECT_EQ(window().minimumSize(), window().maximumSize());
    EXPECT_TRUE(window().windowFlags() & Qt::WindowCloseButtonHint);
    EXPECT_FALSE(window().windowFlags() & (Qt::WindowMinMaxButtonsHint | Qt::WindowFullscreenButtonHint));
}

TEST_F(SpeedTestControllerTest, StandsInTheMiddleOfTheScreen) {
    show();
    const QPoint difference = window().geometry().center() - window().screen()->availableGeometry().center();
    EXPECT_LE(difference.manhattanLength(), 2);
}

TEST_F(SpeedTestControllerTest, StaysWhereTheUserPutIt) {
    show();
    window().move(17, 23);
    window().close();
    show();
    EXPECT_EQ(window().pos(), QPoint(17, 23));
}

TEST_F(SpeedTestControllerTest, IsDarkWhateverTheDesktop) {
    for (const QColor desktop : {QColor(Qt::white), QColor(Qt::black)}) {
        QApplication::setPalette(QPalette(desktop));
        show();
        const Picture picture(window());
        for (const QPointF place :
             {QPointF(2, 2), QPointF(357, 2), QPointF(2, 417), QPointF(357, 417), QPointF(60, 319)}) {
            EXPECT_EQ(picture.at(place).rgb(), panelColor.rgb()) << desktop.name().toStdString();
        }
        const QRectF value =
            picture.extent(QRectF(20, 340, 100, 24), [](const QColor& color) { return color.lightness() > 240; });
        EXPECT_FALSE(value.isNull()) << desktop.name().toStdString();
    }
}

TEST_F(SpeedTestControllerTest, ShowsTheUnitBetweenTheNumberAndTheCaptions) {
    show();
    const Picture picture(window());
    const QRectF unit = picture.extentOtherThan(QRectF(140, 310, 80, 15), panelColor);
    ASSERT_FALSE(unit.isNull());
    EXPECT_NEAR(unit.center().x(), 180, 1.5);
    EXPECT_GT(unit.height(), 8);
    // A clear line between it and the caption of the column beneath.
    EXPECT_TRUE(picture.extentOtherThan(QRectF(140, unit.bottom() + 0.5, 80, 1.5), panelColor).isNull());
}

TEST_F(SpeedTestControllerTest, StartsATestWhenItIsShown) {
    controller->setLatencyMs(38);
    show();
    EXPECT_THAT(reports, ElementsAre(QStringLiteral("started")));
    EXPECT_TRUE(controller->isRunning());
    EXPECT_THAT(values(), ElementsAre(QStringLiteral("38 ms"), dash, dash));
    EXPECT_FALSE(button().isEnabled());
    EXPECT_EQ(gauge().phase(), QStringLiteral("DOWNLOAD"));
    EXPECT_EQ(gauge().accent().rgb(), QColor(51, 212, 115).rgb());
    ASSERT_EQ(schedule.pending().size(), 1U);
    EXPECT_EQ(schedule.pending().front()->interval, Seconds(4.0));
}

TEST_F(SpeedTestControllerTest, ShowsNoLatencyWhereNoneIsKnown) {
    show();
    EXPECT_THAT(values(), ElementsAre(dash, dash, dash));
}

TEST_F(SpeedTestControllerTest, OnlyComesToTheFrontDuringATest) {
    show();
    controller->show();
    EXPECT_THAT(reports, ElementsAre(QStringLiteral("started")));
    EXPECT_EQ(transfers.tasks.size(), 1U);
}

TEST_F(SpeedTestControllerTest, MovesTheGaugeTowardsTheRate) {
    show();
    transfers.receive(1000);
    clock.uptime += Seconds(0.5);
    transfers.receive(3'000'000);
    EXPECT_DOUBLE_EQ(gauge().target(), 48);
    EXPECT_TRUE(gauge().animationIsRunning());
    EXPECT_EQ(gauge().value(), 0);
}

TEST_F(SpeedTestControllerTest, ShowsBothPhasesAndTheirResults) {
    show();
    endPhase(24'000'000);
    EXPECT_THAT(values(), ElementsAre(dash, QStringLiteral("48.0"), dash));
    EXPECT_DOUBLE_EQ(gauge().target(), 48);
    gauge().setValue(48);
    schedule.fire();
    EXPECT_EQ(gauge().phase(), QStringLiteral("UPLOAD"));
    EXPECT_EQ(gauge().accent().rgb(), QColor(89, 158, 255).rgb());
    EXPECT_EQ(gauge().value(), 0);
    endPhase(5'000'000);
    EXPECT_THAT(values(), ElementsAre(dash, QStringLiteral("48.0"), QStringLiteral("10.0")));
    EXPECT_EQ(gauge().phase(), QStringLiteral("DONE"));
    EXPECT_DOUBLE_EQ(gauge().target(), 10);
    EXPECT_TRUE(button().isEnabled());
    EXPECT_THAT(reports, ElementsAre(QStringLiteral("started"), QStringLiteral("finished")));
    EXPECT_EQ(finished, std::pair(std::optional(48.0), std::optional(10.0)));
}

TEST_F(SpeedTestControllerTest, ShowsThatBothPhasesFailed) {
    show();
    endPhase(0, 500);
    schedule.fire();
    endPhase(0, 403);
    EXPECT_THAT(values(), ElementsAre(dash, QStringLiteral("failed"), QStringLiteral("failed")));
    EXPECT_EQ(finished, std::pair(std::optional<double>(), std::optional<double>()));
}

TEST_F(SpeedTestControllerTest, ShowsTheLastPhaseAlsoWhenTheNeedleStands) {
    show();
    endPhase(0, 500);
    schedule.fire();
    test::settle();
    const auto caption = [this] {
        return Picture(window()).extent(QRectF(145, 116, 70, 16), [](const QColor& color) {
            return Picture::isNear(color, QColor(89, 158, 255), 60);
        });
    };
    const QRectF uploading = caption();
    const test::PaintCounter paints(gauge());
    endPhase(0, 500);
    EXPECT_FALSE(gauge().animationIsRunning());
    EXPECT_TRUE(test::waitUntil([&paints] { return paints.count > 0; }));
    EXPECT_NE(caption(), uploading);
}

TEST_F(SpeedTestControllerTest, RunsAgainAtAClick) {
    show();
    runWholeTest();
    QTest::mouseClick(&button(), Qt::LeftButton);
    EXPECT_THAT(reports, ElementsAre(QStringLiteral("started"), QStringLiteral("finished"), QStringLiteral("started")));
    EXPECT_THAT(values(), ElementsAre(dash, dash, dash));
    EXPECT_FALSE(button().isEnabled());
}

TEST_F(SpeedTestControllerTest, RunsAgainAtReturnAndSpace) {
    show();
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Space, Qt::Key_Enter}) {
        runWholeTest();
        reports.clear();
        // The button has the focus as soon as it can be pressed.
        ASSERT_EQ(QApplication::focusWidget(), &button());
        QTest::keyClick(QApplication::focusWidget(), key);
        EXPECT_THAT(reports, ElementsAre(QStringLiteral("started")));
    }
}

TEST_F(SpeedTestControllerTest, IgnoresKeysAndClicksDuringATest) {
    show();
    QTest::mouseClick(&button(), Qt::LeftButton);
    QTest::keyClick(&window(), Qt::Key_Return);
    QTest::keyClick(&window(), Qt::Key_Space);
    EXPECT_THAT(reports, ElementsAre(QStringLiteral("started")));
    EXPECT_TRUE(window().isVisible());
}

TEST_F(SpeedTestControllerTest, ShowsWhereTheFocusIs) {
    show();
    runWholeTest();
    const QRectF edge(button().geometry().topLeft(), QSizeF(button().width(), 2));
    EXPECT_FALSE(Picture(window()).extentOtherThan(edge, panelColor).isNull());
    button().clearFocus();
    EXPECT_TRUE(Picture(window()).extentOtherThan(edge, panelColor).isNull());
}

TEST_F(SpeedTestControllerTest, EndsTheTestWhenItsWindowIsClosed) {
    show();
    window().close();
    EXPECT_FALSE(window().isVisible());
    EXPECT_FALSE(controller->isRunning());
    EXPECT_EQ(transfers.last().cancels, 1);
    EXPECT_THAT(reports, ElementsAre(QStringLiteral("started"), QStringLiteral("cancelled")));
    EXPECT_TRUE(schedule.pending().empty());
}

TEST_F(SpeedTestControllerTest, EndsTheTestAtEscape) {
    show();
    QTest::keyClick(&window(), Qt::Key_Escape);
    EXPECT_FALSE(window().isVisible());
    EXPECT_THAT(reports, ElementsAre(QStringLiteral("started"), QStringLiteral("cancelled")));
}

TEST_F(SpeedTestControllerTest, BeginsAnewWhenItIsReopened) {
    show();
    endPhase(24'000'000);
    window().close();
    EXPECT_THAT(values(), ElementsAre(dash, QStringLiteral("48.0"), dash));
    controller->setLatencyMs(1);
    show();
    EXPECT_THAT(reports,
                ElementsAre(QStringLiteral("started"), QStringLiteral("cancelled"), QStringLiteral("started")));
    EXPECT_THAT(values(), ElementsAre(QStringLiteral("1 ms"), dash, dash));
}

TEST_F(SpeedTestControllerTest, ReportsNothingWhenItIsClosedAfterATest) {
    show();
    runWholeTest();
    window().close();
    EXPECT_THAT(reports, ElementsAre(QStringLiteral("started"), QStringLiteral("finished")));
}

TEST_F(SpeedTestControllerTest, LeavesTheNeedleWhereItIsWhenItIsCancelled) {
    show();
    endPhase(24'000'000);
    ASSERT_TRUE(test::waitUntil([this] { return gauge().value() > 0; }));
    const double value = gauge().value();
    ASSERT_LT(value, 48);
    controller->cancel();
    EXPECT_FALSE(gauge().animationIsRunning());
    EXPECT_EQ(gauge().value(), value);
    EXPECT_DOUBLE_EQ(gauge().target(), 48);
    EXPECT_TRUE(button().isEnabled());
}

TEST_F(SpeedTestControllerTest, TakesItsWindowAlong) {
    show();
    endPhase(24'000'000);
    controller.reset();
    EXPECT_TRUE(windowsNamed(QStringLiteral("speedTestWindow")).isEmpty());
    EXPECT_THAT(reports, ElementsAre(QStringLiteral("started")));
}

TEST_F(SpeedTestControllerTest, SaysInWordsThatAValueIsNotKnown) {
    show();
    QAccessibleInterface* value = QAccessible::queryAccessibleInterface(&label(QStringLiteral("downloadValue")));
    EXPECT_EQ(value->text(QAccessible::Name), QStringLiteral("not run yet"));
}

TEST_F(SpeedTestControllerTest, SpeaksItsFiguresWithTheButtonThatTakesTheFocus) {
    controller->setLatencyMs(38);
    show();
    QAccessibleInterface* run = QAccessible::queryAccessibleInterface(&button());
    EXPECT_EQ(run->text(QAccessible::Description), QString());
    QString spokenWithFocus;
    QObject::connect(qApp, &QApplication::focusChanged, &window(), [&](QWidget* /*old*/, const QWidget* now) {
        if (now == &button()) {
            spokenWithFocus = run->text(QAccessible::Description);
        }
    });
    endPhase(24'000'000);
    schedule.fire();
    transfers.complete(BulkTransferResult::End::failed, std::nullopt);
    EXPECT_EQ(spokenWithFocus, QStringLiteral("HTTPS 38 ms, DOWNLOAD 48.0 Mbps, UPLOAD failed"));
}

TEST_F(SpeedTestControllerTest, GrowsWithTheDesktopsFont) {
    const QFont usual = QApplication::font();
    QFont large = usual;
    large.setPointSizeF(16.5);
    QApplication::setFont(large);
    show();
    EXPECT_EQ(window().size(), QSize(540, 630));
    EXPECT_EQ(gauge().geometry(), QRect(0, 15, 540, 471));
    EXPECT_EQ(label(QStringLiteral("uploadValue")).geometry(), QRect(360, 510, 150, 36));
    EXPECT_EQ(label(QStringLiteral("uploadValue")).font().pixelSize(), 26);
    QApplication::setFont(usual);
    test::settle();
    EXPECT_EQ(window().size(), QSize(360, 420));
}

TEST_F(SpeedTestControllerTest, TellsWhichCaptionBelongsToAValue) {
    show();
    runWholeTest();
    QAccessibleInterface* value = QAccessible::queryAccessibleInterface(&label(QStringLiteral("downloadValue")));
    EXPECT_EQ(value->text(QAccessible::Name), QStringLiteral("48.0 Mbps"));
    const auto relations = value->relations(QAccessible::Label);
    ASSERT_EQ(relations.size(), 1);
    EXPECT_EQ(relations.front().first->object(), &label(QStringLiteral("downloadCaption")));
    QAccessibleInterface* dialog = QAccessible::queryAccessibleInterface(&window());
    EXPECT_EQ(dialog->role(), QAccessible::Dialog);
    EXPECT_EQ(dialog->text(QAccessible::Name), QStringLiteral("Speed Test"));
}

} // namespace
} // namespace skylet
