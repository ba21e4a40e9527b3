#include "speedtest/SpeedTest.h"
#include "support/EventLoop.h"
#include "support/FakeBulkTransfers.h"
#include "support/FakeClock.h"
#include "support/FakeSchedule.h"
#include "support/QStringPrinting.h"
#include "ui/DesktopWindows.h"
#include "ui/Picture.h"
#include "ui/Strings.h"
#include "ui/Widgets.h"

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <memory>

namespace skylet {
namespace {

using test::Picture;
using test::windowsNamed;

constexpr QColor paper{0xef, 0xef, 0xef};

/// The windows in a process whose user reads Hebrew.
class HebrewWindowsTest : public testing::Test {
  protected:
    HebrewWindowsTest() {
        EXPECT_TRUE(isHebrew()) << "to be run with LANGUAGE=he";
        QApplication::setPalette(QPalette(paper));
    }

    void show(Window& window, const QString& name) {
        window.bringToFront();
        shown = windowsNamed(name).at(0);
        test::settle();
    }
    template <typename Widget = QWidget>
    Widget& find(const char16_t* name) const {
        return *shown->findChild<Widget*>(QString::fromUtf16(name));
    }
    QString text(const char16_t* name) const { return find<QLabel>(name).text(); }
    /// What is drawn of a widget, within it.
    QRectF drawn(const char16_t* name) const {
        QWidget& widget = find(name);
        const Picture picture(widget);
        return picture.extentOtherThan(widget.rect(), picture.at(QPointF(1, widget.height() - 1)));
    }

    DesktopWindows windows;
    std::unique_ptr<WelcomeWindow> welcome = windows.makeWelcomeWindow(true, [] {});
    std::unique_ptr<Window> about = windows.makeAboutWindow([] {});
    QWidget* shown = nullptr;
};

TEST_F(HebrewWindowsTest, WelcomeMirrorsTheBodyAndTheCheckBoxAlone) {
    show(*welcome, QStringLiteral("welcomeWindow"));
    EXPECT_EQ(shown->windowTitle(), QStringLiteral("ברוכים הבאים ל-Skylet"));
    const int shift = shown->height() - 400;
    EXPECT_EQ(find(u"icon").geometry(), QRect(170, 20, 80, 80));
    EXPECT_EQ(find(u"headline").geometry(), QRect(20, 110, 380, 28));
    EXPECT_EQ(find(u"body").geometry(), QRect(30, 145, 360, 150 + shift));
    EXPECT_EQ(find(u"loginBox").geometry(), QRect(30, 312 + shift, 360, 22));
    EXPECT_EQ(find(u"gotItButton").geometry(), QRect(300, 350 + shift, 90, 32));

    EXPECT_EQ(text(u"headline"), QStringLiteral("Skylet נמצא עכשיו בשורת התפריטים"));
    EXPECT_NEAR(drawn(u"headline").center().x(), 190, 3);
    EXPECT_GT(drawn(u"body").right(), 350);
    EXPECT_GT(drawn(u"body").left(), 0);
    EXPECT_GT(drawn(u"loginBox").right(), 350);
    EXPECT_GT(drawn(u"loginBox").left(), 60);
    EXPECT_EQ(find<QPushButton>(u"gotItButton").text(), QStringLiteral("הבנתי"));
}

TEST_F(HebrewWindowsTest, WelcomeHasItsBoxOnTheRight) {
    show(*welcome, QStringLiteral("welcomeWindow"));
    auto& box = find<QCheckBox>(u"loginBox");
    const QImage checked = box.grab().toImage();
    box.setChecked(false);
    const QImage unchecked = box.grab().toImage();
    int changedLeft = 0;
    int changedRight = 0;
    for (int y = 0; y < checked.height(); ++y) {
        for (int x = 0; x < checked.width(); ++x) {
            const bool changed = checked.pixel(x, y) != unchecked.pixel(x, y);
            (x < checked.width() * 9 / 10 ? changedLeft : changedRight) += changed ? 1 : 0;
        }
    }
    EXPECT_EQ(changedLeft, 0);
    EXPECT_GT(changedRight, 0);
}

TEST_F(HebrewWindowsTest, WelcomeBeginsItsHeadlineOnTheRight) {
    show(*welcome, QStringLiteral("welcomeWindow"));
    // "Skylet" stands where Hebrew begins: its y, the only letter there that reaches below the line, is on the right.
    auto& headline = find<QLabel>(u"headline");
    const QRectF whole = drawn(u"headline");
    const double latin = QFontMetricsF(headline.font()).horizontalAdvance(QStringLiteral("Skylet"));
    const Picture picture(headline);
    const auto ink = [](const QColor& color) { return color.lightness() < 140; };
    const QRectF below = picture.extent(QRectF(whole.left(), whole.bottom() - 1, whole.width(), 1), ink);
    ASSERT_FALSE(below.isNull());
    EXPECT_GT(below.center().x(), whole.right() - latin);
}

TEST_F(HebrewWindowsTest, AboutKeepsTheNamesAndTheMiddle) {
    show(*about, QStringLiteral("aboutWindow"));
    EXPECT_EQ(shown->windowTitle(), QStringLiteral("אודות Skylet"));
    EXPECT_EQ(text(u"name"), QStringLiteral("Skylet"));
    EXPECT_EQ(text(u"version"), QStringLiteral("גרסה " SKYLET_VERSION));
    EXPECT_EQ(find<QPushButton>(u"link").text(), QStringLiteral("Powered by Brimlake"));
    EXPECT_EQ(text(u"webSite"), QStringLiteral("brimlake.example"));
    const QRegularExpression copyright(QStringLiteral("^© \\d{4} Brimlake\\. כל הזכויות שמורות\\.$"));
    EXPECT_TRUE(copyright.match(text(u"copyright")).hasMatch());
    EXPECT_TRUE(text(u"tagline").startsWith(QStringLiteral("האם באמת יש אינטרנט?")));
    for (const char16_t* name : {u"name", u"version", u"tagline", u"details", u"language", u"webSite", u"copyright"}) {
        EXPECT_NEAR(drawn(name).center().x(), 160, 4) << QString::fromUtf16(name).toStdString();
    }
}

TEST_F(HebrewWindowsTest, ShowTheirTextsWhole) {
    const auto check = [this] {
        for (const QLabel* label : shown->findChildren<QLabel*>()) {
            const QRect needed =
                label->fontMetrics().boundingRect(QRect(0, 0, label->width(), 10'000), Qt::TextWordWrap, label->text());
            EXPECT_LE(needed.height(), label->height()) << label->text().toStdString();
            EXPECT_LE(needed.width(), label->width()) << label->text().toStdString();
        }
    };
    show(*welcome, QStringLiteral("welcomeWindow"));
    check();
    show(*about, QStringLiteral("aboutWindow"));
    check();
}

TEST_F(HebrewWindowsTest, SpeedTestKeepsItsColumnsInTheirOrder) {
    test::FakeBulkTransfers transfers;
    const test::FakeClock clock;
    SpeedTestController controller(transfers.factory(), clock, test::FakeSchedule());
    controller.setLatencyMs(38);
    controller.show();
    shown = windowsNamed(QStringLiteral("speedTestWindow")).at(0);
    EXPECT_EQ(shown->windowTitle(), QStringLiteral("מבחן מהירות"));
    EXPECT_EQ(text(u"httpsCaption"), QStringLiteral("HTTPS"));
    EXPECT_EQ(text(u"downloadCaption"), QStringLiteral("הורדה"));
    EXPECT_EQ(text(u"uploadCaption"), QStringLiteral("העלאה"));
    EXPECT_EQ(text(u"httpsValue"), QStringLiteral("38 ms"));
    EXPECT_EQ(find(u"httpsCaption").x(), 20);
    EXPECT_EQ(find(u"downloadCaption").x(), 130);
    EXPECT_EQ(find(u"uploadCaption").x(), 240);
    EXPECT_EQ(find(u"httpsValue").x(), 20);
    EXPECT_EQ(find(u"downloadValue").x(), 130);
    EXPECT_EQ(find(u"uploadValue").x(), 240);
    EXPECT_EQ(find<GaugeView>(u"gauge").phase(), QStringLiteral("הורדה"));
    EXPECT_EQ(find<QPushButton>(u"runButton").text(), QStringLiteral("הרצה חוזרת"));
    transfers.complete(BulkTransferResult::End::failed, std::nullopt);
    EXPECT_EQ(text(u"downloadValue"), QStringLiteral("נכשל"));
}

} // namespace
} // namespace skylet
