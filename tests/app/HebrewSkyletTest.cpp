#include "SkyletFixture.h"
#include "ui/Strings.h"

namespace skylet {
namespace {

/// The menu in a process whose user reads Hebrew.
class HebrewSkyletTest : public SkyletTest {
  protected:
    HebrewSkyletTest() {
        EXPECT_TRUE(isHebrew()) << "to be run with LANGUAGE=he";
        clock.date = QDateTime(QDate(2024, 3, 5), QTime(14, 5));
        launch();
    }
    QString lastSpeed() const { return item(speed)->title(); }
};

TEST_F(HebrewSkyletTest, TheMenuIsInTheUsersLanguage) {
    QStringList titles;
    for (const auto& entry : application.shown->menu) {
        titles += entry->isSeparator() ? QStringLiteral("---") : entry->title();
    }
    EXPECT_EQ(titles,
              (QStringList{QStringLiteral("בודק חיבור..."), QStringLiteral("תעבורה חיה:  \u200E↓ 0b/s   ↑ 0b/s"),
                           QStringLiteral("מבחן מהירות אחרון:  עדיין לא בוצע"), QStringLiteral("---"),
                           QStringLiteral("מבחן מהירות…  (עד \u200E60MB נתונים)"), QStringLiteral("בדיקת חיבור עכשיו"),
                           QStringLiteral("---"),
                           QStringLiteral("הצגת תעבורה חיה בשורת התפריטים   (לדוגמה \u200E↓12.4M ↑210K)"),
                           QStringLiteral("השהיית בדיקות אוטומטיות"), QStringLiteral("הפעלה אוטומטית בכניסה למחשב"),
                           QStringLiteral("---"), QStringLiteral("אודות Skylet"), QStringLiteral("יציאה")}));
}

TEST_F(HebrewSkyletTest, ToolTipAndTitleAreInTheUsersLanguage) {
    EXPECT_EQ(application.shown->display.toolTip, QStringLiteral("זמן תגובת HTTPS, לא מהירות הורדה"));
    EXPECT_EQ(title(), QStringLiteral("בודק…"));
}

TEST_F(HebrewSkyletTest, ASpeedTestIsToldInTheUsersLanguageFromStartToEnd) {
    goOnline();
    item(runTest)->trigger();
    EXPECT_EQ(lastSpeed(), QStringLiteral("מבחן מהירות אחרון:  רץ..."));
    EXPECT_EQ(title(), QStringLiteral("מבחן מהירות רץ…"));
    speedTests.last->cancel();
    EXPECT_EQ(lastSpeed(), QStringLiteral("מבחן מהירות אחרון:  בוטל"));
    speedTests.last->show();
    speedTests.last->finish(48.2, std::nullopt);
    EXPECT_EQ(lastSpeed(), QStringLiteral("מבחן מהירות אחרון:  הורדה 48.2 Mbps  ·  העלאה נכשל   (14:05)"));
    EXPECT_EQ(title(), QStringLiteral("↓ 48.2 Mbps  ↑ נכשל"));
}

} // namespace
} // namespace skylet
