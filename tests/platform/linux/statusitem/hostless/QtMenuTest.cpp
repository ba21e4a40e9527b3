#include "platform/linux/statusitem/hostless/QtMenu.h"

#include "platform/linux/statusitem/drawing/SampleDisplays.h"
#include "platform/linux/statusitem/hostless/TitleStrip.h"
#include "support/QStringPrinting.h"

#include <QAccessible>
#include <QAction>
#include <QApplication>
#include <QCursor>
#include <QIcon>
#include <QImage>
#include <QKeyEvent>
#include <QPainter>
#include <QPalette>
#include <QScreen>
#include <QTest>

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <utility>

namespace skylet {
namespace {

class QtMenuTest : public testing::Test {
  protected:
    std::shared_ptr<MenuItem> command(const QString& title, const QString& key = {}) {
        return std::make_shared<MenuItem>(
            title, [this, title] { chosen_.append(title); }, key);
    }

    static QRect screen() { return QGuiApplication::primaryScreen()->geometry(); }

    QAction* action(int index) { return menu_.widget().actions().at(index); }

    static void press(QWidget& widget, int key, Qt::KeyboardModifiers modifiers) {
        QKeyEvent down(QEvent::KeyPress, key, modifiers);
        QApplication::sendEvent(&widget, &down);
        QKeyEvent up(QEvent::KeyRelease, key, modifiers);
        QApplication::sendEvent(&widget, &up);
    }

    QtMenu menu_;
    QStringList chosen_;
};

TEST_F(QtMenuTest, ShowsTitlesAsTheyAre) {
    menu_.setMenu({command(QStringLiteral("Salt & pepper"))});
    EXPECT_EQ(action(0)->text(), QStringLiteral("Salt && pepper"));
}

TEST_F(QtMenuTest, ShowsWhatTheItemsAre) {
    const auto line = command(QStringLiteral("line"));
    line->setEnabled(false);
    const auto checked = command(QStringLiteral("checked"));
    checked->setChecked(true);
    menu_.setMenu({line, MenuItem::separator(), checked, command(QStringLiteral("test"), QStringLiteral("t"))});
    ASSERT_EQ(menu_.widget().actions().size(), 4);
    EXPECT_FALSE(action(0)->isEnabled());
    EXPECT_FALSE(action(0)->isCheckable());
    EXPECT_TRUE(action(1)->isSeparator());
    EXPECT_TRUE(action(2)->isCheckable());
    EXPECT_TRUE(action(2)->isChecked());
    EXPECT_EQ(action(3)->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_T));
    EXPECT_TRUE(action(3)->isShortcutVisibleInContextMenu());
}

TEST_F(QtMenuTest, KeepsLinesReadableThatCannotBeChosenOnEveryDesktop) {
    const QPalette before = QGuiApplication::palette();
    for (const auto& [text, ground] : {std::pair(Qt::black, Qt::white), std::pair(Qt::white, Qt::black)}) {
        QPalette palette;
        palette.setColor(QPalette::WindowText, text);
        palette.setColor(QPalette::Window, ground);
        palette.setColor(QPalette::Disabled, QPalette::WindowText, ground);
        QGuiApplication::setPalette(palette);
        QCoreApplication::processEvents();
        const QPalette seen = menu_.widget().palette();
        QImage pixel(1, 1, QImage::Format_RGB32);
        pixel.fill(ground);
        QPainter(&pixel).fillRect(0, 0, 1, 1, seen.color(QPalette::Disabled, QPalette::WindowText));
        const int disabled = pixel.pixelColor(0, 0).lightness();
        EXPECT_GT(std::abs(disabled - QColor(ground).lightness()), 140);
        EXPECT_GT(std::abs(disabled - QColor(text).lightness()), 80) << "looks as if it could be chosen";
        EXPECT_EQ(seen.color(QPalette::Active, QPalette::WindowText), QColor(text));
    }
    QGuiApplication::setPalette(before);
}

TEST_F(QtMenuTest, FollowsTheItems) {
    const auto item = command(QStringLiteral("before"));
    menu_.setMenu({item});
    item->setTitle(QStringLiteral("after"));
    item->setEnabled(false);
    item->setChecked(true);
    EXPECT_EQ(action(0)->text(), QStringLiteral("after"));
    EXPECT_FALSE(action(0)->isEnabled());
    EXPECT_TRUE(action(0)->isChecked());
    EXPECT_TRUE(action(0)->icon().isNull());
}

TEST_F(QtMenuTest, HasTheIconSharpForScreensOfScale2) {
    const auto about = command(QStringLiteral("about"));
    about->setApplicationIconSize(16);
    menu_.setMenu({about});
    EXPECT_EQ(action(0)->icon().pixmap(QSize(16, 16), 1.0).size(), QSize(16, 16));
    EXPECT_EQ(action(0)->icon().pixmap(QSize(16, 16), 2.0).size(), QSize(32, 32));
    EXPECT_TRUE(action(0)->isIconVisibleInMenu());
}

TEST_F(QtMenuTest, RunsAnItemOnce) {
    menu_.setMenu({command(QStringLiteral("one")), command(QStringLiteral("two"))});
    action(1)->trigger();
    EXPECT_EQ(chosen_, QStringList{QStringLiteral("two")});
}

TEST_F(QtMenuTest, DoesNotRunADisabledItem) {
    const auto item = command(QStringLiteral("one"));
    item->setEnabled(false);
    menu_.setMenu({item});
    action(0)->trigger();
    EXPECT_TRUE(chosen_.isEmpty());
}

TEST_F(QtMenuTest, LeavesTheCheckMarkToTheItemAlone) {
    const auto refusing = command(QStringLiteral("refusing"));
    refusing->setChecked(false);
    auto toggling = std::make_shared<std::weak_ptr<MenuItem>>();
    const auto willing = std::make_shared<MenuItem>(
        QStringLiteral("willing"), [toggling] { toggling->lock()->setChecked(!toggling->lock()->isChecked()); },
        QString());
    *toggling = willing;
    willing->setChecked(false);
    menu_.setMenu({refusing, willing});
    action(0)->trigger();
    action(1)->trigger();
    EXPECT_FALSE(action(0)->isChecked());
    EXPECT_TRUE(action(1)->isChecked());
}

TEST_F(QtMenuTest, RunsAShortcutWhileItIsOpenAndCloses) {
    menu_.setMenu(
        {command(QStringLiteral("test"), QStringLiteral("t")), command(QStringLiteral("quit"), QStringLiteral("q"))});
    menu_.popUp(QRect(10, 10, 1, 1));
    ASSERT_TRUE(menu_.widget().isVisible());
    press(menu_.widget(), Qt::Key_Q, Qt::ControlModifier);
    EXPECT_EQ(chosen_, QStringList{QStringLiteral("quit")});
    EXPECT_FALSE(menu_.widget().isVisible());
}

TEST_F(QtMenuTest, IgnoresTheShortcutOfADisabledItem) {
    const auto item = command(QStringLiteral("test"), QStringLiteral("t"));
    item->setEnabled(false);
    menu_.setMenu({item});
    menu_.popUp(QRect(10, 10, 1, 1));
    press(menu_.widget(), Qt::Key_T, Qt::ControlModifier);
    EXPECT_TRUE(chosen_.isEmpty());
    EXPECT_TRUE(menu_.widget().isVisible());
    menu_.widget().close();
}

TEST_F(QtMenuTest, HasNoShortcutsWhileItIsClosed) {
    menu_.setMenu({command(QStringLiteral("test"), QStringLiteral("t"))});
    QWidget window;
    window.show();
    window.activateWindow();
    QApplication::processEvents();
    ASSERT_TRUE(window.isActiveWindow());
    press(window, Qt::Key_T, Qt::ControlModifier);
    EXPECT_TRUE(chosen_.isEmpty());
}

TEST_F(QtMenuTest, OpensOnTheScreenWhateverPlaceItIsGiven) {
    menu_.setMenu({command(QStringLiteral("one"))});
    constexpr int least = std::numeric_limits<int>::min();
    constexpr int most = std::numeric_limits<int>::max();
    for (const QPoint place : {QPoint(least, most), QPoint(most, most), QPoint(-1, -1), QPoint(5, 5)}) {
        menu_.popUp(QRect(place, place));
        ASSERT_TRUE(menu_.widget().isVisible());
        EXPECT_TRUE(screen().contains(menu_.widget().geometry()));
        menu_.close();
    }
}

TEST_F(QtMenuTest, NeverOpensOverTheIconThatItBelongsTo) {
    Menu menu;
    for (int line = 0; line < 12; ++line) {
        menu.push_back(command(QStringLiteral("a line that is as long as those of a menu are")));
    }
    menu_.setMenu(menu);
    for (const QString& title : {QStringLiteral("line"), QStringLiteral("שורה")}) {
        menu.front()->setTitle(title);
        for (const int x : {screen().left(), screen().center().x(), screen().right() - 23}) {
            for (const int y : {screen().top(), screen().bottom() - 23}) {
                const QRect icon(x, y, 24, 24);
                // wherever in it the mouse is
                for (const QPoint mouse : {icon.topLeft(), icon.center(), icon.bottomRight()}) {
                    QCursor::setPos(mouse);
                    menu_.popUp(icon);
                    const QRect seen = menu_.widget().geometry();
                    EXPECT_FALSE(seen.intersects(icon)) << x << ' ' << y << ": " << seen.x() << ' ' << seen.y();
                    EXPECT_TRUE(seen.adjusted(-1, -1, 1, 1).intersects(icon)) << "apart from it";
                    EXPECT_TRUE(screen().contains(seen));
                    menu_.close();
                }
            }
        }
    }
}

TEST_F(QtMenuTest, StaysOnTheScreenAndBesideItsIconWhenItGrowsWhileItIsOpen) {
    const auto line = command(QStringLiteral("one"));
    menu_.setMenu({line, command(QStringLiteral("two"))});
    for (const QString& longer : {QStringLiteral("a line that has become longer still under the eyes of its reader"),
                                  QStringLiteral("שורה שהתארכה מאוד לנגד עיניו של מי שקורא אותה ברגע זה")}) {
        for (const int x : {screen().left(), screen().right() - 23}) {
            line->setTitle(QStringLiteral("one"));
            const QRect icon(x, screen().top() + 4, 24, 24);
            menu_.popUp(icon);
            const QRect before = menu_.widget().geometry();
            line->setTitle(longer);
            const QRect seen = menu_.widget().geometry();
            EXPECT_GT(seen.width(), before.width());
            EXPECT_EQ(seen.top(), before.top());
            EXPECT_TRUE(screen().contains(seen)) << seen.x() << ' ' << seen.width();
            menu_.close();
        }
    }
}

TEST_F(QtMenuTest, ShrinksOnAScreenThatIsTooSmallAndGrowsAgain) {
    Menu lines;
    while (lines.size() < 14) {
        lines.push_back(command(QStringLiteral("as long as a line of the menu is at most")));
    }
    menu_.setMenu(lines);
    const QFont before = QApplication::font("QMenu");
    for (const int pixels : {60, 12}) {
        QFont font = before;
        font.setPixelSize(pixels);
        QApplication::setFont(font, "QMenu");
        menu_.popUp(QRect(screen().topLeft(), QSize(24, 24)));
        const QRect seen = menu_.widget().geometry();
        EXPECT_TRUE(screen().contains(seen));
        for (QAction* line : menu_.widget().actions()) {
            EXPECT_TRUE(QRect(QPoint(), seen.size()).contains(menu_.widget().actionGeometry(line)));
        }
        EXPECT_EQ(menu_.widget().font().pixelSize() < pixels, pixels == 60);
        menu_.close();
    }
    QApplication::setFont(before, "QMenu");
}

TEST_F(QtMenuTest, ShowsWhereItsLinesBeginWhenItIsWiderThanTheScreen) {
    const auto line = command(QStringLiteral("one"));
    menu_.setMenu({line});
    for (const QString& words : {QStringLiteral("many words "), QStringLiteral("מילים רבות ")}) {
        line->setTitle(words);
        menu_.popUp(QRect(screen().center(), QSize(24, 24)));
        line->setTitle(words.repeated(100));
        const QRect seen = menu_.widget().geometry();
        EXPECT_GT(seen.width(), screen().width());
        EXPECT_EQ(menu_.widget().isRightToLeft() ? seen.right() : seen.left(),
                  menu_.widget().isRightToLeft() ? screen().right() : screen().left());
        menu_.close();
    }
}

TEST_F(QtMenuTest, IsNamedByItsFirstLineForAScreenReader) {
    const auto status = command(QStringLiteral("Online — 87 ms (Responsive)"));
    status->setEnabled(false);
    menu_.setMenu({status, command(QStringLiteral("Quit"))});
    QAccessibleInterface* const seen = QAccessible::queryAccessibleInterface(&menu_.widget());
    ASSERT_NE(seen, nullptr);
    EXPECT_EQ(seen->text(QAccessible::Name), status->title());
    status->setTitle(QStringLiteral("No internet"));
    EXPECT_EQ(seen->text(QAccessible::Name), QStringLiteral("No internet"));
}

TEST_F(QtMenuTest, IsClosedByASecondClickOnWhatItBelongsTo) {
    menu_.setMenu({command(QStringLiteral("one"))});
    TitleStrip strip(sample::fast());
    QObject::connect(&strip, &TitleStrip::activated, &strip, [this](QRect place) { menu_.popUp(place); });
    strip.show();
    // As the desktop delivers it: to whichever window is beneath the mouse, whatever Qt makes of it then.
    const auto click = [&strip] {
        QTest::mouseClick(strip.windowHandle(), Qt::LeftButton, {}, QPoint(10, 10));
        QCoreApplication::processEvents();
    };
    for (int round = 0; round < 2; ++round) {
        click();
        EXPECT_TRUE(menu_.widget().isVisible());
        click();
        EXPECT_FALSE(menu_.widget().isVisible());
    }
}

TEST_F(QtMenuTest, LeavesItsSizeToTheDesktopWherePopupsArePopups) {
    menu_.setMenu({command(QStringLiteral("one"))});
    menu_.popUp(QRect(10, 10, 1, 1));
    EXPECT_EQ(menu_.widget().maximumSize(), QSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX));
    menu_.close();
}

TEST_F(QtMenuTest, HasTheSizeThatItsTextsNeedAndNoOtherWhereItIsAWindowLikeAnyOther) {
    QtMenu menu(true);
    const auto line = command(QStringLiteral("one"));
    menu.setMenu({line});
    QSize before;
    for (const QString& title : {QStringLiteral("one"), QStringLiteral("a much longer line than before")}) {
        line->setTitle(title);
        menu.popUp(QRect(10, 10, 1, 1));
        EXPECT_EQ(menu.widget().minimumSize(), menu.widget().size());
        EXPECT_EQ(menu.widget().maximumSize(), menu.widget().size());
        EXPECT_GT(menu.widget().width(), before.width());
        before = menu.widget().size();
        menu.close();
    }
    menu.popUp(QRect(10, 10, 1, 1));
    line->setTitle(QStringLiteral("a line that has become longer still under the eyes of its reader"));
    EXPECT_GT(menu.widget().width(), before.width());
    line->setTitle(QStringLiteral("one"));
    EXPECT_LT(menu.widget().width(), before.width());
    EXPECT_EQ(menu.widget().minimumSize(), menu.widget().maximumSize());
    menu.close();
}

TEST_F(QtMenuTest, RunsInTheDirectionOfItsTexts) {
    const auto line = command(QString());
    menu_.setMenu({line, command(QStringLiteral("Quit"))});
    EXPECT_EQ(menu_.widget().layoutDirection(), Qt::LeftToRight);
    line->setTitle(QStringLiteral("87 ms מחובר"));
    EXPECT_EQ(menu_.widget().layoutDirection(), Qt::RightToLeft);
    line->setTitle(QStringLiteral("Online"));
    EXPECT_EQ(menu_.widget().layoutDirection(), Qt::LeftToRight);
}

TEST_F(QtMenuTest, DrawsItsTextsInTheirDirection) {
    const QString word = QStringLiteral("יציאה");
    menu_.setMenu({command(word), command(word.repeated(12))});
    menu_.popUp(QRect(10, 10, 1, 1));
    const QImage picture = menu_.widget().grab().toImage();
    const QRect row = menu_.widget().actionGeometry(action(0)).adjusted(4, 4, -4, -4);
    int inked = 0;
    for (int x = row.left(); x <= row.right(); ++x) {
        for (int y = row.top(); y <= row.bottom(); ++y) {
            if (picture.pixel(x, y) != picture.pixel(row.topLeft())) {
                EXPECT_GT(x, row.center().x());
                ++inked;
            }
        }
    }
    EXPECT_GT(inked, 20);
    menu_.close();
}

TEST_F(QtMenuTest, ShowsShortcutsAndIconsWhereMenusUsuallyHaveNone) {
    QCoreApplication::setAttribute(Qt::AA_DontShowIconsInMenus);
    QCoreApplication::setAttribute(Qt::AA_DontShowShortcutsInContextMenus);
    menu_.setMenu({command(QStringLiteral("quit"), QStringLiteral("q"))});
    EXPECT_TRUE(action(0)->isIconVisibleInMenu());
    EXPECT_TRUE(action(0)->isShortcutVisibleInContextMenu());
    QCoreApplication::setAttribute(Qt::AA_DontShowIconsInMenus, false);
    QCoreApplication::setAttribute(Qt::AA_DontShowShortcutsInContextMenus, false);
}

} // namespace
} // namespace skylet
