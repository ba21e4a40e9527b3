#include "ui/Strings.h"

#include "BuildConstants.h"
#include "support/QStringPrinting.h"

#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <limits>
#include <utility>
#include <vector>

namespace skylet {

namespace {

const QStringList hebrewFirst{QStringLiteral("he-IL"), QStringLiteral("en-US")};
const QStringList englishFirst{QStringLiteral("en-GB"), QStringLiteral("he-IL")};

/// A table as it is wanted, from the text file of that name beside this one.
std::vector<std::pair<QString, QString>> wantedRows(const char* name) {
    QFile file(QStringLiteral(TABLES "/%1.tsv").arg(QLatin1String(name)));
    if (!file.open(QIODevice::ReadOnly)) {
        ADD_FAILURE() << name << " cannot be read";
        return {};
    }
    std::vector<std::pair<QString, QString>> rows;
    for (auto line : QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts)) {
        if (line.startsWith(u'#')) {
            continue;
        }
        line.replace(QStringLiteral("@YEAR@"), QString::fromUtf8(build::copyright).section(u' ', 1, 1));
        line.replace(QStringLiteral("\\n"), QStringLiteral("\n")).replace(QStringLiteral("\\u200E"), QChar(0x200E));
        rows.emplace_back(line.section(u'\t', 0, 0), line.section(u'\t', 1));
    }
    return rows;
}

QStringList placeholders(const QString& text) {
    static const QRegularExpression placeholder(QStringLiteral("%[d@]"));
    QStringList found;
    for (auto match = placeholder.globalMatch(text); match.hasNext();) {
        found += match.next().captured();
    }
    return found;
}

TEST(Strings, EveryLanguageHasAllTextsAndIsReturnedToItsReaders) {
    for (const Language& language : Strings::languages()) {
        SCOPED_TRACE(language.code);
        const Strings strings({QLatin1String(language.code), QStringLiteral("en")});
        const auto rows = wantedRows(language.code);
        EXPECT_EQ(rows.size(), 52U);
        EXPECT_EQ(language.texts().size(), static_cast<qsizetype>(rows.size()));
        for (const auto& [key, text] : rows) {
            EXPECT_EQ(strings.text(key), text);
        }
    }
}

TEST(Strings, TheFourLongTextsAreReturnedToAnEnglishReader) {
    const Strings strings(englishFirst);
    const auto rows = wantedRows("en");
    ASSERT_EQ(rows.size(), 4U);
    EXPECT_EQ(en().size(), 4);
    for (const auto& [key, text] : rows) {
        EXPECT_EQ(strings.text(key), text);
    }
}

TEST(Strings, ShortTextsAreTheirOwnEnglish) {
    const Strings strings(englishFirst);
    for (const QString& key : he().keys()) {
        if (!en().contains(key)) {
            EXPECT_EQ(strings.text(key), key);
        }
    }
}

TEST(Strings, AHebrewReaderGetsTheHebrewWelcome) {
    EXPECT_TRUE(Strings(hebrewFirst).text(QStringLiteral("welcome.body")).startsWith(QStringLiteral("חפשו נקודה")));
}

TEST(Strings, ALanguageOfSecondPreferenceIsNotInForceAndItsTableNeverBuilt) {
    const Strings strings(englishFirst, {{"he",
                                          []() -> const Texts& {
                                              ADD_FAILURE() << "the table is built";
                                              return he();
                                          },
                                          heDesktop}});
    EXPECT_FALSE(strings.isHebrew());
    EXPECT_EQ(strings.text(QStringLiteral("Offline")), QStringLiteral("Offline"));
}

TEST(Strings, AnotherLanguageIsChosenByItsCode) {
    const std::vector<Language> languages{
        {"he", he, heDesktop},
        {"qx",
         []() -> const Texts& {
             static const Texts texts = uniqueTexts({{QStringLiteral("Offline"), QStringLiteral("nope")}});
             return texts;
         },
         []() -> const Texts& {
             static const Texts none;
             return none;
         }}};
    const Strings strings({QStringLiteral("qx-QX"), QStringLiteral("he")}, languages);
    EXPECT_FALSE(strings.isHebrew());
    EXPECT_EQ(strings.text(QStringLiteral("Offline")), QStringLiteral("nope"));
    // What it lacks is shown in English.
    EXPECT_EQ(strings.text(QStringLiteral("Paused")), QStringLiteral("Paused"));
    EXPECT_TRUE(strings.text(QStringLiteral("welcome.body")).startsWith(QStringLiteral("Look at the top-right")));
    EXPECT_EQ(strings.desktopText(QStringLiteral("welcome.where")),
              QStringLiteral("Look in your panel for a small dot:"));
    EXPECT_TRUE(Strings(hebrewFirst, languages).isHebrew());
}

TEST(Strings, TheWordsForThisPlatformSendNobodyToPlacesOfAnother) {
    const Strings english(englishFirst);
    const Strings hebrew(hebrewFirst);
    struct Row {
        QString key;
        QString english;
        QString hebrew;
    };
    const std::vector<Row> rows{
        {QStringLiteral("welcome.where"), QStringLiteral("Look in your panel for a small dot:"),
         QStringLiteral("חפשו נקודה קטנה בלוח של שולחן העבודה:")},
        {QStringLiteral("welcome.hidden"),
         QStringLiteral(
             "Can’t see it? Your panel may hide it behind an arrow. GNOME needs its AppIndicator extension."),
         QStringLiteral("לא רואים אותה? ייתכן שהלוח מסתיר אותה מאחורי חץ. ב-GNOME נדרשת ההרחבה AppIndicator.")},
        {QStringLiteral("about.language"),
         QStringLiteral("Language follows your desktop. To change it for Skylet only,\nstart it with LANGUAGE=en or "
                        "LANGUAGE=he."),
         QStringLiteral(
             "השפה נקבעת לפי שולחן העבודה. לשינוי רק ב-Skylet:\nהפעילו אותו עם LANGUAGE=en או LANGUAGE=he.")}};
    for (const Row& row : rows) {
        EXPECT_EQ(english.desktopText(row.key), row.english);
        EXPECT_EQ(hebrew.desktopText(row.key), row.hebrew);
    }
    for (const Language& language : Strings::languages()) {
        EXPECT_EQ(language.desktopTexts().size(), static_cast<qsizetype>(rows.size())) << language.code;
    }
}

TEST(Strings, AnEmptyListOfLanguagesMeansEnglish) {
    EXPECT_FALSE(Strings({}).isHebrew());
}

TEST(Strings, OnlyAFirstTagThatBeginsWithHeIsHebrew) {
    EXPECT_TRUE(Strings({QStringLiteral("he")}).isHebrew());
    EXPECT_TRUE(Strings({QStringLiteral("he-IL")}).isHebrew());
    EXPECT_FALSE(Strings({QStringLiteral("iw")}).isHebrew());
    EXPECT_FALSE(Strings({QStringLiteral("HE-IL")}).isHebrew());
    EXPECT_FALSE(Strings({QStringLiteral("ar-EG")}).isHebrew());
}

TEST(Strings, AKeyInNeitherTableComesBackUnchangedInEitherLanguage) {
    const auto key = QStringLiteral("Nobody translated this");
    EXPECT_EQ(Strings(hebrewFirst).text(key), key);
    EXPECT_EQ(Strings(englishFirst).text(key), key);
}

TEST(Strings, KeysMatchExactly) {
    const Strings strings(hebrewFirst);
    EXPECT_EQ(strings.text(QStringLiteral("Offline")), QStringLiteral("אין רשת"));
    EXPECT_EQ(strings.text(QStringLiteral("Offline ")), QStringLiteral("Offline "));
    EXPECT_EQ(strings.text(QStringLiteral("offline")), QStringLiteral("offline"));
    EXPECT_EQ(strings.text(QStringLiteral("Checking...")), QStringLiteral("Checking..."));
}

TEST(Strings, AboutDetailsHasTwoLinesInTheLanguageInForce) {
    const auto english = Strings(englishFirst).text(QStringLiteral("about.details")).split(u'\n');
    const auto hebrew = Strings(hebrewFirst).text(QStringLiteral("about.details")).split(u'\n');
    ASSERT_EQ(english.size(), 2);
    ASSERT_EQ(hebrew.size(), 2);
    EXPECT_TRUE(english.first().startsWith(QStringLiteral("Independent HTTPS checks")));
    EXPECT_TRUE(hebrew.first().startsWith(QStringLiteral("בדיקות HTTPS")));
}

TEST(Strings, TheHebrewStatusLineKeepsTheLatencyTogetherWithLeftToRightMarks) {
    const auto form = Strings(hebrewFirst).text(QStringLiteral("Online — %d ms (%@)"));
    EXPECT_EQ(formatted(form, {QStringLiteral("42"), QStringLiteral("תגובה מהירה")}),
              QStringLiteral("מחובר — \u200E42 ms\u200E (תגובה מהירה)"));
}

TEST(Strings, OnlyTheFourTextsWithALeftToRightRunHaveMarks) {
    QStringList marked;
    for (const auto& [key, text] : wantedRows("he")) {
        if (text.contains(QChar(0x200E))) {
            marked += key.left(12);
        }
    }
    EXPECT_EQ(marked, (QStringList{QStringLiteral("Run Speed Te"), QStringLiteral("Show Live Tr"),
                                   QStringLiteral("Online — %d "), QStringLiteral("Live traffic")}));
}

TEST(Strings, PlaceholdersStandInTheSameOrderInEveryLanguage) {
    for (const Language& language : Strings::languages()) {
        for (const QString& key : language.texts().keys()) {
            EXPECT_EQ(placeholders(language.texts()[key]), placeholders(key)) << key.toStdString();
        }
    }
}

TEST(Strings, TheCopyrightLineOfTheBuildIsTranslated) {
    EXPECT_TRUE(
        Strings(hebrewFirst).text(QString::fromUtf8(build::copyright)).endsWith(QStringLiteral("כל הזכויות שמורות.")));
}

TEST(StringsDeathTest, AKeyThatStandsTwiceStopsTheProgramWhenTheTableIsBuilt) {
    EXPECT_DEATH(
        uniqueTexts({{QStringLiteral("Quit"), QStringLiteral("a")}, {QStringLiteral("Quit"), QStringLiteral("b")}}),
        "\"Quit\" stands twice");
}

TEST(Formatted, ReplacesPlaceholdersFromLeftToRight) {
    EXPECT_EQ(formatted(QStringLiteral("%d of %@"), {QStringLiteral("1"), QStringLiteral("x")}),
              QStringLiteral("1 of x"));
}

TEST(Formatted, DoesNotLookInsideWhatItInserted) {
    EXPECT_EQ(formatted(QStringLiteral("%@ %@"), {QStringLiteral("%@"), QStringLiteral("b")}), QStringLiteral("%@ b"));
}

TEST(Formatted, LeavesWhatHasNoArgument) {
    EXPECT_EQ(formatted(QStringLiteral("%d %x 5%"), {}), QStringLiteral("%d %x 5%"));
}

TEST(Fixed, RoundsAsPrintfDoes) {
    for (const double value : {0.0, 0.25, 0.35, 0.5, 1.5, 2.5, 48.0, 93.41, 99.96, 160.0, 999.6, -3.0, 1e300}) {
        for (const int decimals : {0, 1}) {
            std::array<char, 400> expected{};
            std::snprintf(expected.data(), expected.size(), "%.*f", decimals, value);
            EXPECT_EQ(fixed(value, decimals), QString::fromLatin1(expected.data()));
        }
    }
}

TEST(Fixed, WritesWhatIsNoNumberAsSuch) {
    EXPECT_EQ(fixed(std::numeric_limits<double>::quiet_NaN(), 1), QStringLiteral("nan"));
}

} // namespace
} // namespace skylet
