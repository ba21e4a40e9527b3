#include "BuildConstants.h"
#include "ui/texts/Texts.h"

namespace skylet {

const Texts& he() {
    // \u200E, the LEFT-TO-RIGHT MARK, keeps a number or a rate together inside right-to-left text.
    // clang-format off
    static const Texts texts = uniqueTexts({
        {QStringLiteral("Quick response"), QStringLiteral("תגובה מהירה")},
        {QStringLiteral("Responsive"), QStringLiteral("מגיב מהר")},
        {QStringLiteral("Moderate delay"), QStringLiteral("השהיה בינונית")},
        {QStringLiteral("High delay"), QStringLiteral("השהיה גבוהה")},
        {QStringLiteral("Very high delay"), QStringLiteral("השהיה גבוהה מאוד")},
        {QStringLiteral("Checking…"), QStringLiteral("בודק…")},
        {QStringLiteral("HTTPS response time, not download speed"), QStringLiteral("זמן תגובת HTTPS, לא מהירות הורדה")},
        {QStringLiteral("Cancelled"), QStringLiteral("בוטל")},
        {QStringLiteral("HTTPS"), QStringLiteral("HTTPS")},
        {QStringLiteral("Run Speed Test…  (up to ~60 MB of data)"), QStringLiteral("מבחן מהירות…  (עד \u200E60MB נתונים)")},
        {QStringLiteral("Check Connection Now"), QStringLiteral("בדיקת חיבור עכשיו")},
        {QStringLiteral("Show Live Traffic in Menu Bar   (e.g. ↓12.4M ↑210K)"), QStringLiteral("הצגת תעבורה חיה בשורת התפריטים   (לדוגמה \u200E↓12.4M ↑210K)")},
        {QStringLiteral("Pause Automatic Checks"), QStringLiteral("השהיית בדיקות אוטומטיות")},
        {QStringLiteral("Launch at Login"), QStringLiteral("הפעלה אוטומטית בכניסה למחשב")},
        {QStringLiteral("About Skylet"), QStringLiteral("אודות Skylet")},
        {QStringLiteral("Quit"), QStringLiteral("יציאה")},
        {QStringLiteral("Automatic checks paused"), QStringLiteral("הבדיקות האוטומטיות מושהות")},
        {QStringLiteral("Checking connection..."), QStringLiteral("בודק חיבור...")},
        {QStringLiteral("Online — %d ms (%@)"), QStringLiteral("מחובר — \u200E%d ms\u200E (%@)")},
        {QStringLiteral("No internet (hotspot without signal?)"), QStringLiteral("אין אינטרנט (נקודה חמה בלי קליטה?)")},
        {QStringLiteral("Live traffic:  ↓ %@b/s   ↑ %@b/s"), QStringLiteral("תעבורה חיה:  \u200E↓ %@b/s   ↑ %@b/s")},
        {QStringLiteral("Last speed test:  "), QStringLiteral("מבחן מהירות אחרון:  ")},
        {QStringLiteral("not run yet"), QStringLiteral("עדיין לא בוצע")},
        {QStringLiteral("running..."), QStringLiteral("רץ...")},
        {QStringLiteral("Download %@  ·  Upload %@"), QStringLiteral("הורדה %@  ·  העלאה %@")},
        {QStringLiteral("failed"), QStringLiteral("נכשל")},
        {QStringLiteral("Blazing"), QStringLiteral("טיל")},
        {QStringLiteral("Fast"), QStringLiteral("מהיר")},
        {QStringLiteral("OK"), QStringLiteral("סביר")},
        {QStringLiteral("Slow"), QStringLiteral("איטי")},
        {QStringLiteral("Stuck"), QStringLiteral("תקוע")},
        {QStringLiteral("Offline"), QStringLiteral("אין רשת")},
        {QStringLiteral("Paused"), QStringLiteral("מושהה")},
        {QStringLiteral("Speed test running…"), QStringLiteral("מבחן מהירות רץ…")},
        {QStringLiteral("Welcome to Skylet"), QStringLiteral("ברוכים הבאים ל-Skylet")},
        {QStringLiteral("Skylet is now in your menu bar"), QStringLiteral("Skylet נמצא עכשיו בשורת התפריטים")},
        {QStringLiteral("welcome.body"), QStringLiteral("חפשו נקודה קטנה בפינה הימנית העליונה של המסך:\n\n●  ירוק — יש אינטרנט. המספר הוא זמן התגובה.\n●  צהוב — בודק חיבור, או שזמן התגובה גבוה.\n●  אדום — אין רשת, או ששתי בדיקות האינטרנט נכשלו פעמיים.\n\nלחצו על הנקודה למבחן מהירות מלא, תעבורה חיה ואפשרויות.\nלא רואים אותה? פנו מקום דרך הגדרות המערכת ← מרכז הבקרה.")},
        {QStringLiteral("Launch Skylet at login (recommended)"), QStringLiteral("הפעלה אוטומטית בכניסה למחשב (מומלץ)")},
        {QStringLiteral("Got it"), QStringLiteral("הבנתי")},
        {QStringLiteral("Version %@"), QStringLiteral("גרסה %@")},
        {QStringLiteral("about.tagline"), QStringLiteral("האם באמת יש אינטרנט?\nנקודה קטנה בשורת התפריטים למי שעובד דרך נקודה חמה.")},
        {QStringLiteral("about.details"), QStringLiteral("בדיקות HTTPS עצמאיות כל 5 שניות, עם בדיקה חוזרת וזיהוי שינויי רשת.\nזמן תגובה, תעבורת ממשקי רשת ומבחן מהירות אופציונלי (עד 60MB).")},
        {QStringLiteral("about.language"), QStringLiteral("השפה נקבעת לפי שפת ה-Mac. לשינוי רק ל-Skylet:\nהגדרות המערכת ← כללי ← שפה ואזור ← יישומים ← +")},
        {QStringLiteral("Powered by Brimlake"), QStringLiteral("Powered by Brimlake")},
        {QString::fromUtf8(build::copyright), QString::fromUtf8(build::copyrightHebrew)},
        {QStringLiteral("Speed Test"), QStringLiteral("מבחן מהירות")},
        {QStringLiteral("PING"), QStringLiteral("פינג")},
        {QStringLiteral("DOWNLOAD"), QStringLiteral("הורדה")},
        {QStringLiteral("UPLOAD"), QStringLiteral("העלאה")},
        {QStringLiteral("DONE"), QStringLiteral("סיום")},
        {QStringLiteral("READY"), QStringLiteral("מוכן")},
        {QStringLiteral("Run Again"), QStringLiteral("הרצה חוזרת")},
    });
    // clang-format on
    return texts;
}

const Texts& heDesktop() {
    // clang-format off
    static const Texts texts = uniqueTexts({
        {QStringLiteral("welcome.where"), QStringLiteral("חפשו נקודה קטנה בלוח של שולחן העבודה:")},
        {QStringLiteral("welcome.hidden"), QStringLiteral("לא רואים אותה? ייתכן שהלוח מסתיר אותה מאחורי חץ. ב-GNOME נדרשת ההרחבה AppIndicator.")},
        {QStringLiteral("about.language"), QStringLiteral("השפה נקבעת לפי שולחן העבודה. לשינוי רק ב-Skylet:\nהפעילו אותו עם LANGUAGE=en או LANGUAGE=he.")},
    });
    // clang-format on
    return texts;
}

} // namespace skylet
