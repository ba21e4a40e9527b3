#pragma once

#include "platform/Lifetime.h"
#include "platform/linux/statusitem/host/KnownHosts.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>
#include <QVariantList>

#include <functional>

namespace skylet {

/// What the system tells about processes and the session.
struct StatusHostEnvironment {
    /// Empty: not known, as for a process in another container.
    std::function<QString(uint processId)> processName;
    QString currentDesktop;

    /// The real one.
    static StatusHostEnvironment system();
};

/// Finds out who shows status items in this session: the owner of the watcher's name and the hosts beside it, and from
/// them which presentation of the title suits best. Asks asynchronously only, and of the hosts themselves nothing.
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
    /// The watcher has another owner than before, or none any more, or the presentation is another one, or it is now
    /// known whether there is a host.
    void changed();

  private:
    /// Asks the bus who is there; answers to earlier questions are dropped.
    Q_SLOT void refresh();

    struct Findings {
        QString watcherOwner;
        QSet<QString> hostOwners;
        /// The names of the processes behind these connections.
        QHash<QString, QString> processNames;
    };

    void forgetWatcher();
    void askForOwner(const QString& name);
    void askForProcess(const QString& owner);
    void ask(const QString& method, const QVariantList& arguments, std::function<void(const QVariant& answer)> take);
    void conclude();
    Presentation presentationForAll(const QSet<QString>& hosts) const;
    void askWatcherForHosts();
    void report();

    QDBusConnection connection_;
    StatusHostEnvironment environment_;
    QDBusServiceWatcher nameWatcher_;
    Lifetime questions_;
    int unanswered_ = 0;
    Findings findings_;
    QHash<QString, QString> processNames_;
    QString watcherOwner_;
    bool watcherIsAlone_ = false;
    Presentation presentation_;
};

} // namespace skylet
