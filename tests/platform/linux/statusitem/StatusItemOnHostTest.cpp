#include "platform/linux/statusitem/DesktopStatusItem.h"
#include "platform/linux/statusitem/drawing/ItemAppearance.h"
#include "platform/linux/statusitem/drawing/SampleDisplays.h"
#include "platform/linux/statusitem/drawing/StatusColors.h"
#include "platform/linux/statusitem/host/DBusReading.h"
#include "platform/linux/statusitem/host/FakeStatusHost.h"
#include "support/EventLoop.h"
#include "support/FakeSchedule.h"
#include "support/FullDisk.h"
#include "support/PrivateBus.h"
#include "support/QStringPrinting.h"
#include "support/RuntimeFolder.h"

#include <QApplication>
#include <QDBusError>
#include <QDBusObjectPath>
#include <QDir>
#include <QFontDatabase>
#include <QMenu>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <initializer_list>
#include <limits>
#include <memory>
#include <utility>

namespace skylet {
namespace {

using test::PrivateBus;
using test::runFor;
using test::waitUntil;

using namespace std::chrono_literals;

class StatusItemOnHostTest : public testing::Test {
  protected:
    /// An item, set up in one turn as the program does, before hosts of programs called `processName`.
    void makeItem(const QString& processName) {
        processName_ = processName;
        StatusItemOptions options;
        options.environment.processName = [this](uint /*processId*/) { return processName_; };
        options.environment.currentDesktop = currentDesktop_;
        options.environment.panelsStandUpright = [this] { return panelsStandUpright_; };
        options.registration = registration_;
        options.attention = attention_;
        options.labelDelay = labelDelay_;
        options.schedule = schedule_;
        // Far from being shown anywhere else.
        options.hostlessDelay = 1h;
        item_ = std::make_unique<DesktopStatusItem>(itemConnection_, options);
        item_->setAutosaveName(QStringLiteral("Skylet"));
        item_->setVisible(true);
        item_->setMenu({line_, command_});
        item_->setDisplay(sample::fast());
    }

    void show(const QString& processName) {
        host_.appear();
        makeItem(processName);
        ASSERT_TRUE(waitUntil([this] { return !host_.item().isEmpty(); }));
        readLayout();
        host_.settle();
        host_.forgetSignals();
    }

    void showLabel() { show(QStringLiteral("gnome-shell")); }
    void showBadge() { show(QStringLiteral("panel-2-systray")); }
    void showWide() { show(QStringLiteral("waybar")); }

    QDBusMessage readLayout() { return host_.callMenu(QStringLiteral("GetLayout"), {0, -1, QStringList()}); }

    void menuEvent(const QString& eventId) {
        host_.callMenu(QStringLiteral("Event"), {0, eventId, QVariant::fromValue(QDBusVariant(0)), 0U});
    }

    QVariant property(const QString& name) const {
        return qdbus_cast<QDBusVariant>(host_.itemProperty(name).arguments().value(0)).variant();
    }

    DBusToolTip toolTip() const { return qdbus_cast<DBusToolTip>(property(QStringLiteral("ToolTip"))); }

    QList<DBusPixmap> pixmaps(const QString& name = QStringLiteral("IconPixmap")) const {
        return qdbus_cast<QList<DBusPixmap>>(property(name));
    }

    int count(const char* signal) const { return host_.count(QString::fromLatin1(signal)); }

    static QMenu* openMenu() { return qobject_cast<QMenu*>(QApplication::activePopupWidget()); }

    PrivateBus bus_;
    FakeStatusHost host_{bus_.connect()};
    QDBusConnection itemConnection_ = bus_.connect();
    QString processName_;
    QString currentDesktop_;
    bool panelsStandUpright_ = false;
    int chosen_ = 0;
    // longer than any test, unless that is what it is about
    SniRegistrationLimits registration_{1min, 3};
    std::chrono::milliseconds attention_{60};
    std::chrono::milliseconds labelDelay_ = 1min;
    test::FakeSchedule schedule_;
    std::shared_ptr<MenuItem> line_ = std::make_shared<MenuItem>(QStringLiteral("line"), nullptr, QString());
    std::shared_ptr<MenuItem> command_ = std::make_shared<MenuItem>(
        QStringLiteral("Quit"), [this] { ++chosen_; }, QStringLiteral("q"));
    std::unique_ptr<DesktopStatusItem> item_;
};

// What the item is.

TEST_F(StatusItemOnHostTest, HasItsWordsForScreenReaders) {
    for (const char* processName : {"gnome-shell", "waybar", "panel-2-systray"}) {
        show(QString::fromLatin1(processName));
        for (const char* name : {"IconAccessibleDesc", "AttentionAccessibleDesc"}) {
            EXPECT_EQ(property(QString::fromLatin1(name)), QStringLiteral("87 ms  Responsive"));
        }
        item_.reset();
        host_.disappear();
    }
}

TEST_F(StatusItemOnHostTest, HasThePropertiesOfTheProtocol) {
    showBadge();
    const QVariantMap all = host_.itemProperties();
    EXPECT_EQ(all.value(QStringLiteral("Category")), QStringLiteral("ApplicationStatus"));
    EXPECT_EQ(all.value(QStringLiteral("Id")), QStringLiteral("skylet"));
    EXPECT_EQ(all.value(QStringLiteral("Title")), QStringLiteral("Skylet"));
    EXPECT_EQ(all.value(QStringLiteral("Status")), QStringLiteral("Active"));
    EXPECT_EQ(all.value(QStringLiteral("WindowId")), 0);
    EXPECT_EQ(all.value(QStringLiteral("IconName")), QString());
    EXPECT_EQ(all.value(QStringLiteral("AttentionIconName")), QString());
    EXPECT_EQ(all.value(QStringLiteral("ItemIsMenu")), true);
    EXPECT_EQ(qvariant_cast<QDBusObjectPath>(all.value(QStringLiteral("Menu"))).path(), QStringLiteral("/MenuBar"));
    EXPECT_EQ(all.value(QStringLiteral("XAyatanaOrderingIndex")), 0U);
    EXPECT_TRUE(all.contains(QStringLiteral("IconPixmap")));
    EXPECT_TRUE(all.contains(QStringLiteral("ToolTip")));
}

TEST_F(StatusItemOnHostTest, ShowsALabelBesideTheDotWhereTheHostSetsOne) {
    showLabel();
    EXPECT_EQ(property(QStringLiteral("XAyatanaLabel")), QStringLiteral("87 ms  Responsive  ↓12.4M ↑210K"));
    EXPECT_EQ(property(QStringLiteral("XAyatanaLabelGuide")), QStringLiteral("00 ms  Responsive  ↓00.0M ↑000K"));
}

TEST_F(StatusItemOnHostTest, HasTheDotInSizesForEveryPanelWhenItHasNoFiles) {
    const test::FullDisk disk(0);
    showLabel();
    EXPECT_EQ(property(QStringLiteral("IconName")), QString());
    const QList<DBusPixmap> icons = pixmaps();
    ASSERT_EQ(icons.size(), 7);
    for (const DBusPixmap& icon : icons) {
        EXPECT_EQ(icon.width, icon.height);
        ASSERT_EQ(icon.pixels.size(), icon.width * icon.height * 4);
        // Network byte order: alpha, red, green, blue.
        const qsizetype centre = (qsizetype(icon.height / 2) * icon.width + icon.width / 2) * 4;
        const QColor fill = dotShades(Status::online).fill;
        EXPECT_EQ(quint8(icon.pixels.at(centre)), 255);
        EXPECT_EQ(quint8(icon.pixels.at(centre + 1)), fill.red());
        EXPECT_EQ(quint8(icon.pixels.at(centre + 2)), fill.green());
        EXPECT_EQ(quint8(icon.pixels.at(centre + 3)), fill.blue());
    }
    EXPECT_EQ(icons.first().width, 16);
    EXPECT_EQ(icons.last().width, 64);
}

class StatusItemByNameTest : public StatusItemOnHostTest, public testing::WithParamInterface<const char*> {};

TEST_P(StatusItemByNameTest, NamesAFileWithTheDot) {
    const test::RuntimeFolder runtime;
    show(QString::fromLatin1(GetParam()));
    const QImage dot(property(QStringLiteral("IconName")).toString());
    EXPECT_EQ(dot.pixelColor(dot.width() / 2, dot.height() / 2), dotShades(Status::online).fill);
    const QImage framed(property(QStringLiteral("AttentionIconName")).toString());
    EXPECT_EQ(framed.pixelColor(dot.width() / 2, dot.height() / 2), dotShades(Status::online).fill);
    EXPECT_NE(framed, dot);
    // Nothing would come of reading them.
    EXPECT_TRUE(pixmaps().isEmpty());
    EXPECT_TRUE(pixmaps(QStringLiteral("AttentionIconPixmap")).isEmpty());
    item_->setDisplay(sample::offline());
    const QImage red(property(QStringLiteral("IconName")).toString());
    EXPECT_EQ(red.pixelColor(dot.width() / 2, dot.height() / 2), dotShades(Status::offline).fill);
    item_.reset();
    EXPECT_TRUE(QDir(runtime.path()).isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Hosts, StatusItemByNameTest, testing::Values("ayatana-indicat", "gnome-shell"));

TEST_F(StatusItemOnHostTest, HasNoLabelAtAllWhereTheHostSetsNone) {
    showBadge();
    const QVariantMap all = host_.itemProperties();
    EXPECT_FALSE(all.contains(QStringLiteral("XAyatanaLabel")));
    EXPECT_FALSE(all.contains(QStringLiteral("XAyatanaLabelGuide")));
    EXPECT_EQ(host_.itemProperty(QStringLiteral("XAyatanaLabel")).type(), QDBusMessage::ErrorMessage);
    EXPECT_EQ(toolTip().title, QStringLiteral("87 ms  Responsive  ↓12.4M ↑210K"));
    EXPECT_EQ(toolTip().text, QStringLiteral("response time"));
}

TEST_F(StatusItemOnHostTest, SaysAllInTheTooltipsTextWhereThatStandsAlone) {
    show(QStringLiteral("budgie-daemon"));
    EXPECT_EQ(toolTip().text, QStringLiteral("87 ms  Responsive  ↓12.4M ↑210K\nresponse time"));
}

TEST_F(StatusItemOnHostTest, ShowsABadgeWhereAWideIconWouldBeSqueezed) {
    currentDesktop_ = QStringLiteral("X-Cinnamon");
    show(QStringLiteral("xapp-sn-watcher"));
    EXPECT_GT(pixmaps().first().width, pixmaps().first().height);
    panelsStandUpright_ = true;
    item_->setDisplay(sample::slow());
    host_.settle();
    for (const DBusPixmap& icon : pixmaps()) {
        EXPECT_EQ(icon.width, icon.height);
    }
    EXPECT_EQ(toolTip().title, QStringLiteral("1.2 s  Very high delay  ↓12.4M ↑210K"));
    EXPECT_EQ(toolTip().text, QStringLiteral("response time"));
}

TEST_F(StatusItemOnHostTest, EscapesTheTextThatHostsReadAsMarkup) {
    showBadge();
    StatusDisplay display = sample::fast();
    display.toolTip = QStringLiteral("a < b & c");
    item_->setDisplay(display);
    EXPECT_EQ(toolTip().text, QStringLiteral("a &lt; b &amp; c"));
}

// How hosts come to know it.

TEST_F(StatusItemOnHostTest, IsCompleteBeforeAnybodyHearsOfIt) {
    for (const QString& processName : {QStringLiteral("gnome-shell"), QStringLiteral("panel-2-systray")}) {
        QVariantMap seen;
        host_.onRegistration = [&] {
            // Asked in the middle of the registration, before the watcher has answered.
            host_.onRegistration = nullptr;
            seen = host_.itemProperties();
            EXPECT_EQ(qdbus_cast<DBusMenuLayout>(readLayout().arguments().value(1)).children.size(), 2);
        };
        host_.appear();
        makeItem(processName);
        ASSERT_TRUE(waitUntil([&] { return !seen.isEmpty(); }));
        EXPECT_EQ(seen.value(QStringLiteral("Id")), QStringLiteral("skylet"));
        EXPECT_EQ(seen.contains(QStringLiteral("XAyatanaLabel")), processName == QLatin1String("gnome-shell"));
        item_.reset();
        host_.disappear();
    }
}

TEST_F(StatusItemOnHostTest, TellsEachWatchersHostTheFirstLabelOnceItHasReadTheMenu) {
    makeItem(QStringLiteral("gnome-shell"));
    for (int round = 1; round <= 2; ++round) {
        host_.forgetSignals();
        host_.appear();
        ASSERT_TRUE(waitUntil([&] { return host_.registrations().size() == round; }));
        EXPECT_EQ(host_.itemProperties().value(QStringLiteral("XAyatanaLabel")), QStringLiteral(""));
        item_->setDisplay(sample::slow());
        item_->setDisplay(sample::fast());
        host_.settle();
        EXPECT_EQ(count("XAyatanaNewLabel"), 0);
        readLayout();
        host_.settle();
        EXPECT_EQ(count("XAyatanaNewLabel"), 1);
        EXPECT_EQ(host_.last(QStringLiteral("XAyatanaNewLabel")).value(0),
                  QStringLiteral("87 ms  Responsive  ↓12.4M ↑210K"));
        EXPECT_EQ(property(QStringLiteral("XAyatanaLabel")), QStringLiteral("87 ms  Responsive  ↓12.4M ↑210K"));
        readLayout();
        host_.settle();
        EXPECT_EQ(count("XAyatanaNewLabel"), 1);
        host_.disappear();
    }
}

TEST_F(StatusItemOnHostTest, TellsTheFirstLabelAfterAWhileToAHostThatDoesNotReadTheMenu) {
    labelDelay_ = 20ms;
    host_.appear();
    makeItem(QStringLiteral("gnome-shell"));
    ASSERT_TRUE(waitUntil([&] { return count("XAyatanaNewLabel") == 1; }));
    EXPECT_EQ(property(QStringLiteral("XAyatanaLabel")), QStringLiteral("87 ms  Responsive  ↓12.4M ↑210K"));
}

TEST_F(StatusItemOnHostTest, RegistersWithAWatcherThatComesLaterAndWithEachThatFollows) {
    makeItem(QStringLiteral("panel-2-systray"));
    host_.appear();
    ASSERT_TRUE(waitUntil([this] { return host_.registrations().size() == 1; }));
    host_.disappear();
    FakeStatusHost next(bus_.connect());
    next.appear();
    ASSERT_TRUE(waitUntil([&] { return next.registrations().size() == 1; }));
    EXPECT_EQ(host_.registrations().size(), 1);
}

TEST_F(StatusItemOnHostTest, RegistersWithAWatcherThatDiesAndComesBack) {
    auto first = std::make_unique<FakeStatusHost>(bus_.connect());
    first->appear();
    makeItem(QStringLiteral("panel-2-systray"));
    ASSERT_TRUE(waitUntil([&] { return first->registrations().size() == 1; }));
    const QString lost = first->connection().name();
    first.reset();
    PrivateBus::disconnect(lost);
    FakeStatusHost second(bus_.connect());
    EXPECT_TRUE(waitUntil([&] { return item_->windowDescription().startsWith(QLatin1String("none")); }));
    second.appear();
    EXPECT_TRUE(waitUntil([&] { return second.registrations().size() == 1; }));
}

TEST_F(StatusItemOnHostTest, RegistersWithAWatcherThatTakesItsNameAgainAtOnce) {
    host_.appear();
    makeItem(QStringLiteral("panel-2-systray"));
    ASSERT_TRUE(waitUntil([this] { return host_.registrations().size() == 1; }));
    host_.disappear();
    host_.appear();
    EXPECT_TRUE(waitUntil([this] { return host_.registrations().size() == 2; }));
}

TEST_F(StatusItemOnHostTest, RegistersAgainWhereALabelHostDoesNotReadTheMenu) {
    registration_ = {30ms, 1000};
    host_.appear();
    makeItem(QStringLiteral("gnome-shell"));
    ASSERT_TRUE(waitUntil([this] { return host_.registrations().size() >= 2; }));
    readLayout();
    host_.settle();
    const auto before = host_.registrations().size();
    runFor(120ms);
    EXPECT_EQ(host_.registrations().size(), before);
}

TEST_F(StatusItemOnHostTest, ShowsTheTitleInAnotherWayOnAnotherHost) {
    showBadge();
    EXPECT_FALSE(host_.itemProperties().contains(QStringLiteral("XAyatanaLabel")));
    host_.disappear();
    processName_ = QStringLiteral("gnome-shell");
    FakeStatusHost gnome(bus_.connect());
    gnome.appear();
    ASSERT_TRUE(waitUntil([&] { return !gnome.item().isEmpty(); }));
    gnome.callMenu(QStringLiteral("GetLayout"), {0, -1, QStringList()});
    gnome.settle();
    EXPECT_EQ(gnome.itemProperties().value(QStringLiteral("XAyatanaLabel")),
              QStringLiteral("87 ms  Responsive  ↓12.4M ↑210K"));
}

TEST_F(StatusItemOnHostTest, DrawsTheTitleIntoTheIconWhereTheHostShowsWideOnes) {
    showWide();
    const QVariantMap all = host_.itemProperties();
    EXPECT_FALSE(all.contains(QStringLiteral("XAyatanaLabel")));
    const QList<DBusPixmap> icons = pixmaps().first(6);
    for (const DBusPixmap& icon : icons) {
        EXPECT_GT(icon.width, 5 * icon.height);
        EXPECT_EQ(icon.pixels.size(), icon.width * icon.height * 4);
    }
    EXPECT_EQ(icons.first().height, 16);
    EXPECT_EQ(icons.last().height, 44);
    EXPECT_EQ(toolTip().title, QStringLiteral("response time"));
}

TEST_F(StatusItemOnHostTest, OffersBadgesToPanelsWithoutTheWidthForTheWholeTitle) {
    showWide();
    for (const StatusDisplay& display : {sample::fast(), sample::slow(), sample::paused()}) {
        item_->setDisplay(display);
        host_.settle();
        const QList<DBusPixmap> all = pixmaps();
        const QList<DBusPixmap> wide = all.first(6);
        const QList<DBusPixmap> badges = all.mid(wide.size());
        ASSERT_FALSE(badges.isEmpty());
        const StatusIcon badge = appearance(Presentation::badge, display).icon;
        for (const DBusPixmap& icon : badges) {
            EXPECT_EQ(icon.width, icon.height);
            EXPECT_EQ(icon.pixels, toDBusPixmap(paintStatusIcon(badge, icon.height,
                                                                QFontDatabase::systemFont(QFontDatabase::GeneralFont)))
                                       .pixels);
            // Hosts that take the picture with the most pixels get the title.
            EXPECT_LT(icon.width * icon.height, wide.last().width * wide.last().height);
        }
    }
}

TEST_F(StatusItemOnHostTest, HasAPictureOfEverySizeThatPanelsUse) {
    const auto hasHeights = [this](std::initializer_list<int> heights, bool wide) {
        const QList<DBusPixmap> all = pixmaps();
        for (const int height : heights) {
            EXPECT_TRUE(std::any_of(all.cbegin(), all.cend(), [height, wide](const DBusPixmap& picture) {
                return picture.height == height && wide == (picture.width > picture.height);
            })) << height;
        }
    };
    showBadge();
    hasHeights({16, 22, 24, 32, 44, 48, 64}, false);
    host_.disappear();
    processName_ = QStringLiteral("waybar");
    host_.appear();
    ASSERT_TRUE(waitUntil([this] { return pixmaps().first().width > pixmaps().first().height; }));
    hasHeights({16, 22, 24, 28, 32, 44}, true);
}

TEST_F(StatusItemOnHostTest, KeepsTheWidthOfAWideIconForAWhileWhenTheTitleGetsShorter) {
    showWide();
    item_->setDisplay(sample::fast());
    host_.settle();
    const int wide = pixmaps().first().width;
    item_->setDisplay(sample::offline());
    host_.settle();
    EXPECT_EQ(pixmaps().first().width, wide);
    host_.forgetSignals();
    schedule_.fire();
    host_.settle();
    EXPECT_LT(pixmaps().first().width, wide);
    EXPECT_EQ(count("NewIcon"), 1);
}

TEST_F(StatusItemOnHostTest, TellsOfANewTitleInAWideIconByTheIconAlone) {
    showWide();
    item_->setDisplay(sample::slow());
    host_.settle();
    EXPECT_EQ(count("NewIcon"), 1);
    EXPECT_EQ(host_.countAll(), 1);
    item_->setDisplay(sample::slow());
    host_.settle();
    EXPECT_EQ(host_.countAll(), 1);
}

TEST_F(StatusItemOnHostTest, DescribesItselfForTheLog) {
    makeItem(QStringLiteral("panel-2-systray"));
    EXPECT_EQ(item_->windowDescription(), QStringLiteral("none (no status host yet)"));
    EXPECT_EQ(item_->buttonDescription(),
              QStringLiteral("StatusNotifierItem of %1 at /StatusNotifierItem").arg(itemConnection_.baseService()));
    host_.appear();
    ASSERT_TRUE(waitUntil([this] { return !host_.item().isEmpty(); }));
    EXPECT_EQ(item_->windowDescription(), QStringLiteral("status host ") + host_.connection().baseService());
}

// What it tells.

TEST_F(StatusItemOnHostTest, TellsNothingOfWhatItIsFromTheStart) {
    host_.appear();
    makeItem(QStringLiteral("panel-2-systray"));
    ASSERT_TRUE(waitUntil([this] { return host_.registrations().size() == 1; }));
    host_.settle();
    EXPECT_EQ(host_.countAll(), 0);
}

TEST_F(StatusItemOnHostTest, TellsNothingWhenNothingChanged) {
    showBadge();
    for (int round = 0; round < 3; ++round) {
        item_->setDisplay(sample::fast());
        item_->setVisible(true);
        line_->setTitle(QStringLiteral("line"));
        host_.settle();
    }
    EXPECT_EQ(host_.countAll(), 0);
}

// A host reads the whole item for each signal, and the traffic changes every other second.
TEST_F(StatusItemOnHostTest, TellsOfOtherTrafficOnALabelHostByTheLabelAlone) {
    showLabel();
    StatusDisplay display = sample::fast();
    display.title.back().text = QStringLiteral("  ↓1K ↑2K");
    item_->setDisplay(display);
    host_.settle();
    EXPECT_EQ(count("XAyatanaNewLabel"), 1);
    EXPECT_EQ(host_.countAll(), 1);
}

TEST_F(StatusItemOnHostTest, TellsOfANewNumberOnALabelHostByTheLabelAndItsDescription) {
    showLabel();
    item_->setDisplay(sample::responsive(QStringLiteral("91")));
    host_.settle();
    EXPECT_EQ(count("XAyatanaNewLabel"), 1);
    EXPECT_EQ(count("NewIconAccessibleDesc"), 1);
    EXPECT_EQ(host_.countAll(), 2);
    EXPECT_EQ(host_.last(QStringLiteral("XAyatanaNewLabel")),
              (QVariantList{QStringLiteral("91 ms  Responsive  ↓12.4M ↑210K"),
                            QStringLiteral("00 ms  Responsive  ↓00.0M ↑000K")}));
}

TEST_F(StatusItemOnHostTest, TellsOfANewColourOnALabelHostByTheIconToo) {
    showLabel();
    item_->setDisplay(sample::offline());
    host_.settle();
    EXPECT_EQ(count("NewIcon"), 1);
    EXPECT_EQ(count("XAyatanaNewLabel"), 1);
    EXPECT_EQ(host_.countAll(), 2);
}

TEST_F(StatusItemOnHostTest, TellsOfANewNumberOnABadgeHostByIconAndTooltip) {
    showBadge();
    item_->setDisplay(sample::slow());
    host_.settle();
    EXPECT_EQ(count("NewIcon"), 1);
    EXPECT_EQ(count("NewToolTip"), 1);
    EXPECT_EQ(host_.countAll(), 2);
}

TEST_F(StatusItemOnHostTest, PaintsTheBadgeAnewWhenOnlyTheNumberChanges) {
    showBadge();
    const StatusIcon next = appearance(Presentation::badge, sample::responsive(QStringLiteral("91"))).icon;
    const auto nextPixels = [&](int size) {
        return toDBusPixmap(paintStatusIcon(next, size, QFontDatabase::systemFont(QFontDatabase::GeneralFont))).pixels;
    };
    for (const DBusPixmap& icon : pixmaps()) {
        EXPECT_NE(icon.pixels, nextPixels(icon.height));
    }
    item_->setDisplay(sample::responsive(QStringLiteral("91")));
    host_.settle();
    EXPECT_EQ(count("NewIcon"), 1);
    const QList<DBusPixmap> icons = pixmaps();
    ASSERT_FALSE(icons.isEmpty());
    for (const DBusPixmap& icon : icons) {
        EXPECT_EQ(icon.pixels, nextPixels(icon.height));
    }
}

TEST_F(StatusItemOnHostTest, TellsOfNoNewIconOnALabelHostWhereTheColourStays) {
    showLabel();
    item_->setDisplay(sample::checking());
    host_.settle();
    EXPECT_EQ(count("NewIcon"), 1);
    item_->setDisplay(sample::slow());
    host_.settle();
    EXPECT_EQ(count("NewIcon"), 1);
}

TEST_F(StatusItemOnHostTest, TellsOfNewTrafficOnABadgeHostByTheTooltipAlone) {
    showBadge();
    StatusDisplay display = sample::fast();
    display.title.back().text = QStringLiteral("  ↓1K ↑2K");
    item_->setDisplay(display);
    host_.settle();
    EXPECT_EQ(count("NewToolTip"), 1);
    EXPECT_EQ(host_.countAll(), 1);
}

TEST_F(StatusItemOnHostTest, TellsTheChangesOfOneTurnOnce) {
    showLabel();
    for (int number = 100; number < 200; ++number) {
        item_->setDisplay(
            sample::latency(Status::slow, QString::number(number), QStringLiteral("ms"), QStringLiteral("word")));
    }
    host_.settle();
    EXPECT_EQ(count("NewIcon"), 1);
    EXPECT_EQ(count("XAyatanaNewLabel"), 1);
    EXPECT_EQ(host_.countAll(), 2);
}

TEST_F(StatusItemOnHostTest, TellsNothingOfAChangeThatWasTakenBackInTheSameTurn) {
    showBadge();
    item_->setDisplay(sample::offline());
    item_->setDisplay(sample::fast());
    host_.settle();
    EXPECT_EQ(host_.countAll(), 0);
}

TEST_F(StatusItemOnHostTest, TellsOfATooltipOnlyAfterTheMenuIsClosed) {
    showBadge();
    menuEvent(QStringLiteral("opened"));
    item_->setDisplay(sample::slow());
    host_.settle();
    EXPECT_EQ(count("NewIcon"), 1);
    EXPECT_EQ(count("NewToolTip"), 0);
    // xfce4-panel reads it with the icon, and would show it over the menu.
    EXPECT_EQ(toolTip().title, QStringLiteral("87 ms  Responsive  ↓12.4M ↑210K"));
    item_->setDisplay(sample::offline());
    host_.settle();
    EXPECT_EQ(count("NewToolTip"), 0);
    menuEvent(QStringLiteral("closed"));
    host_.settle();
    EXPECT_EQ(count("NewToolTip"), 1);
    EXPECT_EQ(toolTip().title, QStringLiteral("Offline"));
}

TEST_F(StatusItemOnHostTest, TellsOfNoTooltipAfterTheMenuIsClosedWhenItIsAsBefore) {
    showBadge();
    menuEvent(QStringLiteral("opened"));
    item_->setDisplay(sample::slow());
    host_.settle();
    item_->setDisplay(sample::fast());
    menuEvent(QStringLiteral("closed"));
    host_.settle();
    EXPECT_EQ(count("NewToolTip"), 0);
}

TEST_F(StatusItemOnHostTest, TellsGnomeOfNewTextsInTheMenuOnlyWhileThatIsOpen) {
    showLabel();
    line_->setTitle(QStringLiteral("another line"));
    host_.settle();
    EXPECT_EQ(count("ItemsPropertiesUpdated"), 0);
    menuEvent(QStringLiteral("opened"));
    host_.settle();
    EXPECT_EQ(count("ItemsPropertiesUpdated"), 1);
}

TEST_F(StatusItemOnHostTest, NeverTellsOfANewLayoutForANewText) {
    showBadge();
    line_->setTitle(QStringLiteral("another line"));
    host_.settle();
    EXPECT_EQ(count("ItemsPropertiesUpdated"), 1);
    EXPECT_EQ(count("LayoutUpdated"), 0);
}

TEST_F(StatusItemOnHostTest, IsPassiveWhileItIsHidden) {
    showBadge();
    item_->setVisible(false);
    host_.settle();
    EXPECT_EQ(count("NewStatus"), 1);
    EXPECT_EQ(host_.last(QStringLiteral("NewStatus")), QVariantList{QStringLiteral("Passive")});
    EXPECT_EQ(property(QStringLiteral("Status")), QStringLiteral("Passive"));
    item_->setVisible(true);
    host_.settle();
    EXPECT_EQ(host_.last(QStringLiteral("NewStatus")), QVariantList{QStringLiteral("Active")});
}

TEST_F(StatusItemOnHostTest, NeedsAttentionForAWhileWithAFrameAroundTheSameDot) {
    attention_ = 1s;
    showBadge();
    // Not on show yet: not in every size.
    ASSERT_EQ(pixmaps(QStringLiteral("AttentionIconPixmap")).size(), 1);
    StatusIcon framed = appearance(Presentation::badge, sample::fast()).icon;
    framed.needsAttention = true;
    const auto framedPixels = [&](int size) {
        return toDBusPixmap(paintStatusIcon(framed, size, QFontDatabase::systemFont(QFontDatabase::GeneralFont)))
            .pixels;
    };
    EXPECT_EQ(pixmaps(QStringLiteral("AttentionIconPixmap")).first().pixels, framedPixels(16));
    item_->requestAttention();
    host_.settle();
    EXPECT_EQ(pixmaps(QStringLiteral("AttentionIconPixmap")).size(), pixmaps().size());
    EXPECT_EQ(count("NewStatus"), 1);
    EXPECT_EQ(host_.last(QStringLiteral("NewStatus")), QVariantList{QStringLiteral("NeedsAttention")});
    EXPECT_EQ(count("NewAttentionIcon"), 1);
    EXPECT_EQ(pixmaps(QStringLiteral("AttentionIconPixmap")).last().pixels, framedPixels(64));
    EXPECT_EQ(count("NewIcon"), 1);
    EXPECT_EQ(pixmaps().last().pixels, framedPixels(64)) << "MATE and Waybar draw no other";
    ASSERT_TRUE(waitUntil([this] { return count("NewStatus") == 2; }));
    EXPECT_EQ(host_.last(QStringLiteral("NewStatus")), QVariantList{QStringLiteral("Active")});
    EXPECT_EQ(count("NewIcon"), 2);
    EXPECT_NE(pixmaps().last().pixels, framedPixels(64));
}

TEST_F(StatusItemOnHostTest, KeepsTheDotRightWhileItNeedsAttention) {
    attention_ = 1min;
    showBadge();
    item_->requestAttention();
    item_->setDisplay(sample::offline());
    host_.settle();
    EXPECT_EQ(count("NewAttentionIcon"), 1);
    item_->setDisplay(sample::paused());
    host_.settle();
    EXPECT_EQ(count("NewAttentionIcon"), 2);
}

TEST_F(StatusItemOnHostTest, DoesNotAskForAttentionWhileItIsHidden) {
    showBadge();
    item_->setVisible(false);
    item_->requestAttention();
    EXPECT_EQ(property(QStringLiteral("Status")), QStringLiteral("Passive"));
    item_->setVisible(true);
    EXPECT_EQ(property(QStringLiteral("Status")), QStringLiteral("Active"));
}

// What hosts ask of it.

TEST_F(StatusItemOnHostTest, OpensItsMenuWhereTheHostLeavesThatToIt) {
    for (const char* processName : {"lxqt-panel", "mate-panel", "panel-2-systray"}) {
        show(QString::fromLatin1(processName));
        for (const char* method : {"Activate", "ContextMenu"}) {
            const QDBusMessage answer = host_.callItem(QString::fromLatin1(method), {40, 50});
            EXPECT_EQ(answer.type(), QDBusMessage::ReplyMessage) << processName << ' ' << method;
            ASSERT_NE(openMenu(), nullptr);
            EXPECT_EQ(openMenu()->actions().at(0)->text(), QStringLiteral("line"));
            openMenu()->close();
        }
        item_.reset();
        host_.disappear();
    }
}

TEST_F(StatusItemOnHostTest, RefusesToBeActivatedWhereTheHostThenOpensTheMenu) {
    for (const char* processName : {"plasmashell", "gnome-shell"}) {
        show(QString::fromLatin1(processName));
        EXPECT_EQ(host_.callItem(QStringLiteral("Activate"), {40, 50}).errorName(),
                  QDBusError::errorString(QDBusError::UnknownMethod));
        EXPECT_EQ(openMenu(), nullptr);
        item_.reset();
        host_.disappear();
    }
}

TEST_F(StatusItemOnHostTest, HasNoTooltipWhileItsOwnPopupIsOpen) {
    showBadge();
    host_.callItem(QStringLiteral("Activate"), {40, 50});
    host_.settle();
    EXPECT_EQ(count("NewToolTip"), 1);
    EXPECT_EQ(toolTip().title + toolTip().text, QString());
    item_->setDisplay(sample::offline());
    host_.settle();
    EXPECT_EQ(count("NewToolTip"), 1);
    EXPECT_EQ(toolTip().title + toolTip().text, QString());
    ASSERT_NE(openMenu(), nullptr);
    openMenu()->close();
    host_.settle();
    EXPECT_EQ(count("NewToolTip"), 2);
    EXPECT_EQ(toolTip().title, QStringLiteral("Offline"));
}

TEST_F(StatusItemOnHostTest, TakesEveryPlaceThatAHostMayName) {
    showBadge();
    constexpr int most = std::numeric_limits<int>::max();
    for (const int place : {most, -most, 0}) {
        EXPECT_EQ(host_.callItem(QStringLiteral("Activate"), {place, place}).type(), QDBusMessage::ReplyMessage);
        ASSERT_NE(openMenu(), nullptr);
        openMenu()->close();
    }
}

TEST_F(StatusItemOnHostTest, TakesTheOtherCallsOfTheProtocolAndDoesNothing) {
    showBadge();
    for (const QDBusMessage& answer : {host_.callItem(QStringLiteral("SecondaryActivate"), {1, 2}),
                                       host_.callItem(QStringLiteral("XAyatanaSecondaryActivate"), {1U}),
                                       host_.callItem(QStringLiteral("Scroll"), {1, QStringLiteral("vertical")})}) {
        EXPECT_EQ(answer.type(), QDBusMessage::ReplyMessage);
    }
    host_.settle();
    EXPECT_EQ(host_.countAll(), 0);
    EXPECT_EQ(openMenu(), nullptr);
    EXPECT_EQ(chosen_, 0);
}

TEST_F(StatusItemOnHostTest, PassesOnTokensForWindowsButNoTextsThatAreNone) {
    QStringList taken;
    SniObject object(QStringLiteral("/Other"), QStringLiteral("/Menu"), [](const QString&, QPoint) { return false; });
    QObject::connect(&object, &SniObject::activationTokenProvided, &object,
                     [&taken](const QString& token) { taken.append(token); });
    ASSERT_TRUE(object.exportOn(itemConnection_));
    host_.takeItem(itemConnection_.baseService());
    for (const QString& token : {QStringLiteral("token-1"), QString(100'000, QLatin1Char('x'))}) {
        const QDBusMessage answer = host_.call(QStringLiteral("/Other"), QStringLiteral("org.kde.StatusNotifierItem"),
                                               QStringLiteral("ProvideXdgActivationToken"), {token});
        EXPECT_EQ(answer.type(), QDBusMessage::ReplyMessage);
    }
    EXPECT_EQ(taken, QStringList{QStringLiteral("token-1")});
}

TEST_F(StatusItemOnHostTest, KeepsNothingOfMessagesAsLargeAsTheBusCarries) {
    showBadge();
    const QString text(test::largestMegabytes() * 1'000'000, u'x');
    const QVariant value = QVariant::fromValue(QDBusVariant(text));
    EXPECT_EQ(host_.callItem(QStringLiteral("Scroll"), {1, text}).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(host_.callItem(QStringLiteral("ProvideXdgActivationToken"), {text}).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(host_.callItem(QStringLiteral("Nonsense"), {text}).type(), QDBusMessage::ErrorMessage);
    const QString properties = QStringLiteral("org.freedesktop.DBus.Properties");
    const std::array<std::pair<QString, QString>, 2> objects = {
        {{QStringLiteral("/StatusNotifierItem"), QStringLiteral("org.kde.StatusNotifierItem")},
         {QStringLiteral("/MenuBar"), QStringLiteral("com.canonical.dbusmenu")}}};
    for (const auto& [path, interface] : objects) {
        const QVariantList name = {interface, QStringLiteral("objectName")};
        host_.call(path, properties, QStringLiteral("Set"), name + QVariantList{value});
        const QDBusMessage answer = host_.call(path, properties, QStringLiteral("Get"), name);
        EXPECT_EQ(qdbus_cast<QDBusVariant>(answer.arguments().value(0)).variant(), QString()) << path.toStdString();
    }
    EXPECT_EQ(property(QStringLiteral("Id")), QStringLiteral("skylet"));
}

TEST_F(StatusItemOnHostTest, LeavesTheEnvironmentAloneWhereNothingReadsTheToken) {
    showBadge();
    host_.callItem(QStringLiteral("ProvideXdgActivationToken"), {QStringLiteral("token-1")});
    EXPECT_FALSE(qEnvironmentVariableIsSet("XDG_ACTIVATION_TOKEN"));
}

TEST_F(StatusItemOnHostTest, RefusesWhatIsNotOfTheProtocol) {
    showBadge();
    const QString text = QStringLiteral("x");
    EXPECT_EQ(host_.callItem(QStringLiteral("Activate"), {text, text}).errorName(),
              QDBusError::errorString(QDBusError::UnknownMethod));
    EXPECT_EQ(openMenu(), nullptr);
    EXPECT_EQ(host_.callItem(QStringLiteral("Scroll")).errorName(), QDBusError::errorString(QDBusError::UnknownMethod));
    EXPECT_EQ(host_.callItem(QStringLiteral("Nonsense")).type(), QDBusMessage::ErrorMessage);
    EXPECT_EQ(host_.itemProperty(text).type(), QDBusMessage::ErrorMessage);
    const QString path = QStringLiteral("/StatusNotifierItem");
    const QString properties = QStringLiteral("org.freedesktop.DBus.Properties");
    const QString item = QStringLiteral("org.kde.StatusNotifierItem");
    const QDBusMessage set = host_.call(path, properties, QStringLiteral("Set"),
                                        {item, QStringLiteral("Id"), QVariant::fromValue(QDBusVariant(text))});
    EXPECT_EQ(set.errorName(), QDBusError::errorString(QDBusError::PropertyReadOnly));
    EXPECT_EQ(host_.call(path, properties, QStringLiteral("Get"), {1, 2, 3}).type(), QDBusMessage::ErrorMessage);
    EXPECT_EQ(host_.call(path, properties, QStringLiteral("Nonsense"), {}).type(), QDBusMessage::ErrorMessage);
    EXPECT_EQ(property(QStringLiteral("Id")), QStringLiteral("skylet"));
}

TEST_F(StatusItemOnHostTest, DescribesItselfToHosts) {
    showBadge();
    const QDBusMessage answer =
        host_.call(QStringLiteral("/StatusNotifierItem"), QStringLiteral("org.freedesktop.DBus.Introspectable"),
                   QStringLiteral("Introspect"), {});
    const QString xml = answer.arguments().value(0).toString();
    for (const char* part : {"org.kde.StatusNotifierItem", "IconPixmap", "a(iiay)", "\"ToolTip\"", "(sa(iiay)ss)",
                             "Activate", "NewToolTip", "XAyatanaNewLabel"}) {
        EXPECT_TRUE(xml.contains(QLatin1String(part))) << part;
    }
}

// What it survives.

TEST_F(StatusItemOnHostTest, SurvivesTheEndOfTheBus) {
    showBadge();
    bus_.kill();
    ASSERT_TRUE(waitUntil([this] { return !itemConnection_.isConnected(); }));
    item_->setDisplay(sample::offline());
    line_->setTitle(QStringLiteral("another line"));
    item_->setVisible(false);
    item_->setVisible(true);
    item_->requestAttention();
    runFor(150ms);
    EXPECT_EQ(item_->buttonDescription(), QStringLiteral("none (no session bus)"));
}

TEST_F(StatusItemOnHostTest, SurvivesAHostThatGoesWithTheMenuOpen) {
    auto host = std::make_unique<FakeStatusHost>(bus_.connect());
    host->appear();
    makeItem(QStringLiteral("panel-2-systray"));
    ASSERT_TRUE(waitUntil([&] { return !host->item().isEmpty(); }));
    host->callMenu(QStringLiteral("Event"), {0, QStringLiteral("opened"), QVariant::fromValue(QDBusVariant(0)), 0U});
    const QString lost = host->connection().name();
    host.reset();
    PrivateBus::disconnect(lost);
    host_.appear();
    ASSERT_TRUE(waitUntil([this] { return !host_.item().isEmpty(); }));
    host_.forgetSignals();
    item_->setDisplay(sample::slow());
    ASSERT_TRUE(waitUntil([this] { return count("NewToolTip") == 1; }));
}

TEST_F(StatusItemOnHostTest, IsRegisteredOnlyWhenItHasSomethingToShow) {
    host_.appear();
    item_ = std::make_unique<DesktopStatusItem>(itemConnection_);
    runFor(50ms);
    EXPECT_TRUE(host_.registrations().isEmpty());
    item_->setDisplay(sample::fast());
    EXPECT_TRUE(waitUntil([this] { return !host_.item().isEmpty(); }));
}

TEST_F(StatusItemOnHostTest, GoesQuietlyWithAnswersUnderWay) {
    host_.setManner(FakeStatusHost::Manner::refuses);
    host_.appear();
    registration_ = {10ms, 3};
    makeItem(QStringLiteral("gnome-shell"));
    item_.reset();
    runFor(50ms);
    EXPECT_EQ(host_.registrations().size(), 1);
}

} // namespace
} // namespace skylet
