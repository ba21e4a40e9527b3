#include "platform/desktop/TabularLine.h"

#include "support/QStringPrinting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <utility>
#include <vector>

namespace skylet {
namespace {

using testing::ElementsAre;

double narrowOne(QChar character) {
    return character == u'1' ? 4 : character == u'.' ? 3 : 10;
}

/// The width of a text in a font with a narrow 1 and letters of one width.
double advance(const QString& text) {
    return std::accumulate(text.cbegin(), text.cend(), 0.0,
                           [](double width, QChar character) { return width + narrowOne(character); });
}

std::vector<std::pair<QString, double>> runs(const TabularLine& line) {
    std::vector<std::pair<QString, double>> found;
    for (const TextRun& run : line.runs) {
        found.emplace_back(run.text, run.place.x());
    }
    return found;
}

std::pair<QString, double> run(const char16_t* text, double x) {
    return {QString::fromUtf16(text), x};
}

TEST(TabularLineTest, GivesEachDigitTheRoomOfTheWidest) {
    const TabularLine line = layOutTabular(QStringLiteral("11.8"), advance);
    EXPECT_EQ(line.width, 33);
    EXPECT_THAT(runs(line), ElementsAre(run(u"1", 3), run(u"1", 13), run(u".", 20), run(u"8", 23)));
}

TEST(TabularLineTest, IsAsWideWhateverTheDigits) {
    EXPECT_EQ(layOutTabular(QStringLiteral("111.1"), advance).width,
              layOutTabular(QStringLiteral("888.8"), advance).width);
}

TEST(TabularLineTest, KeepsLettersTogether) {
    const TabularLine line = layOutTabular(QStringLiteral("-38 ms"), advance);
    EXPECT_THAT(runs(line), ElementsAre(run(u"-", 0), run(u"3", 10), run(u"8", 20), run(u" ms", 30)));
    EXPECT_EQ(line.width, 60);
}

TEST(TabularLineTest, LeavesTextsWithoutDigitsAlone) {
    EXPECT_THAT(runs(layOutTabular(QStringLiteral("נכשל"), advance)), ElementsAre(run(u"נכשל", 0)));
    EXPECT_TRUE(layOutTabular(QString(), advance).runs.empty());
}

} // namespace
} // namespace skylet
