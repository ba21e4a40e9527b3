#include "platform/linux/system/FileDiagnosticLog.h"

#include "platform/linux/system/FileDescriptor.h"
#include "support/FullDisk.h"
#include "support/UnprivilegedUser.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace skylet::test {

namespace {

class FileDiagnosticLogTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(folder_.isValid());
        // For those tests that act as somebody else. Sticky, like /tmp.
        ASSERT_EQ(chmod(QFile::encodeName(folder_.path()).constData(), S_ISVTX | 0777), 0);
    }

    QByteArray pathOf(const char* name) const { return QFile::encodeName(folder_.filePath(QString::fromUtf8(name))); }

    void write(const QByteArray& path, const QByteArray& text) const {
        QFile file(QFile::decodeName(path));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(text), text.size());
    }

    static QByteArray read(const QByteArray& path) {
        QFile file(QFile::decodeName(path));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArrayLiteral("(not readable)");
    }

    QStringList names() const {
        return QDir(folder_.path()).entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot);
    }

    const QTemporaryDir folder_;
    const QByteArray path_ = pathOf("skylet.log");
    FileDiagnosticLog log_{path_.toStdString()};
};

} // namespace

TEST_F(FileDiagnosticLogTest, StandsInTheTemporaryFolderUnlessToldOtherwise) {
    EXPECT_STREQ(FileDiagnosticLog::defaultPath, "/tmp/skylet.log");
}

TEST_F(FileDiagnosticLogTest, TheFirstLineMakesTheFileForThisUserAlone) {
    log_.append(QStringLiteral("début\n"));
    EXPECT_EQ(read(path_), QStringLiteral("début\n").toUtf8());
    struct stat status {};
    ASSERT_EQ(stat(path_.constData(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_EQ(status.st_nlink, 1U);
    EXPECT_EQ(names(), QStringList{QStringLiteral("skylet.log")}) << "nothing temporary stays behind";
}

TEST_F(FileDiagnosticLogTest, FurtherLinesAreAppended) {
    log_.append(QStringLiteral("one\n"));
    log_.append(QStringLiteral("two\n"));
    FileDiagnosticLog(path_.toStdString()).append(QStringLiteral("three\n"));
    EXPECT_EQ(read(path_), "one\ntwo\nthree\n");
}

TEST_F(FileDiagnosticLogTest, AppendsToAFileThatAnEarlierRunLeft) {
    write(path_, "earlier\n");
    log_.append(QStringLiteral("now\n"));
    EXPECT_EQ(read(path_), "earlier\nnow\n");
}

TEST_F(FileDiagnosticLogTest, AFileThatThisUserMayNotWriteIsReplaced) {
    const UnprivilegedUser user;
    ASSERT_TRUE(user.isReady());
    write(path_, "earlier\n");
    ASSERT_EQ(chmod(path_.constData(), 0400), 0);
    log_.append(QStringLiteral("now\n"));
    EXPECT_EQ(read(path_), "now\n");
    EXPECT_EQ(names(), QStringList{QStringLiteral("skylet.log")});
}

TEST_F(FileDiagnosticLogTest, OnAFullDiskAFirstLineLeavesNoFile) {
    const QString line = QStringLiteral("a first line\n");
    for (qsizetype room = 0; room < line.size(); ++room) {
        const FullDisk disk(static_cast<rlim_t>(room));
        log_.append(line);
        EXPECT_EQ(names(), QStringList()) << room;
    }
}

TEST_F(FileDiagnosticLogTest, OnAFullDiskAFileThatThisUserMayNotWriteStays) {
    const UnprivilegedUser user;
    ASSERT_TRUE(user.isReady());
    write(path_, "earlier\n");
    ASSERT_EQ(chmod(path_.constData(), 0400), 0);
    const FullDisk disk(3);
    log_.append(QStringLiteral("now\n"));
    EXPECT_EQ(read(path_), "earlier\n");
    EXPECT_EQ(names(), QStringList{QStringLiteral("skylet.log")});
}

TEST_F(FileDiagnosticLogTest, NothingIsWrittenThroughASymbolicLink) {
    const QByteArray target = pathOf("target");
    write(target, "precious\n");
    ASSERT_EQ(symlink(target.constData(), path_.constData()), 0);
    log_.append(QStringLiteral("line\n"));
    EXPECT_EQ(read(target), "precious\n");
    struct stat status {};
    ASSERT_EQ(lstat(path_.constData(), &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode)) << "the link itself stays as well";
}

TEST_F(FileDiagnosticLogTest, NothingIsMadeAtTheEndOfADanglingLink) {
    ASSERT_EQ(symlink(pathOf("target").constData(), path_.constData()), 0);
    log_.append(QStringLiteral("line\n"));
    EXPECT_EQ(names(), QStringList{QStringLiteral("skylet.log")});
    struct stat status {};
    ASSERT_EQ(lstat(path_.constData(), &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
}

TEST_F(FileDiagnosticLogTest, NothingIsWrittenToAFileWithASecondName) {
    const QByteArray otherName = pathOf("other");
    write(otherName, "precious\n");
    ASSERT_EQ(link(otherName.constData(), path_.constData()), 0);
    log_.append(QStringLiteral("line\n"));
    EXPECT_EQ(read(otherName), "precious\n");
    EXPECT_EQ(read(path_), "precious\n");
}

TEST_F(FileDiagnosticLogTest, APipeNobodyReadsIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(path_.constData(), 0600), 0);
    // For good, were it opened to be written to.
    log_.append(QStringLiteral("line\n"));
    struct stat status {};
    ASSERT_EQ(lstat(path_.constData(), &status), 0);
    EXPECT_TRUE(S_ISFIFO(status.st_mode));
}

TEST_F(FileDiagnosticLogTest, APipeSomebodyReadsGetsNothing) {
    ASSERT_EQ(mkfifo(path_.constData(), 0600), 0);
    const FileDescriptor reader(open(path_.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    log_.append(QStringLiteral("line\n"));
    char anything = 0;
    EXPECT_EQ(::read(reader.get(), &anything, 1), 0);
}

TEST_F(FileDiagnosticLogTest, AFolderInTheWayIsLeftAlone) {
    ASSERT_EQ(mkdir(path_.constData(), 0700), 0);
    log_.append(QStringLiteral("line\n"));
    EXPECT_EQ(names(), QStringList{QStringLiteral("skylet.log")});
    EXPECT_TRUE(QDir(QFile::decodeName(path_)).isEmpty());
}

TEST_F(FileDiagnosticLogTest, AnotherUsersFileIsNotWrittenTo) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    write(path_, "theirs\n");
    ASSERT_EQ(chown(path_.constData(), UnprivilegedUser::nobody, UnprivilegedUser::nobody), 0);
    ASSERT_EQ(chmod(path_.constData(), 0666), 0);
    log_.append(QStringLiteral("line\n"));
    EXPECT_EQ(read(path_), "theirs\n");
}

TEST_F(FileDiagnosticLogTest, AnotherUsersFileIsNeitherWrittenToNorReplacedByAnOrdinaryUser) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can be two users";
    }
    for (const mode_t mode : {0600U, 0666U}) {
        write(path_, "theirs\n");
        ASSERT_EQ(chmod(path_.constData(), mode), 0);
        // Everybody may replace files in this folder, unlike in /tmp.
        ASSERT_EQ(chmod(QFile::encodeName(folder_.path()).constData(), 0777), 0);
        {
            const UnprivilegedUser user;
            ASSERT_TRUE(user.isReady());
            log_.append(QStringLiteral("line\n"));
        }
        EXPECT_EQ(read(path_), "theirs\n") << mode;
        EXPECT_EQ(names(), QStringList{QStringLiteral("skylet.log")});
    }
}

TEST_F(FileDiagnosticLogTest, ALinkThatIsPlantedWhileTheFileIsMadeIsNeitherFollowedNorReplaced) {
    const QByteArray target = pathOf("target");
    write(target, "precious\n");
    std::atomic<bool> ended = false;
    std::atomic<int> planted = 0;
    std::atomic<int> replaced = 0;
    std::thread attacker([&] {
        while (!ended) {
            if (symlink(target.constData(), path_.constData()) == 0) {
                ++planted;
                std::this_thread::sleep_for(std::chrono::microseconds(50));
                struct stat status {};
                if (lstat(path_.constData(), &status) != 0 || !S_ISLNK(status.st_mode)) {
                    ++replaced;
                }
            }
            unlink(path_.constData());
        }
    });
    constexpr int often = 2000;
    while (planted < often) {
        log_.append(QStringLiteral("line\n"));
    }
    ended = true;
    attacker.join();
    EXPECT_EQ(replaced, 0);
    EXPECT_EQ(read(target), "precious\n");
    EXPECT_EQ(names(), QStringList{QStringLiteral("target")}) << "nothing temporary stays behind";
}

TEST_F(FileDiagnosticLogTest, AFolderThatIsMissingOrMayNotBeWrittenToIsNoMatter) {
    FileDiagnosticLog(pathOf("missing/skylet.log").toStdString()).append(QStringLiteral("line\n"));
    ASSERT_EQ(mkdir(pathOf("closed").constData(), 0555), 0);
    {
        const UnprivilegedUser user;
        ASSERT_TRUE(user.isReady());
        FileDiagnosticLog(pathOf("closed/skylet.log").toStdString()).append(QStringLiteral("line\n"));
    }
    EXPECT_EQ(names(), QStringList{QStringLiteral("closed")});
    EXPECT_TRUE(QDir(QFile::decodeName(pathOf("closed"))).isEmpty());
}

TEST_F(FileDiagnosticLogTest, TheFileIsNotKeptOpen) {
    const auto openFiles = [] {
        return QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::AllEntries | QDir::System).size();
    };
    const auto before = openFiles();
    log_.append(QStringLiteral("one\n"));
    log_.append(QStringLiteral("two\n"));
    EXPECT_EQ(openFiles(), before);
}

} // namespace skylet::test
