#include "platform/linux/statusitem/drawing/IconFiles.h"

#include "platform/linux/statusitem/drawing/SampleDisplays.h"
#include "platform/linux/statusitem/drawing/StatusColors.h"
#include "support/FullDisk.h"
#include "support/QStringPrinting.h"
#include "support/RuntimeFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QSaveFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

int waitsForTheDisk = 0;

} // namespace

// In the place of the C library's, for all of this program.
extern "C" int fsync(int /*file*/) {
    ++waitsForTheDisk;
    return 0;
}
extern "C" int fdatasync(int /*file*/) {
    ++waitsForTheDisk;
    return 0;
}

namespace skylet {
namespace {

StatusIcon plainDot(Status status) {
    return {Presentation::label, status};
}

class IconFilesTest : public testing::Test {
  protected:
    QTemporaryDir parent_;
    QString folder_ = parent_.filePath(QStringLiteral("icons"));
};

TEST_F(IconFilesTest, HoldTheDotInEachColourUnderANameOfItsOwn) {
    IconFiles files(folder_);
    QStringList names;
    for (const Status status : sample::allColors) {
        const QString name = files.fileFor(plainDot(status));
        EXPECT_FALSE(names.contains(name));
        names.append(name);
        const QImage image(name);
        EXPECT_EQ(image.size(), QSize(48, 48));
        EXPECT_EQ(image.pixelColor(24, 24), dotShades(status).fill);
    }
}

TEST_F(IconFilesTest, AreWrittenAnewWhenTheyAreMissingAndGoneAtTheEnd) {
    {
        IconFiles files(folder_);
        const QString name = files.fileFor(plainDot(Status::offline));
        EXPECT_EQ(files.fileFor(plainDot(Status::offline)), name);
        ASSERT_TRUE(QFile::remove(name));
        EXPECT_EQ(files.fileFor(plainDot(Status::offline)), name);
        EXPECT_FALSE(QImage(name).isNull());
        ASSERT_TRUE(QDir(QFileInfo(name).path()).removeRecursively());
        EXPECT_FALSE(QImage(files.fileFor(plainDot(Status::offline))).isNull());
    }
    EXPECT_TRUE(QDir(parent_.path()).isEmpty());
}

TEST_F(IconFilesTest, BelongToOneInstance) {
    IconFiles files(folder_);
    const QString name = files.fileFor(plainDot(Status::offline));
    {
        IconFiles others(folder_);
        EXPECT_NE(others.fileFor(plainDot(Status::offline)), name);
    }
    EXPECT_FALSE(QImage(name).isNull());
}

TEST_F(IconFilesTest, HaveANameOnlyOnceTheyAreWhole) {
    IconFiles files(folder_);
    const qint64 size = QFileInfo(IconFiles(folder_).fileFor(plainDot(Status::offline))).size();
    ASSERT_GT(size, 0);
    for (qint64 room = size - 1; room >= 0; room -= 10) {
        const test::FullDisk disk(static_cast<rlim_t>(room));
        EXPECT_EQ(files.fileFor(plainDot(Status::offline)), QString()) << room;
    }
    EXPECT_FALSE(QImage(files.fileFor(plainDot(Status::offline))).isNull());
}

TEST_F(IconFilesTest, DoNotWaitForTheDisk) {
    IconFiles files(folder_);
    waitsForTheDisk = 0;
    EXPECT_FALSE(files.fileFor(plainDot(Status::offline)).isEmpty());
    EXPECT_EQ(waitsForTheDisk, 0);
    QSaveFile other(parent_.filePath(QStringLiteral("other")));
    EXPECT_TRUE(other.open(QIODevice::WriteOnly) && other.commit());
    EXPECT_GT(waitsForTheDisk, 0) << "this test sees who waits";
}

TEST_F(IconFilesTest, StandWhereADesktopOutsideTheSandboxSeesThem) {
    const test::RuntimeFolder runtime;
    EXPECT_EQ(IconFiles::usualFolder(), runtime.filePath(QStringLiteral("skylet")));
    qputenv("FLATPAK_ID", "com.example.App");
    EXPECT_EQ(IconFiles::usualFolder(), runtime.filePath(QStringLiteral("app/com.example.App/skylet")));
    qunsetenv("FLATPAK_ID");
}

TEST_F(IconFilesTest, HaveNoNameWhereTheyCannotBeWritten) {
    QFile file(folder_);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    const QStringList here = QDir().entryList(QDir::AllEntries | QDir::Hidden);
    EXPECT_TRUE(IconFiles(folder_ + QStringLiteral("/below")).fileFor(plainDot(Status::offline)).isEmpty());
    EXPECT_EQ(QDir().entryList(QDir::AllEntries | QDir::Hidden), here) << "nor anywhere else";
    EXPECT_TRUE(IconFiles(QString()).fileFor(plainDot(Status::offline)).isEmpty());
}

} // namespace
} // namespace skylet
