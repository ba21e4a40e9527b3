#include "ui/Strings.h"

#include "BuildConstants.h"
#include "support/QStringPrinting.h"

#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <limits>
#include <thread>
#include <vector>

namespace skylet {

namespace {

const QStringList hebrewFirst{QStringLiteral("he-IL"), QStringLiteral("en-US")};
const QStringList englishFirst{QStringLiteral("en-GB"), QStringLiteral("he-IL")};

/// The rows of a table as they are wanted, from a text file beside this one.
Strings::Rows wantedRows(const char* name) {
    QFile file(QStringLiteral(TABLES "/") + QString::fromUtf8(name));
    if (!file.open(QIODevice::ReadOnly)) {
        ADD_FAILURE() << name << " cannot be read";
        return {};
    }
    Strings::Rows rows;
    for (auto line : QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts)) {
        if (line.startsWith(u'#')) {
            continue;
        }
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

TEST(Strings, EveryRowOfTheHebrewTableIsReturnedToAHebrewReader) {
    const Strings strings(hebrewFirst);
    const auto rows = wantedRows("hebrew.tsv");
    ASSERT_EQ(rows.size(), 52U);
    for (const auto& [key, text] : rows) {
        EXPECT_EQ(strings.text(key), text);
    }
}

TEST(Strings, EveryRowOfTheEnglishTableIsReturnedToAnEnglishReader) {
    const Strings strings(englishFirst);
    const auto rows = wantedRows("english.tsv");
    ASSERT_EQ(rows.size(), 4U);
    for (const auto& [key, text] : rows) {
        EXPECT_EQ(strings.text(key), text);
    }
}

TEST(Strings, TheTablesHoldNothingElse) {
    EXPECT_EQ(Strings::hebrewRows(), wantedRows("hebrew.tsv"));
    EXPECT_EQ(Strings::englishRows(), wantedRows("english.tsv"));
}

TEST(Strings, ShortTextsAreTheirOwnEnglish) {
    const Strings strings(englishFirst);
    for (const auto& [key, text] : wantedRows("hebrew.tsv")) {
        const bool dotted = key.contains(u'.') && !key.contains(u' ') && !key.endsWith(u'.');
        if (!dotted) {
            EXPECT_EQ(strings.text(key), key);
        }
    }
}

TEST(Strings, AHebrewReaderGetsTheHebrewWelcome) {
    EXPECT_TRUE(Strings(hebrewFirst).text(QStringLiteral("welcome.body")).startsWith(QStringLiteral("חפשו נקודה")));
}

TEST(Strings, HebrewAsSecondPreferenceMeansEnglishAndTheHebrewTableIsNeverBuilt) {
    int built = 0;
    const Strings strings(englishFirst, [&] {
        ++built;
        return Strings::hebrewRows();
    });
    EXPECT_FALSE(strings.isHebrew());
    EXPECT_EQ(strings.text(QStringLiteral("Offline")), QStringLiteral("Offline"));
    EXPECT_EQ(built, 0);
}

TEST(Strings, EachTableIsBuiltOnceWithTheFirstLookUpThatReachesIt) {
    int hebrew = 0;
    int english = 0;
    const Strings strings(
        hebrewFirst,
        [&] {
            ++hebrew;
            return Strings::hebrewRows();
        },
        [&] {
            ++english;
            return Strings::englishRows();
        });
    EXPECT_EQ(hebrew, 0);
    strings.text(QStringLiteral("Offline"));
    strings.text(QStringLiteral("Paused"));
    EXPECT_EQ(hebrew, 1);
    EXPECT_EQ(english, 0);
    strings.text(QStringLiteral("unknown"));
    strings.text(QStringLiteral("unknown"));
    EXPECT_EQ(english, 1);
}

TEST(Strings, FirstLookUpsOnManyThreadsBuildTheTableOnce) {
    std::atomic<int> built = 0;
    const Strings strings(hebrewFirst, [&] {
        ++built;
        return Strings::hebrewRows();
    });
    std::atomic<int> right = 0;
    std::vector<std::jthread> threads;
    threads.reserve(8);
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] { right += strings.text(QStringLiteral("Offline")) == QStringLiteral("אין רשת"); });
    }
    threads.clear();
    EXPECT_EQ(right, 8);
    EXPECT_EQ(built, 1);
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

TEST(Strings, ADottedKeyThatHebrewLacksFallsBackToEnglish) {
    const Strings strings(hebrewFirst, [] { return Strings::Rows{}; });
    EXPECT_TRUE(strings.text(QStringLiteral("welcome.body")).startsWith(QStringLiteral("Look at the top-right")));
}

TEST(Strings, TheHebrewStatusLineKeepsTheLatencyTogetherWithLeftToRightMarks) {
    const auto form = Strings(hebrewFirst).text(QStringLiteral("Online — %d ms (%@)"));
    EXPECT_EQ(formatted(form, {QStringLiteral("42"), QStringLiteral("תגובה מהירה")}),
              QStringLiteral("מחובר — \u200E42 ms\u200E (תגובה מהירה)"));
}

TEST(Strings, OnlyTheFourTextsWithALeftToRightRunHaveMarks) {
    QStringList marked;
    for (const auto& [key, text] : Strings::hebrewRows()) {
        if (text.contains(QChar(0x200E))) {
            marked += key.left(12);
        }
    }
    EXPECT_EQ(marked, (QStringList{QStringLiteral("Run Speed Te"), QStringLiteral("Show Live Tr"),
                                   QStringLiteral("Online — %d "), QStringLiteral("Live traffic")}));
}

TEST(Strings, PlaceholdersStandInTheSameOrderInBothLanguages) {
    for (const auto& [key, text] : Strings::hebrewRows()) {
        EXPECT_EQ(placeholders(text), placeholders(key)) << key.toStdString();
    }
}

TEST(Strings, TheCopyrightLineOfTheBuildIsTranslated) {
    EXPECT_TRUE(
        Strings(hebrewFirst).text(QString::fromUtf8(build::copyright)).endsWith(QStringLiteral("כל הזכויות שמורות.")));
}

TEST(StringsDeathTest, ADuplicateKeyStopsTheProgramWhenTheTableIsBuilt) {
    const auto twice = [] {
        return Strings::Rows{{QStringLiteral("Quit"), QStringLiteral("a")},
                             {QStringLiteral("Quit"), QStringLiteral("b")}};
    };
    const Strings hebrew(hebrewFirst, twice);
    EXPECT_DEATH(hebrew.text(QStringLiteral("Offline")), "\"Quit\" stands twice");
    const Strings english(englishFirst, Strings::hebrewRows, twice);
    EXPECT_DEATH(english.text(QStringLiteral("Offline")), "\"Quit\" stands twice");
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
