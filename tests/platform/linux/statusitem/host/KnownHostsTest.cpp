#include "platform/linux/statusitem/host/KnownHosts.h"

#include <gtest/gtest.h>

namespace skylet {
namespace {

StatusHostTraits traitsOfProcess(const QString& name) {
    return traitsOfHost(name, QString());
}

StatusHostTraits traitsOfDesktop(const QString& names) {
    return traitsOfHost(QString(), names);
}

TEST(KnownHostsTest, KnowTheHostsThatSetALabel) {
    for (const char* name : {"gnome-shell", "ayatana-indicat", "indicator-appli"}) {
        EXPECT_EQ(traitsOfProcess(QString::fromLatin1(name)).presentation, Presentation::label) << name;
    }
}

TEST(KnownHostsTest, TakeEveryOtherHostForOneThatShowsAnIconAlone) {
    for (const char* name : {"panel-2-systray", "xfce4-panel", "lxqt-panel", "plasmashell", "kded5", "xapp-sn-watcher",
                             "gnome-shell-ext", "", "notification"}) {
        EXPECT_EQ(traitsOfProcess(QString::fromLatin1(name)).presentation, Presentation::badge) << name;
    }
}

TEST(KnownHostsTest, KnowTheHostsThatShowWideIcons) {
    for (const char* name : {"mate-panel", "notification-ar", "waybar"}) {
        EXPECT_EQ(traitsOfProcess(QString::fromLatin1(name)).presentation, Presentation::wide) << name;
    }
}

TEST(KnownHostsTest, KnowWhoOpensTheMenuOnAClick) {
    for (const char* name : {"gnome-shell", "plasmashell", "kded5", "kded6"}) {
        EXPECT_TRUE(traitsOfProcess(QString::fromLatin1(name)).opensMenu) << name;
    }
    for (const char* name : {"mate-panel", "lxqt-panel", "waybar", "panel-2-systray"}) {
        EXPECT_FALSE(traitsOfProcess(QString::fromLatin1(name)).opensMenu) << name;
    }
}

TEST(KnownHostsTest, KnowWhereTheTitleWouldNotBeSeen) {
    EXPECT_TRUE(traitsOfHost(QStringLiteral("xapp-sn-watcher"), QStringLiteral("X-Cinnamon")).squeezesWideIcons);
    EXPECT_FALSE(traitsOfProcess(QStringLiteral("mate-panel")).squeezesWideIcons);
    EXPECT_TRUE(traitsOfProcess(QStringLiteral("budgie-daemon")).showsToolTipTextAlone);
    EXPECT_TRUE(traitsOfProcess(QStringLiteral("budgie-panel")).showsToolTipTextAlone);
    EXPECT_EQ(traitsOfDesktop(QStringLiteral("Budgie:GNOME")), traitsOfProcess(QStringLiteral("budgie-panel")));
    EXPECT_FALSE(traitsOfProcess(QStringLiteral("panel-2-systray")).showsToolTipTextAlone);
}

TEST(KnownHostsTest, KnowTheWatchersThatShowNothingThemselves) {
    for (const char* name : {"kded5", "kded6"}) {
        EXPECT_TRUE(traitsOfProcess(QString::fromLatin1(name)).watchesOnly) << name;
    }
    for (const char* name : {"plasmashell", "gnome-shell", "xfce4-panel", ""}) {
        EXPECT_FALSE(traitsOfProcess(QString::fromLatin1(name)).watchesOnly) << name;
    }
    // Where processes cannot be seen, as in a sandbox, hosts may be out of sight as well.
    EXPECT_FALSE(traitsOfDesktop(QStringLiteral("KDE")).watchesOnly);
}

TEST(KnownHostsTest, FallBackOnTheNamesOfTheDesktop) {
    EXPECT_EQ(traitsOfDesktop(QStringLiteral("ubuntu:GNOME")), traitsOfProcess(QStringLiteral("gnome-shell")));
    EXPECT_EQ(traitsOfDesktop(QStringLiteral("MATE")), traitsOfProcess(QStringLiteral("mate-panel")));
    EXPECT_EQ(traitsOfDesktop(QStringLiteral("KDE")), traitsOfProcess(QStringLiteral("plasmashell")));
    EXPECT_EQ(traitsOfDesktop(QStringLiteral("X-Cinnamon")).presentation, Presentation::wide);
    EXPECT_EQ(traitsOfDesktop(QStringLiteral("Unity:Unity7:ubuntu")),
              traitsOfProcess(QStringLiteral("indicator-appli")));
    EXPECT_TRUE(traitsOfDesktop(QStringLiteral("Unity")).prefersIconName);
    EXPECT_EQ(traitsOfDesktop(QStringLiteral("XFCE")), StatusHostTraits());
    EXPECT_EQ(traitsOfDesktop(QString()), StatusHostTraits());
}

TEST(KnownHostsTest, TheProcessDecidesBeforeTheDesktop) {
    EXPECT_EQ(traitsOfHost(QStringLiteral("lxqt-panel"), QStringLiteral("GNOME")), StatusHostTraits());
    EXPECT_EQ(traitsOfHost(QStringLiteral("xapp-sn-watcher"), QStringLiteral("X-Cinnamon")).presentation,
              Presentation::wide);
}

} // namespace
} // namespace skylet
