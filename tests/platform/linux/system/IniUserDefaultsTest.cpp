#include "platform/linux/system/IniUserDefaults.h"

#include "support/FullDisk.h"
#include "support/UnprivilegedUser.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace {

bool diskIsBroken = false;

} // namespace

// Takes the place of the C library's in this program.
extern "C" int fsync(int descriptor) {
    if (diskIsBroken) {
        errno = EIO;
        return -1;
    }
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}

namespace skylet::test {

namespace {

/// No file reaches the disk while it lives.
class BrokenDisk {
  public:
    BrokenDisk() { diskIsBroken = true; }
    ~BrokenDisk() { diskIsBroken = false; }
    BrokenDisk(const BrokenDisk&) = delete;
    BrokenDisk& operator=(const BrokenDisk&) = delete;
    BrokenDisk(BrokenDisk&&) = delete;
    BrokenDisk& operator=(BrokenDisk&&) = delete;
};

/// This process can open no more files while it lives.
class NoDescriptors {
  public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const int lowestFree = dup(STDERR_FILENO);
        close(lowestFree);
        const rlimit none{static_cast<rlim_t>(lowestFree), before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;
    NoDescriptors(NoDescriptors&&) = delete;
    NoDescriptors& operator=(NoDescriptors&&) = delete;

  private:
    rlimit before_{};
};

const auto key = QStringLiteral("showTraffic");

class IniUserDefaultsTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(folder_.isValid()); }

    void write(const QByteArray& text) const {
        QFile file(path_);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(text), text.size());
    }

    QByteArray content(const QString& suffix = QString()) const {
        QFile file(path_ + suffix);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArrayLiteral("(not readable)");
    }

    /// All that is in its folder.
    QStringList files() const {
        return QDir(folder_.path()).entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot);
    }

    bool exists(const QString& suffix) const { return QFile::exists(path_ + suffix); }

    std::optional<bool> stored() const { return IniUserDefaults(path_).boolForKey(key); }

    /// What is read when the file holds `value` under the key.
    std::optional<bool> storedAs(const QByteArray& value) {
        write("[General]\nshowTraffic=" + value + "\n");
        return stored();
    }

    /// A file that says "false": it is read, and all that changes in it is that word.
    void expectToBeReadAndKept(const QByteArray& text) {
        write(text);
        EXPECT_EQ(stored(), false) << text.constData();
        IniUserDefaults(path_).setBool(true, key);
        EXPECT_EQ(content(), QByteArray(text).replace("showTraffic=false", "showTraffic=true"));
        EXPECT_EQ(stored(), true) << text.constData();
        EXPECT_EQ(files(), QStringList{QStringLiteral("skylet.ini")});
    }

    void expectToCountAsEmptyAndToBeKept(const QByteArray& text) {
        write(text);
        EXPECT_EQ(stored(), std::nullopt);
        EXPECT_EQ(content(), text) << "reading leaves it as it is";
        EXPECT_FALSE(exists(corrupt));
        IniUserDefaults(path_).setBool(true, QStringLiteral("didOnboard"));
        EXPECT_EQ(content(), "[General]\ndidOnboard=true\n");
        EXPECT_EQ(content(corrupt), text);
        ASSERT_TRUE(QFile::remove(path_ + corrupt));
    }

    const QString corrupt = QStringLiteral(".corrupt");
    /// What a crash may leave instead of what was written.
    const QByteArray junk = QByteArray(43, '\0');
    const QTemporaryDir folder_;
    const QString path_ = folder_.filePath(QStringLiteral("skylet.ini"));
};

} // namespace

TEST_F(IniUserDefaultsTest, StandsInTheUsersConfigurationFolder) {
    const QByteArray before = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(folder_.path()));
    EXPECT_EQ(IniUserDefaults::defaultPath(), folder_.filePath(QStringLiteral("skylet/skylet.ini")));
    before.isNull() ? qunsetenv("XDG_CONFIG_HOME") : qputenv("XDG_CONFIG_HOME", before);
}

TEST_F(IniUserDefaultsTest, NothingIsStoredAtFirst) {
    EXPECT_EQ(stored(), std::nullopt);
    EXPECT_FALSE(exists(QString())) << "asking makes no file";
}

TEST_F(IniUserDefaultsTest, WhatIsStoredIsReadBack) {
    IniUserDefaults defaults(path_);
    for (const bool value : {true, false, true}) {
        defaults.setBool(value, key);
        EXPECT_EQ(defaults.boolForKey(key), value);
        EXPECT_EQ(stored(), value) << "and by another object";
    }
}

TEST_F(IniUserDefaultsTest, IsStoredAtOnceAsLiteralText) {
    IniUserDefaults defaults(path_);
    defaults.setBool(false, key);
    EXPECT_EQ(content(), "[General]\nshowTraffic=false\n");
    defaults.setBool(true, QStringLiteral("didOnboard"));
    EXPECT_EQ(content(), "[General]\ndidOnboard=true\nshowTraffic=false\n");
}

TEST_F(IniUserDefaultsTest, MakesTheFoldersItNeeds) {
    const QString deep = folder_.filePath(QStringLiteral("not/yet/there/skylet.ini"));
    IniUserDefaults(deep).setBool(true, key);
    EXPECT_EQ(IniUserDefaults(deep).boolForKey(key), true);
}

TEST_F(IniUserDefaultsTest, KeepsWhatOthersStoredInTheFile) {
    write("[General]\nother=1\n\n[group]\nx=y\n");
    IniUserDefaults(path_).setBool(true, key);
    EXPECT_EQ(content(), "[General]\nshowTraffic=true\nother=1\n\n[group]\nx=y\n");
    EXPECT_FALSE(exists(corrupt));
}

TEST_F(IniUserDefaultsTest, SeesWhatTheUserChangedByHand) {
    IniUserDefaults defaults(path_);
    defaults.setBool(true, key);
    write("; mine\n# too\r\n[General]\r\nshowTraffic = false\n");
    EXPECT_EQ(defaults.boolForKey(key), false);
}

TEST_F(IniUserDefaultsTest, LeavesEveryOtherLineAsItIs) {
    const QByteArray before = "; mine\nfirst = a, \"b\" ; c\n\n[group]\nshowTraffic=no\n\n[General]\n# too\n";
    const QByteArray after = "last=%41\n\n[end]\n";
    write(before + "showTraffic = true\n" + after);
    IniUserDefaults(path_).setBool(false, key);
    EXPECT_EQ(content(), before + "showTraffic=false\n" + after);
    EXPECT_EQ(stored(), false);
}

TEST_F(IniUserDefaultsTest, LinesOfAnyKindAroundTheKeyAreReadOverAndKept) {
    for (const QByteArray text : {
             "[General] ; mine\nshowTraffic=false\n[Other]\nshowTraffic=yes\n",
             "[General]\nnotes=first \\\n  second\nshowTraffic=false\n",
             "[General]\nname=J\xfcrgen \xd7\x90\x01\nshowTraffic=false\n",
             "\xef\xbb\xbf[General]\r\nshowTraffic=false\n",
             "[ general ]\nshowTraffic=false",
             "[General\nshowTraffic=false\n=true\ndidOnb",
             "showTraffic=false\n[group]\n  \n",
             "[General]\nx=1\n[group]\nshowTraffic=1\n[General]\nshowTraffic=false\n\n",
             "<<<<<<< mine\n[General]\nshowTraffic=false\n>>>>>>> theirs\n",
         }) {
        expectToBeReadAndKept(text);
    }
}

TEST_F(IniUserDefaultsTest, OfSeveralLinesWithTheKeyTheLastCounts) {
    write("[General]\nshowTraffic=true\nshowTraffic=false\n");
    EXPECT_EQ(stored(), false);
    IniUserDefaults(path_).setBool(true, key);
    EXPECT_EQ(content(), "[General]\nshowTraffic=true\nshowTraffic=true\n");
}

TEST_F(IniUserDefaultsTest, AFullDiskLeavesTheOldFile) {
    const QByteArray text = "[General]\nshowTraffic=true\n";
    write(text);
    for (qsizetype room = 0; room <= text.size(); ++room) {
        const FullDisk disk(static_cast<rlim_t>(room));
        IniUserDefaults(path_).setBool(false, key);
        EXPECT_EQ(content(), text) << room;
        EXPECT_EQ(files(), QStringList{QStringLiteral("skylet.ini")}) << room;
    }
}

TEST_F(IniUserDefaultsTest, OnAFullDiskAFirstChoiceLeavesNoFile) {
    for (rlim_t room = 0; room < sizeof "[General]\nshowTraffic=false"; ++room) {
        const FullDisk disk(room);
        IniUserDefaults(path_).setBool(false, key);
        EXPECT_EQ(files(), QStringList()) << room;
    }
}

TEST_F(IniUserDefaultsTest, ADiskThatFailsAtTheLastMomentLeavesTheOldFile) {
    write("[General]\nshowTraffic=true\n");
    {
        const BrokenDisk disk;
        IniUserDefaults(path_).setBool(false, key);
    }
    EXPECT_EQ(content(), "[General]\nshowTraffic=true\n");
    EXPECT_EQ(files(), QStringList{QStringLiteral("skylet.ini")});
}

TEST_F(IniUserDefaultsTest, WithoutADescriptorToBeHadAGoodFileStaysWhereItIs) {
    const QByteArray text = "[General]\ndidOnboard=true\n";
    write(text);
    {
        const NoDescriptors none;
        IniUserDefaults(path_).setBool(false, key);
    }
    EXPECT_EQ(content(), text);
    EXPECT_EQ(files(), QStringList{QStringLiteral("skylet.ini")});
}

TEST_F(IniUserDefaultsTest, NoLockIsWaitedForOrTouched) {
    const QString lock = path_ + QStringLiteral(".lock");
    ASSERT_EQ(mkfifo(QFile::encodeName(lock).constData(), 0600), 0);
    IniUserDefaults(path_).setBool(true, key);
    EXPECT_EQ(stored(), true);
    EXPECT_EQ(files(), (QStringList{QStringLiteral("skylet.ini"), QStringLiteral("skylet.ini.lock")}));
}

TEST_F(IniUserDefaultsTest, LinksToTheFileStay) {
    const QString middle = folder_.filePath(QStringLiteral("middle"));
    const QString target = folder_.filePath(QStringLiteral("dotfiles/target"));
    ASSERT_TRUE(QDir().mkpath(folder_.filePath(QStringLiteral("dotfiles"))));
    ASSERT_TRUE(QFile::link(target, middle));
    ASSERT_TRUE(QFile::link(middle, path_));
    write("[General]\nshowTraffic=true\n");
    IniUserDefaults(path_).setBool(false, key);
    EXPECT_EQ(content(), "[General]\nshowTraffic=false\n");
    EXPECT_TRUE(QFileInfo(path_).isSymLink());
    EXPECT_TRUE(QFileInfo(middle).isSymLink());
    EXPECT_FALSE(QFileInfo(target).isSymLink());
}

TEST_F(IniUserDefaultsTest, ALinkToNothingLeadsToTheNewFile) {
    const QString target = folder_.filePath(QStringLiteral("target"));
    ASSERT_TRUE(QFile::link(target, path_));
    IniUserDefaults(path_).setBool(true, key);
    EXPECT_EQ(stored(), true);
    EXPECT_TRUE(QFileInfo(path_).isSymLink());
    EXPECT_TRUE(QFile::exists(target));
}

TEST_F(IniUserDefaultsTest, TextsThatMeanTrueOrFalseCountAsBool) {
    for (const QByteArray text : {"true", "True", "TRUE", "1", "\"true\"", " true ", "true ; for now", "\"1\";"}) {
        EXPECT_EQ(storedAs(text), true) << text.constData();
    }
    for (const QByteArray text : {"false", "False", "FALSE", "0", "\"false\"", "false\r", "false;", "\" false\" ; x"}) {
        EXPECT_EQ(storedAs(text), false) << text.constData();
    }
    for (const QByteArray text : {"", "2", "yes", "tr", "truee", "true, false", "@ByteArray(true)",
                                  R"(@Variant(\0\0\0\x1\x1))", "@Invalid()"}) {
        EXPECT_EQ(storedAs(text), std::nullopt) << text.constData();
    }
}

TEST_F(IniUserDefaultsTest, AnEmptyFileIsSound) {
    write("");
    IniUserDefaults(path_).setBool(true, key);
    EXPECT_EQ(stored(), true);
    EXPECT_FALSE(exists(corrupt));
}

TEST_F(IniUserDefaultsTest, BinaryJunkCountsAsEmptyAndIsKept) {
    QByteArray noise;
    for (int i = 0; i < 4096; ++i) {
        noise.append(static_cast<char>(i * 7919 >> 3));
    }
    expectToCountAsEmptyAndToBeKept(noise);
    expectToCountAsEmptyAndToBeKept(QByteArray(512, '\0'));
}

TEST_F(IniUserDefaultsTest, AFileThatWasOverwrittenInPartCountsAsEmptyAndIsKept) {
    expectToCountAsEmptyAndToBeKept("[General]\nshowTraffic=true\n" + QByteArray(64, '\0'));
    expectToCountAsEmptyAndToBeKept("[General]\nshowTraffic=true\nx=" + QByteArray(64, '\0') + "\n");
}

TEST_F(IniUserDefaultsTest, AFileFarTooLargeCountsAsEmptyAndIsKept) {
    expectToCountAsEmptyAndToBeKept("[General]\nshowTraffic=true\n" + QByteArray("; long\n").repeated(20'000));
}

TEST_F(IniUserDefaultsTest, WhatAnEarlierObjectReadDoesNotOutliveTheCorruption) {
    IniUserDefaults defaults(path_);
    defaults.setBool(true, key);
    write(junk);
    EXPECT_EQ(defaults.boolForKey(key), std::nullopt);
    defaults.setBool(false, QStringLiteral("didOnboard"));
    EXPECT_EQ(content(), "[General]\ndidOnboard=false\n");
}

TEST_F(IniUserDefaultsTest, AllFilesThatCouldNotBeReadAreKept) {
    for (const QByteArray text : {"first", "second", "third"}) {
        write(text + junk);
        IniUserDefaults(path_).setBool(true, key);
        EXPECT_EQ(stored(), true);
    }
    EXPECT_EQ(content(corrupt), "first" + junk);
    EXPECT_EQ(content(corrupt + u'~'), "second" + junk);
    EXPECT_EQ(content(corrupt + QStringLiteral("~~")), "third" + junk);
}

TEST_F(IniUserDefaultsTest, AFileWhoseReadingFailsIsKept) {
    // Opens as a plain file of size 0, but there is no memory at its first byte.
    ASSERT_TRUE(QFile::link(QStringLiteral("/proc/self/mem"), path_));
    EXPECT_EQ(stored(), std::nullopt);
    IniUserDefaults(path_).setBool(true, key);
    EXPECT_EQ(stored(), true);
    EXPECT_EQ(QFile::symLinkTarget(path_ + corrupt), QStringLiteral("/proc/self/mem"));
}

TEST_F(IniUserDefaultsTest, AFolderInItsPlaceCountsAsEmptyAndIsKept) {
    ASSERT_TRUE(QDir().mkpath(path_ + QStringLiteral("/inside")));
    EXPECT_EQ(stored(), std::nullopt);
    EXPECT_TRUE(QDir(path_).exists(QStringLiteral("inside")));
    IniUserDefaults(path_).setBool(true, key);
    EXPECT_EQ(stored(), true);
    EXPECT_TRUE(QDir(path_ + corrupt).exists(QStringLiteral("inside")));
}

TEST_F(IniUserDefaultsTest, APipeInItsPlaceIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(QFile::encodeName(path_).constData(), 0600), 0);
    EXPECT_EQ(stored(), std::nullopt);
    IniUserDefaults(path_).setBool(true, key);
    EXPECT_EQ(stored(), true);
}

TEST_F(IniUserDefaultsTest, WhatCannotBeMovedOutOfTheWayIsNotOverwritten) {
    write(junk);
    ASSERT_EQ(chmod(QFile::encodeName(path_).constData(), 0666), 0);
    ASSERT_EQ(chmod(QFile::encodeName(folder_.path()).constData(), 0555), 0);
    {
        const UnprivilegedUser user;
        ASSERT_TRUE(user.isReady());
        IniUserDefaults(path_).setBool(true, key);
    }
    ASSERT_EQ(chmod(QFile::encodeName(folder_.path()).constData(), 0700), 0);
    EXPECT_EQ(content(), junk);
}

TEST_F(IniUserDefaultsTest, AFileThatMayNotBeReadCountsAsEmptyAndIsKept) {
    ASSERT_EQ(chmod(QFile::encodeName(folder_.path()).constData(), 0777), 0);
    const UnprivilegedUser user;
    ASSERT_TRUE(user.isReady());
    write("[General]\nshowTraffic=true\n");
    ASSERT_EQ(chmod(QFile::encodeName(path_).constData(), 0200), 0);
    EXPECT_EQ(stored(), std::nullopt);
    IniUserDefaults(path_).setBool(false, key);
    EXPECT_EQ(stored(), false);
    ASSERT_EQ(chmod(QFile::encodeName(path_ + corrupt).constData(), 0600), 0);
    EXPECT_EQ(content(corrupt), "[General]\nshowTraffic=true\n");
}

TEST_F(IniUserDefaultsTest, AFileThatMayBeWrittenInAFolderThatMayNotIsWrittenInPlace) {
    write("[General]\nshowTraffic=true\n");
    if (geteuid() == 0) {
        const QByteArray path = QFile::encodeName(path_);
        ASSERT_EQ(chown(path.constData(), UnprivilegedUser::nobody, UnprivilegedUser::nobody), 0);
    }
    ASSERT_EQ(chmod(QFile::encodeName(folder_.path()).constData(), 0555), 0);
    {
        const UnprivilegedUser user;
        ASSERT_TRUE(user.isReady());
        IniUserDefaults(path_).setBool(false, key);
    }
    ASSERT_EQ(chmod(QFile::encodeName(folder_.path()).constData(), 0700), 0);
    EXPECT_EQ(content(), "[General]\nshowTraffic=false\n");
}

TEST_F(IniUserDefaultsTest, AFullDiskLeavesTheOldFileAlsoWhereItIsWrittenInPlace) {
    const QByteArray text = "[General]\nshowTraffic=true\n";
    write(text);
    ASSERT_EQ(chmod(QFile::encodeName(path_).constData(), 0666), 0);
    ASSERT_EQ(chmod(QFile::encodeName(folder_.path()).constData(), 0555), 0);
    {
        const UnprivilegedUser user;
        ASSERT_TRUE(user.isReady());
        const FullDisk disk(static_cast<rlim_t>(text.size()));
        IniUserDefaults(path_).setBool(false, key);
    }
    ASSERT_EQ(chmod(QFile::encodeName(folder_.path()).constData(), 0700), 0);
    EXPECT_EQ(content(), text);
}

TEST_F(IniUserDefaultsTest, AFolderThatMayNotBeWrittenToIsNoMatter) {
    write("[General]\nshowTraffic=true\n");
    ASSERT_EQ(chmod(QFile::encodeName(path_).constData(), 0444), 0);
    ASSERT_EQ(chmod(QFile::encodeName(folder_.path()).constData(), 0555), 0);
    {
        const UnprivilegedUser user;
        ASSERT_TRUE(user.isReady());
        IniUserDefaults(path_).setBool(false, key);
        EXPECT_EQ(stored(), true) << "what was stored before still counts";
    }
    ASSERT_EQ(chmod(QFile::encodeName(folder_.path()).constData(), 0700), 0);
    EXPECT_EQ(content(), "[General]\nshowTraffic=true\n");
}

} // namespace skylet::test
