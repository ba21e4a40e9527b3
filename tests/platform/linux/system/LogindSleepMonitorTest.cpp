#include "platform/linux/system/LogindSleepMonitor.h"

#include "platform/linux/system/BusCall.h"
#include "platform/linux/system/FileDescriptor.h"
#include "support/ChildProcess.h"
#include "support/EventLoop.h"
#include "support/PrivateBus.h"
#include "support/Timing.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <csignal>
#include <iterator>
#include <memory>

namespace skylet::test {

namespace {

using namespace std::chrono_literals;

const auto logind = QStringLiteral("org.freedesktop.login1");
const auto manager = QStringLiteral("org.freedesktop.login1.Manager");

constexpr auto longEnoughForAnotherCall = 150ms;
constexpr auto toleratedAbsence = 300ms;

/// Stands in for logind on a private bus: python3-dbusmock's template, with the answers a test wants.
class MockLogind {
  public:
    MockLogind(const PrivateBus& bus, QDBusConnection control, const char* properties) : control_(std::move(control)) {
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), bus.address());
        endWithThisProcess(process_);
        process_.setProcessEnvironment(environment);
        process_.setStandardOutputFile(QProcess::nullDevice());
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.start(QStringLiteral("/usr/bin/python3"),
                       {QStringLiteral("-m"), QStringLiteral("dbusmock"), QStringLiteral("--template"),
                        QStringLiteral("logind"), QStringLiteral("--parameters"), QString::fromUtf8(properties)});
        isThere_ = process_.waitForStarted() && waitUntil([this] { return isOnBus(control_, logind) && answers(); });
    }
    ~MockLogind() {
        process_.kill();
        process_.waitForFinished();
    }
    MockLogind(const MockLogind&) = delete;
    MockLogind& operator=(const MockLogind&) = delete;
    MockLogind(MockLogind&&) = delete;
    MockLogind& operator=(MockLogind&&) = delete;

    bool isThere() const { return isThere_; }

    void announceSleep(bool sleeping) {
        call("EmitSignal", {manager, QStringLiteral("PrepareForSleep"), QStringLiteral("b"), QVariantList{sleeping}});
    }

    /// Answers Inhibit from now on by running `code`.
    void onInhibit(const char* code) { addMethod("Inhibit", "ssss", "h", code); }

    /// Runs `code` and returns the text it leaves in "ret".
    QString run(const char* code) {
        addMethod("Run", "", "s", code);
        return control_
            .call(QDBusMessage::createMethodCall(logind, QStringLiteral("/org/freedesktop/login1"), manager,
                                                 QStringLiteral("Run")))
            .arguments()
            .value(0)
            .toString();
    }

    /// Each inhibitor that is held, as "what|who|why|mode".
    QStringList inhibitors() const {
        const auto reply = control_.call(QDBusMessage::createMethodCall(
            logind, QStringLiteral("/org/freedesktop/login1"), manager, QStringLiteral("ListInhibitors")));
        QStringList found;
        const auto list = reply.arguments().value(0).value<QDBusArgument>();
        list.beginArray();
        while (!list.atEnd()) {
            QString what;
            QString who;
            QString why;
            QString mode;
            uint user = 0;
            uint process = 0;
            list.beginStructure();
            list >> what >> who >> why >> mode >> user >> process;
            list.endStructure();
            found.append(QStringList{what, who, why, mode}.join(u'|'));
        }
        list.endArray();
        return found;
    }

    void freeze() { ::kill(static_cast<pid_t>(process_.processId()), SIGSTOP); }
    void thaw() { ::kill(static_cast<pid_t>(process_.processId()), SIGCONT); }

  private:
    /// The name is there before the template is.
    bool answers() const {
        auto get =
            QDBusMessage::createMethodCall(logind, QStringLiteral("/org/freedesktop/login1"),
                                           QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
        get << manager << QStringLiteral("PreparingForSleep");
        return control_.call(get).type() == QDBusMessage::ReplyMessage;
    }

    void addMethod(const char* name, const char* inSignature, const char* outSignature, const char* code) {
        call("AddMethod", {manager, QString::fromUtf8(name), QString::fromUtf8(inSignature),
                           QString::fromUtf8(outSignature), QString::fromUtf8(code)});
    }

    void call(const char* method, const QVariantList& arguments) {
        auto message =
            QDBusMessage::createMethodCall(logind, QStringLiteral("/org/freedesktop/login1"),
                                           QStringLiteral("org.freedesktop.DBus.Mock"), QString::fromUtf8(method));
        message.setArguments(arguments);
        const auto reply = control_.call(message);
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    }

    QDBusConnection control_;
    QProcess process_;
    bool isThere_ = false;
};

/// Has room for `backlog` connections and one, and answers none.
class MuteBus {
  public:
    explicit MuteBus(int backlog) {
        const QByteArray path = QFile::encodeName(path_);
        std::copy(path.begin(), path.end(), std::begin(place_.sun_path));
        EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&place_), sizeof place_), 0);
        EXPECT_EQ(listen(socket_.get(), backlog), 0);
    }

    QString address() const { return QStringLiteral("unix:path=") + path_; }

    /// Not valid where there is no room.
    FileDescriptor connect() const {
        FileDescriptor connection = newSocket();
        const bool there = ::connect(connection.get(), reinterpret_cast<const sockaddr*>(&place_), sizeof place_) == 0;
        return there ? std::move(connection) : FileDescriptor();
    }

  private:
    static FileDescriptor newSocket() {
        return FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    }

    const QTemporaryDir folder_;
    const QString path_ = folder_.filePath(QStringLiteral("bus"));
    sockaddr_un place_{.sun_family = AF_UNIX, .sun_path = {}};
    const FileDescriptor socket_ = newSocket();
};

class LogindSleepMonitorTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(bus_.isRunning()); }

    void startLogind(const char* properties = "{}") {
        logind_ = std::make_unique<MockLogind>(bus_, control_, properties);
        ASSERT_TRUE(logind_->isThere()) << "python3-dbusmock is needed";
    }

    void startMonitor() {
        monitor_.start(
            [this] {
                calls_ += QStringLiteral("sleep at %1").arg(epoch_.current());
                if (logind_) {
                    heldInWillSleep_ = logind_->inhibitors().size();
                }
            },
            [this] { calls_ += QStringLiteral("wake at %1").arg(epoch_.current()); });
    }

    bool inhibitorsBecome(qsizetype count) {
        return waitUntil([&] { return logind_->inhibitors().size() == count; });
    }

    /// Starts both and waits for the inhibitor.
    void startAwake() {
        startLogind();
        startMonitor();
        ASSERT_TRUE(inhibitorsBecome(1));
    }

    bool called(const char* call) {
        return waitUntil([&] { return calls_.contains(QString::fromUtf8(call)); });
    }

    QStringList callsSoFar() {
        runFor(longEnoughForAnotherCall);
        return calls_;
    }

    static QStringList list(std::initializer_list<const char*> calls) {
        QStringList result;
        for (const char* call : calls) {
            result += QString::fromUtf8(call);
        }
        return result;
    }

    PrivateBus bus_;
    QDBusConnection control_ = bus_.connect();
    std::unique_ptr<MockLogind> logind_;
    NetworkEpoch epoch_;
    QStringList calls_;
    qsizetype heldInWillSleep_ = -1;
    LogindSleepMonitor monitor_{bus_.address(), epoch_, toleratedAbsence};
};

} // namespace

TEST_F(LogindSleepMonitorTest, HoldsADelayInhibitorWhileAwake) {
    startAwake();
    ASSERT_EQ(logind_->inhibitors().size(), 1);
    const auto fields = logind_->inhibitors().constFirst().split(u'|');
    EXPECT_EQ(fields[0], QStringLiteral("sleep"));
    EXPECT_EQ(fields[1], QStringLiteral("Skylet"));
    EXPECT_FALSE(fields[2].isEmpty());
    EXPECT_EQ(fields[3], QStringLiteral("delay"));
    EXPECT_EQ(callsSoFar(), QStringList{});
}

TEST_F(LogindSleepMonitorTest, TheSuspendWaitsUntilWillSleepHasReturned) {
    startAwake();
    logind_->announceSleep(true);
    ASSERT_TRUE(called("sleep at 0"));
    EXPECT_EQ(heldInWillSleep_, 1);
    EXPECT_TRUE(inhibitorsBecome(0));
}

TEST_F(LogindSleepMonitorTest, WakesIntoANewEpochWithANewInhibitor) {
    startAwake();
    logind_->announceSleep(true);
    ASSERT_TRUE(inhibitorsBecome(0));
    logind_->announceSleep(false);
    ASSERT_TRUE(called("wake at 1"));
    EXPECT_TRUE(inhibitorsBecome(1));
    EXPECT_EQ(callsSoFar(), list({"sleep at 0", "wake at 1"}));
}

TEST_F(LogindSleepMonitorTest, SleepsAndWakesAsOftenAsTheSystemDoes) {
    startAwake();
    for (int i = 0; i < 3; ++i) {
        logind_->announceSleep(true);
        ASSERT_TRUE(inhibitorsBecome(0));
        logind_->announceSleep(false);
        ASSERT_TRUE(inhibitorsBecome(1));
    }
    EXPECT_EQ(callsSoFar(), list({"sleep at 0", "wake at 1", "sleep at 1", "wake at 2", "sleep at 2", "wake at 3"}));
}

TEST_F(LogindSleepMonitorTest, AnnouncementsThatAreRepeatedCountOnce) {
    startAwake();
    logind_->announceSleep(false);
    logind_->announceSleep(true);
    logind_->announceSleep(true);
    logind_->announceSleep(false);
    logind_->announceSleep(false);
    ASSERT_TRUE(called("wake at 1"));
    EXPECT_EQ(callsSoFar(), list({"sleep at 0", "wake at 1"}));
    EXPECT_EQ(logind_->inhibitors().size(), 1);
}

TEST_F(LogindSleepMonitorTest, AnInhibitorGrantedTooLateIsNotHeld) {
    startLogind();
    // The announcement overtakes the answer.
    logind_->onInhibit("import os, time\n"
                       "from gi.repository import GLib\n"
                       "self.EmitSignal('org.freedesktop.login1.Manager', 'PrepareForSleep', 'b', [True])\n"
                       "time.sleep(0.2)\n"
                       "r, w = os.pipe()\n"
                       "globals()['kept'] = r\n"
                       "GLib.idle_add(os.close, w)\n"
                       "ret = w\n");
    startMonitor();
    ASSERT_TRUE(called("sleep at 0"));
    // The end of the pipe that logind keeps tells once nobody holds the other one.
    const auto isReleased = [this] {
        return logind_->run("import select\n"
                            "poll = select.poll()\n"
                            "poll.register(globals()['kept'], 0)\n"
                            "ret = 'released' if poll.poll(0) else 'held'\n") == QStringLiteral("released");
    };
    EXPECT_TRUE(waitUntil(isReleased));
}

TEST_F(LogindSleepMonitorTest, IsToldOfSleepAlsoWhereInhibitorsAreRefused) {
    startLogind();
    logind_->onInhibit("raise dbus.exceptions.DBusException('no', name='org.freedesktop.DBus.Error.AccessDenied')");
    startMonitor();
    runFor(longEnoughForAnotherCall);
    logind_->announceSleep(true);
    ASSERT_TRUE(called("sleep at 0"));
    logind_->announceSleep(false);
    EXPECT_TRUE(called("wake at 1"));
}

TEST_F(LogindSleepMonitorTest, ASystemWithoutABusIsSilent) {
    LogindSleepMonitor monitor(QStringLiteral("unix:path=/nonexistent/bus"), epoch_);
    monitor.start([this] { calls_ += QStringLiteral("sleep"); }, [this] { calls_ += QStringLiteral("wake"); });
    EXPECT_EQ(callsSoFar(), QStringList{});
    monitor.stop();
}

TEST_F(LogindSleepMonitorTest, FindsALogindThatComesLate) {
    startMonitor();
    EXPECT_EQ(callsSoFar(), QStringList{});
    startLogind();
    ASSERT_TRUE(inhibitorsBecome(1));
    logind_->announceSleep(true);
    EXPECT_TRUE(called("sleep at 0"));
}

TEST_F(LogindSleepMonitorTest, StartedWhileTheSystemIsGoingToSleepItGoesAlong) {
    startLogind(R"({"PreparingForSleep": true})");
    startMonitor();
    ASSERT_TRUE(called("sleep at 0"));
    EXPECT_EQ(logind_->inhibitors(), QStringList{});
    logind_->announceSleep(false);
    EXPECT_TRUE(called("wake at 1"));
    EXPECT_TRUE(inhibitorsBecome(1));
}

TEST_F(LogindSleepMonitorTest, TakesANewInhibitorFromALogindThatWasRestarted) {
    startAwake();
    logind_.reset();
    startLogind();
    ASSERT_TRUE(inhibitorsBecome(1));
    EXPECT_EQ(callsSoFar(), QStringList{});
    logind_->announceSleep(true);
    ASSERT_TRUE(called("sleep at 0"));
    EXPECT_TRUE(inhibitorsBecome(0));
}

TEST_F(LogindSleepMonitorTest, WakesWhenLogindWasRestartedDuringTheSuspendAndSaysItIsOver) {
    startAwake();
    logind_->announceSleep(true);
    ASSERT_TRUE(inhibitorsBecome(0));
    logind_.reset();
    startLogind();
    EXPECT_TRUE(called("wake at 1"));
    EXPECT_TRUE(inhibitorsBecome(1));
    EXPECT_EQ(callsSoFar(), list({"sleep at 0", "wake at 1"}));
}

TEST_F(LogindSleepMonitorTest, StaysAsleepWhenLogindWasRestartedAndTheSuspendGoesOn) {
    // A machine that was too busy for the restart has another chance, with a longer absence tolerated.
    for (auto tolerated = 1500ms; tolerated < 1min; tolerated *= 2) {
        calls_.clear();
        logind_.reset();
        LogindSleepMonitor patient(bus_.address(), epoch_, tolerated);
        patient.start([this] { calls_ += QStringLiteral("sleep"); }, [this] { calls_ += QStringLiteral("wake"); });
        startLogind();
        ASSERT_TRUE(inhibitorsBecome(1));
        logind_->announceSleep(true);
        ASSERT_TRUE(inhibitorsBecome(0));
        QElapsedTimer sinceTheEnd;
        sinceTheEnd.start();
        logind_.reset();
        startLogind(R"({"PreparingForSleep": true})");
        const std::chrono::milliseconds restart(sinceTheEnd.elapsed());
        if (restart > tolerated / 2) {
            continue;
        }
        runFor(tolerated + longEnoughForAnotherCall - restart);
        EXPECT_EQ(calls_, list({"sleep"}));
        EXPECT_EQ(logind_->inhibitors(), QStringList{});
        logind_->announceSleep(false);
        EXPECT_TRUE(called("wake"));
        return;
    }
    FAIL() << "no restart was fast enough";
}

TEST_F(LogindSleepMonitorTest, WakesWhenLogindDoesNotComeBack) {
    startAwake();
    logind_->announceSleep(true);
    ASSERT_TRUE(inhibitorsBecome(0));
    logind_.reset();
    QElapsedTimer elapsed;
    elapsed.start();
    ASSERT_TRUE(called("wake at 1"));
    EXPECT_GE(elapsed.elapsed(), 200);
}

TEST_F(LogindSleepMonitorTest, WakesWhenTheBusBreaks) {
    startAwake();
    logind_->announceSleep(true);
    ASSERT_TRUE(inhibitorsBecome(0));
    bus_.kill();
    EXPECT_TRUE(called("wake at 1"));
}

TEST_F(LogindSleepMonitorTest, ABusThatBreaksWhileAwakeIsNoMatter) {
    startAwake();
    logind_.reset();
    bus_.kill();
    runFor(2 * toleratedAbsence);
    EXPECT_EQ(calls_, QStringList{});
}

TEST_F(LogindSleepMonitorTest, TheSystemBusIsWhereTheEnvironmentSaysElseInItsUsualPlace) {
    const QByteArray before = qgetenv("DBUS_SYSTEM_BUS_ADDRESS");
    const auto usual = QStringLiteral("unix:path=/var/run/dbus/system_bus_socket");
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/some/where");
    EXPECT_EQ(LogindSleepMonitor::systemBusAddress(), QStringLiteral("unix:path=/some/where"));
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", "");
    EXPECT_EQ(LogindSleepMonitor::systemBusAddress(), usual);
    qunsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    EXPECT_EQ(LogindSleepMonitor::systemBusAddress(), usual);
    before.isNull() ? qunsetenv("DBUS_SYSTEM_BUS_ADDRESS") : qputenv("DBUS_SYSTEM_BUS_ADDRESS", before);
}

TEST_F(LogindSleepMonitorTest, FindsABusThatComesLateAndOneThatComesBack) {
    const QTemporaryDir folder;
    const QString socket = folder.filePath(QStringLiteral("bus"));
    LogindSleepMonitor monitor(QStringLiteral("unix:path=") + socket, epoch_, toleratedAbsence, 20ms);
    monitor.start([this] { calls_ += QStringLiteral("sleep"); }, [this] { calls_ += QStringLiteral("wake"); });
    for (const char* whatHappened : {"late", "back"}) {
        PrivateBus bus;
        const MockLogind logind(bus, bus.connect(), "{}");
        ASSERT_TRUE(logind.isThere()) << "python3-dbusmock is needed";
        const QString path = bus.address().section(u'=', 1, 1).section(u',', 0, 0);
        ASSERT_TRUE(QFile::link(path, socket));
        EXPECT_TRUE(waitUntil([&] { return logind.inhibitors().size() == 1; })) << whatHappened;
        ASSERT_TRUE(QFile::remove(socket));
    }
    EXPECT_EQ(callsSoFar(), QStringList{});
}

TEST_F(LogindSleepMonitorTest, ABusThatAcceptsAndSaysNothingIsNotWaitedFor) {
    const MuteBus mute(1);
    LogindSleepMonitor monitor(mute.address(), epoch_);
    monitor.start([] {}, [] {});
    EXPECT_TRUE(isOnBus(control_, QStringLiteral("org.freedesktop.DBus"))) << "and another bus is not held up";
    EXPECT_EQ(callsSoFar(), QStringList{});
}

TEST_F(LogindSleepMonitorTest, ABusThatHasStoppedToAcceptIsNotWaitedFor) {
    const MuteBus full(0);
    const FileDescriptor another(full.connect());
    ASSERT_FALSE(full.connect().isValid());
    LogindSleepMonitor monitor(full.address(), epoch_);
    monitor.start([] {}, [] {});
    EXPECT_TRUE(isOnBus(control_, QStringLiteral("org.freedesktop.DBus"))) << "and another bus is not held up";
    EXPECT_EQ(callsSoFar(), QStringList{});
}

TEST_F(LogindSleepMonitorTest, ALogindThatDoesNotAnswerIsNotWaitedFor) {
    startLogind();
    logind_->freeze();
    QElapsedTimer elapsed;
    elapsed.start();
    startMonitor();
    runFor(50ms);
    if (runsAlone()) {
        EXPECT_LT(std::chrono::milliseconds(elapsed.elapsed()), allowing(500ms));
    }
    logind_->thaw();
    EXPECT_TRUE(inhibitorsBecome(1));
}

TEST_F(LogindSleepMonitorTest, AnAnnouncementCountsMoreThanAnAnswerThatIsHandedOverAfterIt) {
    startLogind();
    logind_->freeze();
    monitor_.start([this] { calls_ += QStringLiteral("sleep"); }, [this] { calls_ += QStringLiteral("wake"); });
    const QDBusConnection own(QStringLiteral("skylet-logind-%1").arg(quintptr(&monitor_)));
    // Who logind is, has been answered by then, and what is asked of it has reached the bus.
    for (int round = 0; round < 3; ++round) {
        callAndWait(own, busCall(QStringLiteral("GetId")));
    }
    QMetaObject::invokeMethod(&monitor_, "prepareForSleep", Q_ARG(bool, true));
    logind_->thaw();
    // Answered in its turn, after what the monitor had asked.
    const auto question =
        propertyCall(logind, QStringLiteral("/org/freedesktop/login1"), manager, QStringLiteral("PreparingForSleep"));
    EXPECT_EQ(callAndWait(own, question).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(callsSoFar(), list({"sleep"}));
}

TEST_F(LogindSleepMonitorTest, AnnouncementsOfSomebodyElseAreNotBelieved) {
    startAwake();
    auto forged = QDBusMessage::createSignal(QStringLiteral("/org/freedesktop/login1"), manager,
                                             QStringLiteral("PrepareForSleep"));
    forged << true;
    ASSERT_TRUE(control_.send(forged));
    EXPECT_EQ(callsSoFar(), QStringList{});
}

TEST_F(LogindSleepMonitorTest, StopReleasesTheInhibitorAndEndsTheCalls) {
    startAwake();
    monitor_.stop();
    monitor_.stop();
    EXPECT_TRUE(inhibitorsBecome(0));
    logind_->announceSleep(true);
    EXPECT_EQ(callsSoFar(), QStringList{});
}

TEST_F(LogindSleepMonitorTest, NothingIsCalledWhenStoppedBeforeLogindAnswers) {
    startLogind(R"({"PreparingForSleep": true})");
    startMonitor();
    monitor_.stop();
    EXPECT_EQ(callsSoFar(), QStringList{});
    EXPECT_EQ(logind_->inhibitors(), QStringList{});
}

TEST_F(LogindSleepMonitorTest, StartsAnewAfterStop) {
    startAwake();
    monitor_.stop();
    ASSERT_TRUE(inhibitorsBecome(0));
    startMonitor();
    ASSERT_TRUE(inhibitorsBecome(1));
    logind_->announceSleep(true);
    EXPECT_TRUE(called("sleep at 0"));
}

TEST_F(LogindSleepMonitorTest, ProcessesStartedMeanwhileDoNotKeepTheInhibitor) {
    startAwake();
    QProcess child;
    child.start(QStringLiteral("cat"), QStringList());
    ASSERT_TRUE(child.waitForStarted());
    logind_->announceSleep(true);
    EXPECT_TRUE(inhibitorsBecome(0));
    child.closeWriteChannel();
    child.waitForFinished();
}

} // namespace skylet::test
