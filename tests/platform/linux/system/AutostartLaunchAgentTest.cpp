#include "platform/linux/system/AutostartLaunchAgent.h"

#include "support/FullDisk.h"
#include "support/QStringPrinting.h"
#include "support/UnprivilegedUser.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>

namespace skylet::test {

namespace {

const auto installed = QStringLiteral("/opt/skylet/bin/skylet");
const auto fileName = QStringLiteral("com.vorn.skylet.desktop");

QByteArray contents(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void write(const QString& path, const QByteArray& text) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_EQ(file.write(text), text.size());
}

class LaunchAgentTest : public testing::Test {
  protected:
    QString autostart() const { return folder_.filePath(QStringLiteral("config/autostart")); }
    QString path() const { return autostart() + u'/' + fileName; }
    AutostartLaunchAgent agent(const QString& executable = installed) const { return {path(), executable}; }
    /// All that is in the autostart folder.
    QStringList files() const {
        return QDir(autostart()).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
    void makeFolder() const { ASSERT_TRUE(QDir().mkpath(autostart())); }

    QTemporaryDir folder_;
};

/// What happens in a folder, as inotify(7) tells it.
class FolderEvents {
  public:
    explicit FolderEvents(const QString& folder) {
        inotify_add_watch(descriptor_, folder.toUtf8().constData(), IN_ALL_EVENTS);
    }
    ~FolderEvents() { close(descriptor_); }
    FolderEvents(const FolderEvents&) = delete;
    FolderEvents& operator=(const FolderEvents&) = delete;
    FolderEvents(FolderEvents&&) = delete;
    FolderEvents& operator=(FolderEvents&&) = delete;

    /// All events so far of the file `name`, IN_* together.
    std::uint32_t of(const QString& name) const {
        std::uint32_t all = 0;
        alignas(inotify_event) std::array<char, 4096> buffer{};
        const ssize_t size = read(descriptor_, buffer.data(), buffer.size());
        for (ssize_t at = 0; at < size;) {
            inotify_event event{};
            std::memcpy(&event, &buffer[static_cast<std::size_t>(at)], sizeof event);
            const char* file = &buffer[static_cast<std::size_t>(at) + sizeof event];
            if (event.len > 0 && QString::fromUtf8(file) == name) {
                all |= event.mask;
            }
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
        return all;
    }

  private:
    const int descriptor_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
};

/// A folder name that is hard to write down in a desktop entry.
struct NastyName {
    const char* label;
    const char* name;
};

constexpr std::array nastyNames = {
    NastyName{"Plain", "plain"},
    NastyName{"Spaces", " two  words "},
    NastyName{"DoubleQuote", "6\" disk"},
    NastyName{"Apostrophe", "user's"},
    NastyName{"Percent", "100% %f %u %%h %n%"},
    NastyName{"PercentAndEquals", "a=50%"},
    NastyName{"Equals", "A=b"},
    NastyName{"ShellSigns", "~a;b&c|d<e>f(g)*h?i#j[k]{l}!m^"},
    NastyName{"NonASCII", "קו רשת – ÿ 漢字 🙂"},
    NastyName{"Tab", "a\tb"},
    NastyName{"Newline", "a\nExec=oops\nb"},
    NastyName{"CarriageReturn", "a\rb"},
};
/// Names that systemd (252) does not get right in whatever way they are written.
constexpr std::array namesBeyondSystemd = {
    NastyName{"Backtick", "`touch oops`"},
    NastyName{"Dollar", "$HOME ${HOME} $$ $0"},
    NastyName{"Backslash", R"(a\b\\n\x41)"},
};

/// The program at a path with a nasty name: it writes down as what it was started, and with how many arguments.
class NastyProgram {
  public:
    explicit NastyProgram(const char* name) {
        const QString home = folder_.filePath(QString::fromUtf8(name));
        path_ = home + QStringLiteral("/skylet");
        EXPECT_TRUE(QDir().mkpath(home));
        write(path_, "#!/bin/sh\nprintf '%s %s' $# \"$0\" >'" + marker().toUtf8() + ".new'\nmv '" + marker().toUtf8() +
                         ".new' '" + marker().toUtf8() + "'\n");
        QFile::setPermissions(path_, QFile::ReadOwner | QFile::ExeOwner);
        AutostartLaunchAgent(agent(), path_).toggle();
    }

    QString config() const { return folder_.filePath(QStringLiteral("config")); }
    QString agent() const { return config() + QStringLiteral("/autostart/") + fileName; }
    QString marker() const { return folder_.filePath(QStringLiteral("marker")); }
    /// What it writes down when it is started as it should be.
    QString expected() const { return QStringLiteral("0 ") + path_; }
    QString written() const { return QString::fromUtf8(contents(marker())); }

  private:
    const QTemporaryDir folder_;
    QString path_;
};

/// Runs a tool to its end and returns its exit code; what it says goes to `output`.
int run(const QString& tool, const QStringList& arguments, QString& output,
        const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment()) {
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(tool, arguments);
    process.waitForFinished();
    output = QString::fromUtf8(process.readAll());
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

bool isMissing(const char* tool) {
    return QStandardPaths::findExecutable(QString::fromUtf8(tool)).isEmpty();
}

class LaunchAgentOnTheDesktop : public testing::TestWithParam<NastyName> {};
class LaunchAgentUnderSystemd : public testing::TestWithParam<NastyName> {};

std::string label(const testing::TestParamInfo<NastyName>& info) {
    return info.param.label;
}

constexpr int noManager = 77;

/// Logs in with systemd; false, with the reason, where that cannot be had.
bool logInWithSystemd(const NastyProgram& program, QString& output) {
    return run(QStringLiteral("bash"), {QStringLiteral(SYSTEMD_LOGIN), program.config(), program.marker()}, output) !=
           noManager;
}

} // namespace

TEST_F(LaunchAgentTest, DoesNotExistAtFirst) {
    EXPECT_FALSE(agent().exists());
}

TEST_F(LaunchAgentTest, MakesTheFolderThatIsNotThereYet) {
    AutostartLaunchAgent agent = this->agent();
    agent.toggle();
    EXPECT_TRUE(agent.exists());
    EXPECT_EQ(contents(path()), AutostartLaunchAgent::desktopEntry(installed));
    EXPECT_EQ(files(), QStringList{fileName});
}

TEST_F(LaunchAgentTest, TogglingTwiceLeavesNothing) {
    AutostartLaunchAgent agent = this->agent();
    agent.toggle();
    agent.toggle();
    EXPECT_FALSE(agent.exists());
    EXPECT_EQ(files(), QStringList());
}

TEST_F(LaunchAgentTest, ReadsTheFileSystemEachTime) {
    const AutostartLaunchAgent agent = this->agent();
    makeFolder();
    write(path(), "");
    EXPECT_TRUE(agent.exists());
    QFile::remove(path());
    EXPECT_FALSE(agent.exists());
}

TEST_F(LaunchAgentTest, AFileForAnEarlierPlaceIsDeletedFirstAndThenWrittenAfresh) {
    agent(QStringLiteral("/old/skylet")).toggle();
    AutostartLaunchAgent agent = this->agent();
    EXPECT_TRUE(agent.exists());
    EXPECT_EQ(contents(path()), AutostartLaunchAgent::desktopEntry(QStringLiteral("/old/skylet")))
        << "until the user toggles";
    agent.toggle();
    EXPECT_FALSE(agent.exists());
    agent.toggle();
    EXPECT_TRUE(agent.exists());
    EXPECT_EQ(contents(path()), AutostartLaunchAgent::desktopEntry(installed));
}

TEST_F(LaunchAgentTest, AnyFileOfTheNameCountsAndIsDeleted) {
    makeFolder();
    write(path(), "no desktop entry");
    EXPECT_TRUE(agent().exists());
    agent().toggle();
    EXPECT_FALSE(agent().exists());
    EXPECT_EQ(files(), QStringList());
}

TEST_F(LaunchAgentTest, AFileThatCannotBeDeletedStaysAsItIs) {
    agent(QStringLiteral("/old/skylet")).toggle();
    ASSERT_EQ(chmod(autostart().toUtf8().constData(), 0555), 0);
    ASSERT_EQ(chmod(folder_.path().toUtf8().constData(), 0755), 0);
    {
        const UnprivilegedUser user;
        ASSERT_TRUE(user.isReady());
        agent().toggle();
        EXPECT_TRUE(agent().exists());
    }
    EXPECT_EQ(contents(path()), AutostartLaunchAgent::desktopEntry(QStringLiteral("/old/skylet")));
    ASSERT_EQ(chmod(autostart().toUtf8().constData(), 0755), 0);
}

TEST_F(LaunchAgentTest, AFolderThatCannotBeWrittenToStaysEmpty) {
    makeFolder();
    ASSERT_EQ(chmod(autostart().toUtf8().constData(), 0555), 0);
    ASSERT_EQ(chmod(folder_.path().toUtf8().constData(), 0755), 0);
    {
        const UnprivilegedUser user;
        ASSERT_TRUE(user.isReady());
        agent().toggle();
        EXPECT_FALSE(agent().exists());
    }
    EXPECT_EQ(files(), QStringList());
    ASSERT_EQ(chmod(autostart().toUtf8().constData(), 0755), 0);
}

TEST_F(LaunchAgentTest, AFileInThePlaceOfItsFolderStaysAsItIs) {
    ASSERT_TRUE(QDir().mkpath(QFileInfo(autostart()).path()));
    write(autostart(), "no folder");
    agent().toggle();
    EXPECT_FALSE(agent().exists());
    EXPECT_EQ(contents(autostart()), "no folder");
}

TEST_F(LaunchAgentTest, AFolderInItsPlaceCountsAndStays) {
    ASSERT_TRUE(QDir().mkpath(path()));
    agent().toggle();
    EXPECT_TRUE(agent().exists());
}

TEST_F(LaunchAgentTest, TheFileAppearsAsAWhole) {
    makeFolder();
    const FolderEvents events(autostart());
    agent().toggle();
    const std::uint32_t happened = events.of(fileName);
    EXPECT_TRUE(happened == IN_MOVED_TO || happened == IN_CREATE) << happened << ": it was seen being written";
    EXPECT_EQ(contents(path()), AutostartLaunchAgent::desktopEntry(installed));
}

TEST_F(LaunchAgentTest, AFullDiskLeavesNoFileBehind) {
    makeFolder();
    for (qsizetype room = 0; room < AutostartLaunchAgent::desktopEntry(installed).size(); ++room) {
        const FullDisk disk(static_cast<rlim_t>(room));
        agent().toggle();
        EXPECT_FALSE(agent().exists()) << room;
        EXPECT_EQ(files(), QStringList()) << room;
    }
}

TEST_F(LaunchAgentTest, TheUserMayWriteTheFileAndOthersMayReadIt) {
    const mode_t before = umask(022);
    agent().toggle();
    umask(before);
    struct stat status {};
    ASSERT_EQ(stat(path().toUtf8().constData(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

TEST_F(LaunchAgentTest, ALinkToNothingDoesNotCountAndGivesWayToAFile) {
    makeFolder();
    const QString target = folder_.filePath(QStringLiteral("target"));
    ASSERT_TRUE(QFile::link(target, path()));
    EXPECT_FALSE(agent().exists());
    agent().toggle();
    EXPECT_TRUE(agent().exists());
    EXPECT_FALSE(QFileInfo(path()).isSymLink());
    EXPECT_EQ(contents(path()), AutostartLaunchAgent::desktopEntry(installed));
    EXPECT_FALSE(QFileInfo::exists(target));
}

TEST_F(LaunchAgentTest, OfALinkToAFileOnlyTheLinkIsDeleted) {
    makeFolder();
    const QString target = folder_.filePath(QStringLiteral("target"));
    write(target, "kept elsewhere");
    ASSERT_TRUE(QFile::link(target, path()));
    EXPECT_TRUE(agent().exists());
    agent().toggle();
    EXPECT_FALSE(agent().exists());
    EXPECT_EQ(files(), QStringList());
    EXPECT_EQ(contents(target), "kept elsewhere");
}

TEST(AutostartLaunchAgent, SaysWhatToStartAndWhoItIsAndNoMore) {
    EXPECT_EQ(AutostartLaunchAgent::desktopEntry(installed), "[Desktop Entry]\n"
                                                             "Type=Application\n"
                                                             "Name=Skylet\n"
                                                             "Icon=com.vorn.skylet\n"
                                                             "X-Skylet-Identifier=com.vorn.skylet\n"
                                                             "Exec=\"/opt/skylet/bin/skylet\"\n"
                                                             "Terminal=false\n"
                                                             "StartupNotify=false\n");
}

TEST(AutostartLaunchAgent, QuotesByTheRulesOfTheExecKeyAndThenOfStrings) {
    const auto exec = [](const char* path) {
        const QByteArray entry = AutostartLaunchAgent::desktopEntry(QString::fromUtf8(path));
        const auto start = entry.indexOf("Exec=") + 5;
        return entry.mid(start, entry.indexOf('\n', start) - start);
    };
    EXPECT_EQ(exec("/a b"), R"("/a b")");
    EXPECT_EQ(exec("/a\"b"), R"(nice -n 0 "/a\\"b")");
    EXPECT_EQ(exec("/a'b"), R"(nice -n 0 "/a'b")");
    EXPECT_EQ(exec("/a`b"), R"("/a\\`b")");
    EXPECT_EQ(exec("/a$b"), R"("/a\\$b")");
    EXPECT_EQ(exec("/a\\b"), R"("/a\\\\b")");
    EXPECT_EQ(exec("/a\tb\nc\rd"), R"(nice -n 0 "/a\tb\nc\rd")");
    EXPECT_EQ(exec("/קו"), "\"/קו\"");
    EXPECT_EQ(exec("/a%b"), R"(nice -n 0 "/a%%b")");
}

TEST_P(LaunchAgentOnTheDesktop, IsAValidEntry) {
    if (isMissing("desktop-file-validate")) {
        GTEST_SKIP() << "no desktop-file-validate";
    }
    const NastyProgram program(GetParam().name);
    QString output;
    EXPECT_EQ(run(QStringLiteral("desktop-file-validate"), {program.agent()}, output), 0);
    EXPECT_EQ(output, QString());
}

TEST_P(LaunchAgentOnTheDesktop, GLibStartsTheVeryProgram) {
    if (isMissing("gio")) {
        GTEST_SKIP() << "no gio";
    }
    const NastyProgram program(GetParam().name);
    QString output;
    ASSERT_EQ(run(QStringLiteral("gio"), {QStringLiteral("launch"), program.agent()}, output), 0) << qPrintable(output);
    // gio does not wait for what it starts.
    for (int i = 0; i < 500 && !QFile::exists(program.marker()); ++i) {
        usleep(10'000);
    }
    EXPECT_EQ(program.written(), program.expected());
}

TEST_P(LaunchAgentUnderSystemd, StartsTheVeryProgram) {
    const NastyProgram program(GetParam().name);
    QString output;
    if (!logInWithSystemd(program, output)) {
        GTEST_SKIP() << qPrintable(output);
    }
    EXPECT_EQ(program.written(), program.expected())
        << contents(program.config() + QStringLiteral("/manager.log")).constData();
}

TEST(AutostartLaunchAgent, SystemdDoesNotStartTheProgramAgainWhenItEnds) {
    const auto generator = QStringLiteral("/lib/systemd/user-generators/systemd-xdg-autostart-generator");
    if (!QFile::exists(generator)) {
        GTEST_SKIP() << "no systemd-xdg-autostart-generator";
    }
    const NastyProgram program("plain");
    const QTemporaryDir units;
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), program.config());
    environment.insert(QStringLiteral("XDG_CONFIG_DIRS"), QStringLiteral("/nonexistent"));
    QString output;
    ASSERT_EQ(run(generator, {units.path(), units.path(), units.path()}, output, environment), 0) << qPrintable(output);
    EXPECT_TRUE(
        contents(units.filePath(QStringLiteral("app-com.vorn.skylet@autostart.service"))).contains("\nRestart=no\n"));
}

INSTANTIATE_TEST_SUITE_P(, LaunchAgentOnTheDesktop, testing::ValuesIn(nastyNames), label);
INSTANTIATE_TEST_SUITE_P(Too, LaunchAgentOnTheDesktop, testing::ValuesIn(namesBeyondSystemd), label);
INSTANTIATE_TEST_SUITE_P(, LaunchAgentUnderSystemd, testing::ValuesIn(nastyNames), label);

} // namespace skylet::test
