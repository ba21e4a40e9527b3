#include "ui/Strings.h"

#include "BuildConstants.h"

#include <QLocale>

#include <array>
#include <charconv>
#include <limits>
#include <utility>

namespace skylet {

namespace {

/// The user's own strings, made on first use.
const Strings& userStrings() {
    static const Strings strings(QLocale::system().uiLanguages());
    return strings;
}

} // namespace

Strings::Strings(const QStringList& preferredLanguages, RowSource hebrew, RowSource english)
    : isHebrew_(preferredLanguages.value(0, QStringLiteral("en")).startsWith(QStringLiteral("he"))),
      hebrew_{std::move(hebrew), {}, {}}, english_{std::move(english), {}, {}} {}

QString Strings::text(const QString& key) const {
    if (isHebrew_) {
        const auto& table = built(hebrew_);
        if (const auto row = table.constFind(key); row != table.constEnd()) {
            return *row;
        }
    }
    return built(english_).value(key, key);
}

const Strings::Table& Strings::built(LazyTable& lazy) {
    std::call_once(lazy.once, [&lazy] {
        const auto rows = lazy.rows();
        lazy.table.reserve(static_cast<qsizetype>(rows.size()));
        for (const auto& [key, text] : rows) {
            if (lazy.table.contains(key)) {
                qFatal("Strings: the key \"%s\" stands twice", qUtf8Printable(key));
            }
            lazy.table.insert(key, text);
        }
    });
    return lazy.table;
}

QString L(const QString& key) {
    return userStrings().text(key);
}

bool isHebrew() {
    return userStrings().isHebrew();
}

QString formatted(const QString& form, const QStringList& arguments) {
    QString result;
    auto argument = arguments.cbegin();
    for (qsizetype i = 0; i < form.size(); ++i) {
        const bool placeholder =
            form.at(i) == u'%' && i + 1 < form.size() && (form.at(i + 1) == u'd' || form.at(i + 1) == u'@');
        if (placeholder && argument != arguments.cend()) {
            result += *argument++;
            ++i;
        } else {
            result += form.at(i);
        }
    }
    return result;
}

Strings::Rows Strings::hebrewRows() {
    // \u200E, the LEFT-TO-RIGHT MARK, keeps a number or a rate together inside right-to-left text.
    // clang-format off
    return {
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
    };
    // clang-format on
}

Strings::Rows Strings::englishRows() {
    // clang-format off
    return {
        {QStringLiteral("welcome.body"), QStringLiteral("Look at the top-right of your screen for a small dot:\n\n●  Green — an internet check passed. The number is HTTPS response time.\n●  Yellow — checking, or the internet response is delayed.\n●  Red — no network, or both internet checks failed twice.\n\nClick the dot for a full speed test, live traffic and options.\nCan’t see it? Hide optional icons in System Settings → Control Center to make room.")},
        {QStringLiteral("about.tagline"), QStringLiteral("Is the internet really there?\nA tiny menu bar dot for people who work over a phone hotspot.")},
        {QStringLiteral("about.details"), QStringLiteral("Independent HTTPS checks every 5 seconds, with retries and network-change detection.\nResponse time, live interface traffic, and an optional speed estimate (up to 60 MB).")},
        {QStringLiteral("about.language"), QStringLiteral("Language follows your Mac. To change it for Skylet only:\nSystem Settings → General → Language & Region → Applications → +")},
    };
    // clang-format on
}

QString fixed(double value, int decimals) {
    // Room for the largest double there is.
    std::array<char, std::numeric_limits<double>::max_exponent10 + 16> text{};
    const auto written = std::to_chars(text.begin(), text.end(), value, std::chars_format::fixed, decimals);
    return QString::fromLatin1(text.data(), written.ptr - text.data());
}

} // namespace skylet
