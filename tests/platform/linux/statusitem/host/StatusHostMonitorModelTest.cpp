#include "platform/linux/statusitem/host/FakeStatusHost.h"
#include "platform/linux/statusitem/host/StatusHostMonitor.h"
#include "platform/linux/system/BusCall.h"
#include "support/EventLoop.h"
#include "support/PrivateBus.h"
#include "support/QStringPrinting.h"
#include "support/RandomEvents.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <vector>

namespace skylet {
namespace {

struct KnownProgram {
    const char* name;
    Presentation presentation;
    /// What it says of hosts is not to be relied on.
    bool onlyWatches;
};
constexpr std::array programs = {
    KnownProgram{"gnome-shell", Presentation::label, false}, KnownProgram{"mate-panel", Presentation::wide, false},
    KnownProgram{"waybar", Presentation::wide, false},       KnownProgram{"lxqt-panel", Presentation::badge, false},
    KnownProgram{"kded5", Presentation::badge, true},        KnownProgram{"plasmashell", Presentation::badge, false}};

/// A connection that may be a watcher and may be hosts.
struct Panel {
    explicit Panel(const QDBusConnection& connection) : bus(connection) {}

    FakeStatusHost bus;
    std::optional<KnownProgram> watchesAs;
    /// As which of the names of hosts.
    std::map<QString, KnownProgram> hosts;
};

/// What a listener knows that looks whenever it is told to, and no more often.
struct Seen {
    QString watcher;
    bool hasHost = false;
    Presentation presentation = Presentation::badge;

    bool operator==(const Seen&) const = default;
};

void PrintTo(const Seen& seen, std::ostream* out) {
    *out << '"' << seen.watcher.toStdString() << "\" host " << seen.hasHost << " presentation "
         << static_cast<int>(seen.presentation);
}

/// Several events happen at once before anything of them is looked at, so that answers about what has gone since are
/// under way.
class StatusHostMonitorModelTest : public testing::Test {
  protected:
    StatusHostMonitorModelTest() {
        for (int i = 0; i < 3; ++i) {
            panels_.push_back(std::make_unique<Panel>(bus_.connect()));
        }
        startMonitor();
        settle();
    }

    /// On a connection of its own, as the program's.
    void startMonitor() {
        const QString last = monitorsBus_.name();
        monitorsBus_ = bus_.connect();
        test::PrivateBus::disconnect(last);
        StatusHostEnvironment environment;
        // All connections belong to one process: the name is that of the program whose turn it is.
        environment.processName = [this](uint /*processId*/) { return QString::fromUtf8(current_.name); };
        environment.panelsStandUpright = [] { return false; };
        monitor_ = std::make_unique<StatusHostMonitor>(monitorsBus_, environment);
        seen_ = now();
        QObject::connect(monitor_.get(), &StatusHostMonitor::changed, monitor_.get(), [this] {
            ++reports_;
            seen_ = now();
        });
        monitor_->start();
    }

    Seen now() const { return {monitor_->watcherOwner(), monitor_->hasHost(), monitor_->presentation()}; }

    const char* step() {
        const char* name = event(*random_.anyOf(panels_));
        if (random_.oneIn(3)) {
            QCoreApplication::processEvents();
        }
        if (random_.oneIn(4)) {
            settle();
            compare();
            current_ = random_.anyOf(programs);
        }
        return name;
    }

    const char* event(Panel& panel) {
        switch (random_.below(10)) {
        case 0:
        case 1:
            if (watcher() == nullptr) {
                panel.bus.appear();
                panel.watchesAs = current_;
            }
            return "a watcher comes";
        case 2:
            if (panel.watchesAs) {
                panel.bus.disappear();
                panel.watchesAs.reset();
            }
            return "a watcher goes";
        case 3:
        case 4:
            return hostComes(panel);
        case 5:
        case 6:
            return hostGoes(panel);
        case 7:
        case 8:
            panel.bus.saysHostIsRegistered = random_.oneIn(4) ? std::nullopt : std::optional<bool>(random_.oneIn(2));
            if (panel.watchesAs) {
                panel.bus.tellOfHosts();
            }
            return "the watcher speaks of hosts";
        default:
            return random_.oneIn(10) ? replaceMonitor() : "nothing";
        }
    }

    Panel* watcher() const {
        const auto found =
            std::find_if(panels_.begin(), panels_.end(), [](const auto& panel) { return panel->watchesAs; });
        return found == panels_.end() ? nullptr : found->get();
    }

    const char* hostComes(Panel& panel) {
        const QString name = random_.anyOf(hostNames_);
        if (std::none_of(panels_.begin(), panels_.end(),
                         [&](const auto& other) { return other->hosts.count(name) > 0; })) {
            QDBusConnection connection = panel.bus.connection();
            EXPECT_TRUE(connection.registerService(name));
            panel.hosts.emplace(name, current_);
        }
        return "a host comes";
    }

    const char* hostGoes(Panel& panel) {
        if (!panel.hosts.empty()) {
            QDBusConnection connection = panel.bus.connection();
            EXPECT_TRUE(connection.unregisterService(panel.hosts.begin()->first));
            panel.hosts.erase(panel.hosts.begin());
        }
        return "a host goes";
    }

    /// It takes all who are there for the program whose turn it is.
    const char* replaceMonitor() {
        monitor_.reset();
        for (const auto& panel : panels_) {
            if (panel->watchesAs) {
                panel->watchesAs = current_;
            }
            for (auto& host : panel->hosts) {
                host.second = current_;
            }
        }
        if (random_.oneIn(2)) {
            // What was on its way to it finds nobody, or else a sanitizer says so.
            settle();
        }
        startMonitor();
        return "the monitor goes, another comes";
    }

    /// On one connection questions are answered in their order, after everything that the bus had to tell of before.
    void settle() {
        for (const auto& panel : panels_) {
            askBus(panel->bus.connection());
        }
        // Who is there, who they are, and which processes they are.
        for (int round = 0; round < 4; ++round) {
            askBus(monitorsBus_);
        }
        if (const Panel* watching = watcher()) {
            test::callAndWait(monitorsBus_,
                              propertyCall(watching->bus.connection().baseService(),
                                           QStringLiteral("/StatusNotifierWatcher"), QString(), QString()));
        }
    }

    static void askBus(const QDBusConnection& connection) {
        test::callAndWait(connection, busCall(QStringLiteral("GetId")));
    }

    void compare() {
        const Panel* watching = watcher();
        Seen wanted{{}, false, monitor_->presentation()};
        if (watching != nullptr) {
            std::vector<KnownProgram> showing;
            for (const auto& panel : panels_) {
                for (const auto& host : panel->hosts) {
                    showing.push_back(host.second);
                }
            }
            wanted.watcher = watching->bus.connection().baseService();
            wanted.hasHost = !showing.empty() ||
                             (!watching->watchesAs->onlyWatches && watching->bus.saysHostIsRegistered.value_or(true));
            if (showing.empty()) {
                showing.push_back(*watching->watchesAs);
            }
            wanted.presentation = showing.front().presentation;
            for (const KnownProgram& program : showing) {
                if (program.presentation != wanted.presentation) {
                    wanted.presentation = Presentation::badge;
                }
            }
        }
        // Qt may tell of a new owner later than of answers that came after it: rare, but sooner or later.
        if (now() != wanted) {
            test::waitUntil([&] { return now() == wanted; });
        }
        EXPECT_EQ(now(), wanted);
        EXPECT_EQ(seen_, wanted) << "not told of the last change";
        if (random_.oneIn(10)) {
            reports_ = 0;
            settle();
            EXPECT_EQ(reports_, 0) << "told of something though nothing happened";
        }
    }

    test::RandomEvents random_{1000};
    const std::array<QString, 3> hostNames_ = {QStringLiteral("org.kde.StatusNotifierHost-1"),
                                               QStringLiteral("org.kde.StatusNotifierHost-2"),
                                               QStringLiteral("org.kde.StatusNotifierHost-3")};
    test::PrivateBus bus_;
    QDBusConnection monitorsBus_ = bus_.connect();
    std::vector<std::unique_ptr<Panel>> panels_;
    KnownProgram current_ = programs.front();
    int reports_ = 0;
    Seen seen_;
    std::unique_ptr<StatusHostMonitor> monitor_;
};

TEST_F(StatusHostMonitorModelTest, FollowsTheRulesWhateverHappensInWhateverOrder) {
    random_.run([this] { return step(); });
}

} // namespace
} // namespace skylet
