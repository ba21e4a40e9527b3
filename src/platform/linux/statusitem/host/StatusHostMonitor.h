#pragma once

#include "platform/linux/statusitem/drawing/ItemAppearance.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

namespace skylet {

/// What a kind of status host can do.
struct StatusHostTraits {
    Presentation presentation = Presentation::badge;
    /// The host opens the menu by itself, on a left click at the latest when `Activate` is refused.
    bool opensMenu = false;
    /// An item should give the watcher the name of its connection rather than one of its own.
    bool prefersConnectionName = false;
    /// The host is better given the icon's name, which may be the path of a file, than its pixels.
    bool prefersIconName = false;
    /// The program keeps the list of items and shows none itself; what it says of hosts is not to be relied on.
    bool watchesOnly = false;

    bool operator==(const StatusHostTraits&) const = default;
};

/// `processName`: as the kernel has it, cut after 15 characters. Programs not known here get the careful defaults.
StatusHostTraits traitsOfProcess(const QString& processName);
/// `currentDesktop`: the value of XDG_CURRENT_DESKTOP, names separated by colons.
StatusHostTraits traitsOfDesktop(const QString& currentDesktop);

/// What the system tells about processes and the session.
struct StatusHostEnvironment {
    /// Empty: not known, as for a process in another container.
    std::function<QString(uint processId)> processName;
    QString currentDesktop;

    /// The real one.
    static StatusHostEnvironment system();
};

/// Finds out who shows status items in this session: the owner of the watcher's name and the hosts beside it, and from
/// them in which way the title is best shown. Asks asynchronously only, and of the hosts themselves nothing.
class StatusHostMonitor final : public QObject {
    Q_OBJECT

  public:
    StatusHostMonitor(QDBusConnection connection, StatusHostEnvironment environment);

    /// Reports the first time soon after, once something is known.
    void start();
    /// The connection that owns the watcher's name; empty: no watcher.
    const QString& watcherOwner() const { return watcherOwner_; }
    /// Somebody shows items. A watcher alone, as Plasma's service daemon is while the shell is away, does not; what it
    /// says of hosts counts unless it is known better.
    bool hasHost() const { return !watcherOwner_.isEmpty() && !watcherIsAlone_; }
    Presentation presentation() const { return presentation_; }
    /// Of the program behind a connection, which need not be a host.
    StatusHostTraits traitsOfConnection(const QString& connectionName) const;

  Q_SIGNALS:
    /// The watcher has another owner than before, or none any more, or the title is to be shown in another way, or it
    /// is now known whether there is a host.
    void changed();

  private:
    Q_SLOT void lookAnew();

    /// One look at the bus; an answer to an older one is dropped.
    struct Look {
        int pendingAnswers = 0;
        QString watcherOwner;
        QSet<QString> hostOwners;
        QHash<QString, StatusHostTraits> traits;
    };

    void forgetWatcher();
    void askForOwner(const QString& name, const std::shared_ptr<Look>& look);
    void askForProcess(const QString& owner, const std::shared_ptr<Look>& look);
    void ask(const QString& method, const QVariantList& arguments, const std::shared_ptr<Look>& look,
             std::function<void(const QVariantList& answer)> take);
    void finish(const std::shared_ptr<Look>& look);
    void askWatcherForHosts(const std::shared_ptr<Look>& look);
    void setWatcherAlone(bool alone);
    StatusHostTraits traitsOfProcessId(uint processId) const;

    QDBusConnection connection_;
    StatusHostEnvironment environment_;
    std::unique_ptr<QDBusServiceWatcher> nameWatcher_;
    std::shared_ptr<Look> currentLook_;
    QString watcherOwner_;
    bool watcherIsAlone_ = false;
    Presentation presentation_;
    QHash<QString, StatusHostTraits> traits_;
};

} // namespace skylet
