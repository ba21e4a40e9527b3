#include "support/EventLoop.h"
#include "support/QStringPrinting.h"
#include "ui/DesktopWindows.h"
#include "ui/Picture.h"
#include "ui/SemanticColors.h"
#include "ui/Strings.h"
#include "ui/TextPicture.h"
#include "ui/Widgets.h"

#include <QAccessible>
#include <QCheckBox>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QRegularExpression>
#include <QStyle>
#include <QStyleFactory>
#include <QStyleOptionButton>
#include <QTest>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

namespace skylet {
namespace {

using test::Picture;
using test::windowsNamed;

class HideCounter final : public QObject {
  public:
    explicit HideCounter(QWidget& widget) { widget.installEventFilter(this); }
    int count = 0;

  protected:
    bool eventFilter(QObject* /*watched*/, QEvent* event) override {
        count += event->type() == QEvent::Hide ? 1 : 0;
        return false;
    }
};

class WindowsTest : public testing::Test {
  protected:
    void TearDown() override {
        QApplication::setPalette(QPalette());
        QApplication::setFont(font);
    }

    void showWelcome(bool loginBoxOn = false) {
        welcome = windows.makeWelcomeWindow(loginBoxOn, [this] { ++finished; });
        bringToFront(*welcome, QStringLiteral("welcomeWindow"));
    }
    void showAbout() {
        about = windows.makeAboutWindow([this] { ++opened; });
        bringToFront(*about, QStringLiteral("aboutWindow"));
    }
    void bringToFront(Window& window, const QString& name) {
        window.bringToFront();
        shown = windowsNamed(name).at(0);
        ASSERT_TRUE(test::waitUntil([this] { return shown->isActiveWindow(); }));
    }
    template <typename Widget = QWidget>
    Widget& find(const char16_t* name) const {
        return *shown->findChild<Widget*>(QString::fromUtf16(name));
    }
    struct TextFont {
        const char16_t* name;
        int pixels;
        QFont::Weight weight;
    };
    /// Of all that is written in the window, from top to bottom, and that the labels draw it so.
    void expectFonts(const std::vector<TextFont>& expected) {
        QApplication::setPalette(QPalette(Qt::white));
        test::settle();
        for (const auto& [name, pixels, weight] : expected) {
            SCOPED_TRACE(QString::fromUtf16(name).toStdString());
            QWidget& widget = find(name);
            EXPECT_EQ(widget.font().pixelSize(), pixels);
            EXPECT_EQ(widget.font().weight(), weight);
            if (auto* label = qobject_cast<QLabel*>(&widget)) {
                const QColor color = test::strongestColor(*label, Qt::white);
                test::expectFont(*label, pixels, weight, color, Qt::white);
            }
        }
    }
    QCheckBox& loginBox() const { return find<QCheckBox>(u"loginBox"); }
    QPushButton& gotIt() const { return find<QPushButton>(u"gotItButton"); }
    QPushButton& link() const { return find<QPushButton>(u"link"); }

    const QFont font = QApplication::font();
    DesktopWindows windows;
    int finished = 0;
    int opened = 0;
    std::unique_ptr<WelcomeWindow> welcome;
    std::unique_ptr<Window> about;
    QWidget* shown = nullptr;
};

TEST_F(WindowsTest, AreNotShownBeforeTheyAreBroughtToTheFront) {
    welcome = windows.makeWelcomeWindow(false, [] {});
    about = windows.makeAboutWindow([] {});
    EXPECT_FALSE(windowsNamed(QStringLiteral("welcomeWindow")).at(0)->isVisible());
    EXPECT_FALSE(windowsNamed(QStringLiteral("aboutWindow")).at(0)->isVisible());
}

TEST_F(WindowsTest, WelcomeSaysWhereTheDotIs) {
    showWelcome();
    EXPECT_EQ(shown->windowTitle(), QStringLiteral("Welcome to Skylet"));
    EXPECT_EQ(find<QLabel>(u"headline").text(), QStringLiteral("Skylet is now in your menu bar"));
    QStringList body = L(QStringLiteral("welcome.body")).split(u'\n');
    body.first() = QStringLiteral("Look in your panel for a small dot:");
    body.last() =
        QStringLiteral("Can’t see it? Your panel may hide it behind an arrow. GNOME needs its AppIndicator extension.");
    EXPECT_EQ(find<QLabel>(u"body").text(), body.join(u'\n'));
    EXPECT_EQ(loginBox().text(), QStringLiteral("Launch Skylet at login (recommended)"));
    EXPECT_EQ(gotIt().text(), QStringLiteral("Got it"));
}

TEST_F(WindowsTest, WelcomeHasEverythingInItsPlace) {
    showWelcome();
    // What the body needs beyond its frame in this font, all beneath it moves down by.
    const int shift = shown->height() - 400;
    EXPECT_GE(shift, 0);
    EXPECT_EQ(shown->width(), 420);
    EXPECT_EQ(find(u"icon").geometry(), QRect(170, 20, 80, 80));
    EXPECT_EQ(find(u"headline").geometry(), QRect(20, 110, 380, 28));
    EXPECT_EQ(find(u"body").geometry(), QRect(30, 145, 360, 150 + shift));
    EXPECT_EQ(loginBox().geometry(), QRect(30, 312 + shift, 360, 22));
    EXPECT_EQ(gotIt().geometry(), QRect(300, 350 + shift, 90, 32));
}

TEST_F(WindowsTest, WelcomeWritesItsTextsInTheirSizesAndWeights) {
    showWelcome();
    expectFonts({{u"headline", 17, QFont::Bold},
                 {u"body", 13, QFont::Normal},
                 {u"loginBox", 13, QFont::Normal},
                 {u"gotItButton", 13, QFont::Normal}});
}

TEST_F(WindowsTest, AboutWritesItsTextsInTheirSizesAndWeights) {
    showAbout();
    // 11.5 and 10.5 are rounded to whole pixels.
    expectFonts({{u"name", 22, QFont::Bold},
                 {u"version", 12, QFont::Normal},
                 {u"tagline", 13, QFont::Normal},
                 {u"details", 12, QFont::Normal},
                 {u"language", 11, QFont::Normal},
                 {u"link", 13, QFont::DemiBold},
                 {u"webSite", 11, QFont::Normal},
                 {u"copyright", 10, QFont::Normal}});
}

TEST_F(WindowsTest, AboutGivesEachOfItsTextsItsColour) {
    showAbout();
    QApplication::setPalette(QPalette(Qt::white));
    test::settle();
    const SemanticColors colors = semanticColors(shown->palette());
    const std::vector<QColor> roles = {colors.label, colors.secondaryLabel, colors.tertiaryLabel, colors.controlAccent};
    const auto distance = [](const QColor& a, const QColor& b) {
        return std::abs(a.red() - b.red()) + std::abs(a.green() - b.green()) + std::abs(a.blue() - b.blue());
    };
    const std::vector<std::pair<const char16_t*, QColor>> expected = {{u"name", colors.label},
                                                                      {u"version", colors.secondaryLabel},
                                                                      {u"tagline", colors.label},
                                                                      {u"details", colors.secondaryLabel},
                                                                      {u"language", colors.secondaryLabel},
                                                                      {u"link", colors.controlAccent},
                                                                      {u"webSite", colors.tertiaryLabel},
                                                                      {u"copyright", colors.tertiaryLabel}};
    for (const auto& [name, color] : expected) {
        // Smoothed, thin strokes need not reach their full colour in any pixel: it is the nearest that counts.
        const QColor drawn = test::strongestColor(find(name), Qt::white);
        for (const QColor& role : roles) {
            EXPECT_LE(distance(drawn, color), distance(drawn, role)) << QString::fromUtf16(name).toStdString();
        }
    }
}

TEST_F(WindowsTest, ShowTheProgramsIconInItsFrame) {
    const auto check = [this] {
        QWidget& icon = find(u"icon");
        QPixmap expected(icon.size() * icon.devicePixelRatio());
        expected.setDevicePixelRatio(icon.devicePixelRatio());
        expected.fill(icon.palette().color(QPalette::Window));
        QPainter painter(&expected);
        QGuiApplication::windowIcon().paint(&painter, icon.rect());
        painter.end();
        EXPECT_EQ(icon.grab().toImage().convertToFormat(QImage::Format_RGB32),
                  expected.toImage().convertToFormat(QImage::Format_RGB32));
    };
    showWelcome();
    check();
    showAbout();
    check();
}

TEST_F(WindowsTest, HaveNoTextsThatCanBeSelected) {
    const auto check = [this] {
        for (const auto* label : shown->findChildren<QLabel*>()) {
            EXPECT_FALSE(label->textInteractionFlags() & Qt::TextSelectableByMouse)
                << label->objectName().toStdString();
            EXPECT_FALSE(label->textInteractionFlags() & Qt::TextSelectableByKeyboard);
        }
    };
    showWelcome();
    check();
    showAbout();
    check();
}

TEST_F(WindowsTest, WelcomeBeginsEachLineOfItsBodyAtTheLeft) {
    showWelcome();
    const QRectF body = find(u"body").geometry();
    // The first line is short.
    const QRectF first(body.topLeft(), QSizeF(body.width(), 14));
    const QColor background = Picture(*shown).at(QPointF(3, 3));
    const QRectF ink = Picture(*shown).extentOtherThan(first, background);
    EXPECT_LT(ink.left(), body.left() + 4);
    EXPECT_LT(ink.right(), body.right() - 60);
}

TEST_F(WindowsTest, CanBeClosedButNeitherResizedNorMinimised) {
    const auto check = [this] {
        EXPECT_EQ(shown->minimumSize(), shown->maximumSize());
        EXPECT_TRUE(shown->windowFlags() & Qt::WindowCloseButtonHint);
        EXPECT_FALSE(shown->windowFlags() & (Qt::WindowMinMaxButtonsHint | Qt::WindowFullscreenButtonHint));
        const QPoint difference = shown->geometry().center() - shown->screen()->availableGeometry().center();
        EXPECT_LE(difference.manhattanLength(), 2);
    };
    showWelcome();
    check();
    showAbout();
    check();
}

TEST_F(WindowsTest, WelcomeStartsWithTheBoxAsItIsTold) {
    showWelcome(false);
    EXPECT_FALSE(loginBox().isChecked());
    EXPECT_FALSE(welcome->loginBoxIsOn());
    showWelcome(true);
    EXPECT_TRUE(loginBox().isChecked());
    EXPECT_TRUE(welcome->loginBoxIsOn());
}

TEST_F(WindowsTest, WelcomeTurnsTheBoxAtAClickAndAtSpaceAndDoesNothingElse) {
    showWelcome();
    QTest::mouseClick(&loginBox(), Qt::LeftButton, {}, QPoint(10, 11));
    EXPECT_TRUE(welcome->loginBoxIsOn());
    loginBox().setFocus();
    QTest::keyClick(&loginBox(), Qt::Key_Space);
    EXPECT_FALSE(welcome->loginBoxIsOn());
    test::settle();
    EXPECT_EQ(finished, 0);
}

TEST_F(WindowsTest, WelcomeFinishesAtAClick) {
    showWelcome();
    QTest::mouseClick(&gotIt(), Qt::LeftButton);
    EXPECT_TRUE(test::waitUntil([this] { return finished > 0; }));
    EXPECT_EQ(finished, 1);
    // Closing it is up to the callback.
    EXPECT_TRUE(shown->isVisible());
}

TEST_F(WindowsTest, WelcomeFinishesAtReturnWhereverTheFocusIs) {
    showWelcome();
    int expected = 0;
    for (QWidget* focused : std::initializer_list<QWidget*>{&loginBox(), &gotIt(), shown}) {
        for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter}) {
            focused->setFocus();
            QTest::keyClick(focused, key);
            ++expected;
            EXPECT_TRUE(test::waitUntil([this, expected] { return finished >= expected; }));
            EXPECT_EQ(finished, expected) << focused->objectName().toStdString();
        }
    }
    EXPECT_FALSE(welcome->loginBoxIsOn());
}

TEST_F(WindowsTest, WelcomeFinishesAtReturnWithoutAnyFocus) {
    showWelcome();
    if (QApplication::focusWidget() != nullptr) {
        QApplication::focusWidget()->clearFocus();
    }
    QTest::keyClick(shown, Qt::Key_Return);
    EXPECT_TRUE(test::waitUntil([this] { return finished > 0; }));
}

TEST_F(WindowsTest, WelcomeRecordsNothingWhenItIsClosed) {
    showWelcome();
    shown->close();
    test::settle();
    EXPECT_FALSE(shown->isVisible());
    EXPECT_EQ(finished, 0);
    showWelcome();
    QTest::keyClick(shown, Qt::Key_Escape);
    test::settle();
    EXPECT_FALSE(shown->isVisible());
    EXPECT_EQ(finished, 0);
}

TEST_F(WindowsTest, WelcomeMayGoFromInsideItsButton) {
    bool gone = false;
    welcome = windows.makeWelcomeWindow(false, [this, &gone] {
        welcome->close();
        welcome.reset();
        gone = true;
    });
    bringToFront(*welcome, QStringLiteral("welcomeWindow"));
    QTest::mouseClick(&gotIt(), Qt::LeftButton);
    EXPECT_TRUE(test::waitUntil([&gone] { return gone; }));
    EXPECT_TRUE(windowsNamed(QStringLiteral("welcomeWindow")).isEmpty());
}

TEST_F(WindowsTest, WelcomeForgetsAPressThatItDoesNotOutlive) {
    showWelcome();
    QTest::mouseClick(&gotIt(), Qt::LeftButton);
    welcome.reset();
    test::settle();
    EXPECT_EQ(finished, 0);
}

TEST_F(WindowsTest, WelcomeIsUsedByTheTabAndSpaceKeys) {
    showWelcome();
    QTest::keyClick(shown, Qt::Key_Tab);
    EXPECT_EQ(QApplication::focusWidget(), &loginBox());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    EXPECT_EQ(QApplication::focusWidget(), &gotIt());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    EXPECT_TRUE(test::waitUntil([this] { return finished > 0; }));
}

TEST_F(WindowsTest, WelcomeDoesNothingForSomebodyWhoGoesOnTyping) {
    showWelcome();
    QTest::keyClicks(QApplication::focusWidget() != nullptr ? QApplication::focusWidget() : shown,
                     QStringLiteral("to be or "));
    test::settle();
    EXPECT_EQ(finished, 0);
    EXPECT_FALSE(loginBox().isChecked());
    EXPECT_TRUE(shown->isVisible());
}

TEST_F(WindowsTest, AboutSaysWhatTheProgramIs) {
    showAbout();
    EXPECT_EQ(shown->windowTitle(), QStringLiteral("About Skylet"));
    EXPECT_EQ(find<QLabel>(u"name").text(), QStringLiteral("Skylet"));
    EXPECT_EQ(find<QLabel>(u"version").text(), QStringLiteral("Version " SKYLET_VERSION));
    EXPECT_EQ(find<QLabel>(u"tagline").text(), L(QStringLiteral("about.tagline")));
    EXPECT_EQ(find<QLabel>(u"details").text(), L(QStringLiteral("about.details")));
    EXPECT_EQ(find<QLabel>(u"language").text(), desktopText(QStringLiteral("about.language")));
    EXPECT_EQ(link().text(), QStringLiteral("Powered by Brimlake"));
    EXPECT_EQ(find<QLabel>(u"webSite").text(), QStringLiteral("brimlake.example"));
    const QRegularExpression copyright(QStringLiteral("^© \\d{4} Brimlake\\. All rights reserved\\.$"));
    EXPECT_TRUE(copyright.match(find<QLabel>(u"copyright").text()).hasMatch());
}

TEST_F(WindowsTest, AboutHasEverythingInItsPlace) {
    showAbout();
    EXPECT_EQ(shown->width(), 380);
    EXPECT_EQ(find(u"icon").geometry(), QRect(140, 20, 100, 100));
    struct Expected {
        const char16_t* name;
        QRect frame;
    };
    int shift = 0;
    for (const auto& [name, frame] :
         {Expected{u"name", {30, 128, 320, 30}}, Expected{u"version", {30, 158, 320, 20}},
          Expected{u"tagline", {30, 190, 320, 50}}, Expected{u"details", {30, 242, 320, 76}},
          Expected{u"language", {30, 320, 320, 42}}, Expected{u"link", {90, 360, 200, 28}},
          Expected{u"webSite", {30, 386, 320, 20}}, Expected{u"copyright", {30, 414, 320, 20}}}) {
        const QRect actual = find(name).geometry();
        EXPECT_EQ(actual.topLeft(), frame.topLeft() + QPoint(0, shift)) << QString::fromUtf16(name).toStdString();
        EXPECT_EQ(actual.width(), frame.width());
        EXPECT_GE(actual.height(), frame.height());
        shift += actual.height() - frame.height();
    }
    EXPECT_EQ(shown->height(), 450 + shift);
}

TEST_F(WindowsTest, AboutOpensTheWebSiteByPointerAndKeyboard) {
    showAbout();
    EXPECT_EQ(link().cursor().shape(), Qt::PointingHandCursor);
    QTest::mouseClick(&link(), Qt::LeftButton);
    EXPECT_TRUE(test::waitUntil([this] { return opened == 1; }));
    link().clearFocus();
    QTest::keyClick(shown, Qt::Key_Tab);
    ASSERT_EQ(QApplication::focusWidget(), &link());
    int expected = 1;
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter, Qt::Key_Space}) {
        QTest::keyClick(&link(), key);
        ++expected;
        EXPECT_TRUE(test::waitUntil([this, expected] { return opened == expected; })) << key;
    }
    EXPECT_TRUE(shown->isVisible());
}

TEST_F(WindowsTest, AboutShowsWhereTheFocusIs) {
    showAbout();
    link().setFocus();
    const QImage focused = link().grab().toImage();
    link().clearFocus();
    EXPECT_NE(link().grab().toImage(), focused);
}

TEST_F(WindowsTest, AboutComesBackAsItWas) {
    showAbout();
    QWidget* first = shown;
    QTest::keyClick(shown, Qt::Key_Escape);
    EXPECT_FALSE(shown->isVisible());
    bringToFront(*about, QStringLiteral("aboutWindow"));
    EXPECT_TRUE(shown->isVisible());
    bringToFront(*about, QStringLiteral("aboutWindow"));
    EXPECT_THAT(windowsNamed(QStringLiteral("aboutWindow")), testing::ElementsAre(first));
    EXPECT_EQ(opened, 0);
}

TEST_F(WindowsTest, ComeBackFromBeingMinimised) {
    showAbout();
    shown->showMinimized();
    about->bringToFront();
    EXPECT_FALSE(shown->isMinimized());
    EXPECT_TRUE(shown->isVisible());
}

TEST_F(WindowsTest, AboutIsLegibleOnEveryDesktopAlsoWhenItChanges) {
    showAbout();
    for (const QColor& window :
         {QColor(0xef, 0xef, 0xef), QColor(0x31, 0x36, 0x3b), QColor(Qt::white), QColor(Qt::black)}) {
        for (const QColor& highlight : {QColor(0x30, 0x8c, 0xc6), QColor(0xf0, 0xd0, 0x30), QColor(0x20, 0x30, 0x50)}) {
            QPalette palette(window);
            palette.setColor(QPalette::Highlight, highlight);
            QApplication::setPalette(palette);
            test::settle();
            const QColor background = Picture(*shown).at(QPointF(3, 3));
            EXPECT_EQ(background.rgb(), window.rgb());
            for (const char16_t* name :
                 {u"name", u"version", u"tagline", u"details", u"language", u"link", u"webSite", u"copyright"}) {
                // Smoothed, thin strokes need not reach their full colour in any pixel.
                EXPECT_GE(contrast(test::strongestColor(find(name), background), background), 4.4)
                    << QString::fromUtf16(name).toStdString() << " on " << window.name().toStdString() << " with "
                    << highlight.name().toStdString();
            }
        }
    }
}

TEST_F(WindowsTest, DoNotVanishForAMomentWhenTheyAreCalledTwice) {
    about = windows.makeAboutWindow([] {});
    shown = windowsNamed(QStringLiteral("aboutWindow")).at(0);
    const HideCounter hides(*shown);
    about->bringToFront();
    about->bringToFront();
    ASSERT_TRUE(test::waitUntil([this] { return shown->isActiveWindow(); }));
    EXPECT_EQ(hides.count, 0);
}

TEST_F(WindowsTest, FollowTheDesktopsFontWhileTheyAreOpen) {
    QApplication::setFont(QFont(QStringLiteral("Noto Sans")));
    for (const bool isAbout : {false, true}) {
        isAbout ? showAbout() : showWelcome();
        const QSize before = shown->size();
        QApplication::setFont(QFont(QStringLiteral("DejaVu Sans Mono")));
        test::settle();
        for (QWidget* widget : shown->findChildren<QWidget*>()) {
            EXPECT_EQ(widget->font().family(), QStringLiteral("DejaVu Sans Mono"))
                << widget->objectName().toStdString();
        }
        QWidget* open = shown;
        const auto geometries = [](const QWidget& window) {
            std::vector<QRect> found{window.geometry().translated(-window.pos())};
            for (const QWidget* widget : window.findChildren<QWidget*>()) {
                found.push_back(widget->geometry());
            }
            return found;
        };
        const std::vector<QRect> followed = geometries(*open);
        const QFont label = open->findChild<QLabel*>()->font();
        isAbout ? showAbout() : showWelcome();
        EXPECT_EQ(followed, geometries(*shown)) << "as if it had been opened with that font";
        EXPECT_EQ(label, shown->findChild<QLabel*>()->font());
        QApplication::setFont(QFont(QStringLiteral("Noto Sans")));
        test::settle();
        EXPECT_EQ(shown->size(), before);
        EXPECT_TRUE(find(isAbout ? u"name" : u"loginBox").isVisible());
    }
}

TEST_F(WindowsTest, GrowWithAFontThatIsLargerThanAnyDesktopsDefault) {
    QFont desktop = QApplication::font();
    desktop.setPointSizeF(22);
    QApplication::setFont(desktop);
    showWelcome();
    EXPECT_EQ(find(u"icon").geometry(), QRect(340, 40, 160, 160));
    EXPECT_EQ(find(u"headline").geometry(), QRect(40, 220, 760, 56));
    EXPECT_EQ(find(u"headline").font().pixelSize(), 34);
    EXPECT_EQ(find(u"headline").font().weight(), QFont::Bold);
    EXPECT_EQ(gotIt().size(), QSize(180, 64));
    EXPECT_EQ(gotIt().font().pixelSize(), 26);
    EXPECT_EQ(shown->width(), 840);
    EXPECT_GE(shown->height(), 800);
}

TEST_F(WindowsTest, KeepTheirSizesUpToElevenPoints) {
    for (const double points : {7.0, 9.0, 10.0, 11.0}) {
        QFont desktop = QApplication::font();
        desktop.setPointSizeF(points);
        QApplication::setFont(desktop);
        showWelcome();
        EXPECT_EQ(find(u"headline").geometry(), QRect(20, 110, 380, 28)) << points;
        EXPECT_EQ(find(u"headline").font().pixelSize(), 17) << points;
    }
}

TEST_F(WindowsTest, OutlineTheCheckBoxSoThatItIsSeen) {
    const std::unique_ptr<QStyle> fusion(QStyleFactory::create(QStringLiteral("Fusion")));
    showWelcome();
    loginBox().setStyle(fusion.get());
    for (const bool dark : {false, true}) {
        QPalette palette(dark ? QColor(0x31, 0x36, 0x3b) : QColor(0xef, 0xef, 0xef));
        palette.setColor(QPalette::Base, dark ? QColor(0x23, 0x26, 0x29) : QColor(Qt::white));
        QApplication::setPalette(palette);
        test::settle();
        QStyleOptionButton option;
        option.initFrom(&loginBox());
        const QRectF box = fusion->subElementRect(QStyle::SE_CheckBoxIndicator, &option, &loginBox());
        const Picture picture(loginBox());
        const QPointF middle = box.center();
        const double pixel = 0.5;
        for (const QPointF edge :
             {QPointF(box.left() + pixel, middle.y()), QPointF(middle.x(), box.top() + pixel),
              QPointF(box.right() - pixel, middle.y()), QPointF(middle.x(), box.bottom() - pixel)}) {
            EXPECT_GE(contrast(picture.at(edge), palette.color(QPalette::Window)), 3) << dark;
            EXPECT_GE(contrast(picture.at(edge), palette.color(QPalette::Base)), 3) << dark;
        }
    }
    loginBox().setStyle(nullptr);
}

TEST_F(WindowsTest, ShowTheirTextsWholeInEveryUsualFont) {
    for (const char* family : {"DejaVu Sans", "Noto Sans", "Cantarell", "DejaVu Serif", "DejaVu Sans Mono"}) {
        QApplication::setFont(QFont(QString::fromUtf8(family)));
        for (const bool isAbout : {false, true}) {
            isAbout ? showAbout() : showWelcome();
            QRect above;
            for (QLabel* text : shown->findChildren<QLabel*>()) {
                const QRect needed = text->fontMetrics().boundingRect(QRect(0, 0, text->width(), 10'000),
                                                                      Qt::TextWordWrap, text->text());
                EXPECT_LE(needed.height(), text->height()) << family << ": " << text->text().toStdString();
                EXPECT_LE(needed.width(), text->width()) << family << ": " << text->text().toStdString();
                EXPECT_TRUE(shown->rect().contains(text->geometry()));
            }
            for (QAbstractButton* button : shown->findChildren<QAbstractButton*>()) {
                const int room = button->width() - (button == shown->findChild<QCheckBox*>() ? 24 : 8);
                EXPECT_LE(button->fontMetrics().horizontalAdvance(button->text()), room)
                    << family << ": " << button->text().toStdString();
            }
        }
    }
}

TEST_F(WindowsTest, TellAssistiveTechnologiesWhatTheyAre) {
    const auto accessible = [this](const char16_t* name) { return QAccessible::queryAccessibleInterface(&find(name)); };
    showWelcome();
    QAccessibleInterface* dialog = QAccessible::queryAccessibleInterface(shown);
    EXPECT_EQ(dialog->role(), QAccessible::Dialog);
    EXPECT_EQ(dialog->text(QAccessible::Name), QStringLiteral("Welcome to Skylet"));
    EXPECT_EQ(accessible(u"icon")->role(), QAccessible::Graphic);
    EXPECT_EQ(accessible(u"icon")->text(QAccessible::Name), QStringLiteral("Skylet"));
    EXPECT_EQ(accessible(u"body")->text(QAccessible::Name), find<QLabel>(u"body").text());
    EXPECT_EQ(accessible(u"loginBox")->role(), QAccessible::CheckBox);
    EXPECT_EQ(accessible(u"gotItButton")->role(), QAccessible::Button);
    showAbout();
    EXPECT_EQ(accessible(u"link")->role(), QAccessible::Button);
    EXPECT_EQ(accessible(u"link")->text(QAccessible::Name), QStringLiteral("Powered by Brimlake"));
    EXPECT_EQ(accessible(u"link")->text(QAccessible::Description), QStringLiteral("brimlake.example"));
}

} // namespace
} // namespace skylet
