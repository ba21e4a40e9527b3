#pragma once

#include "platform/Lifetime.h"
#include "platform/linux/statusitem/host/KnownHosts.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QHash>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>

namespace skylet {

/// What the system tells about processes and the session.
struct StatusHostEnvironment {
    /// Empty: not known, as for a process in another container.
    std::function<QString(uint processId)> processName;
    QString currentDesktop;
    /// As far as a screen's edges tell: room is kept free at its sides, and neither at the top nor at the bottom.
    std::function<bool()> panelsStandUpright;

    /// The real one.
    static StatusHostEnvironment system();
};

/// Finds out who shows status items in this session: the owner of the watcher's name and the hosts beside it, and from
/// them which presentation of the title suits best. Waits for the bus when it starts, and for no other program ever.
class StatusHostMonitor final : public QObject {
    Q_OBJECT

  public:
    StatusHostMonitor(QDBusConnection connection, StatusHostEnvironment environment);

    /// Reports at once who is there.
    void start();
    /// The connection that owns the watcher's name; empty: no watcher.
    const QString& watcherOwner() const { return watcherOwner_; }
    /// Somebody shows items. A watcher alone, as Plasma's service daemon is while the shell is away, does not; what it
    /// says of hosts counts unless it is known better.
    bool hasHost() const { return !watcherOwner_.isEmpty() && !watcherHasNoHost_; }
    Presentation presentation() const;
    /// Of the program behind a connection, which need not be a host.
    StatusHostTraits traitsOfConnection(const QString& connectionName) const;

  Q_SIGNALS:
    /// The watcher has another owner than before, or none any more, or the presentation is another one, or it is now
    /// known whether there is a host.
    void changed();

  private:
    struct Program {
        QString connection;
        /// The name of its process; absent until it has been found out.
        std::optional<QString> process;
    };

    void setOwner(const QString& name, const QString& owner);
    /// `reply`: says the number of the process that owns the name.
    void setProcess(const QString& name, const QDBusMessage& reply);
    StatusHostTraits traitsOf(const Program& program) const;
    void update();
    Q_SLOT void askWatcherForHosts();
    void report();

    QDBusConnection connection_;
    StatusHostEnvironment environment_;
    QDBusServiceWatcher nameWatcher_;
    /// Only the latest counts. Qt may hand answers over in another order than they came in.
    Lifetime hostQuestion_;
    /// Who owns the watcher's name and the names of hosts.
    QHash<QString, Program> owners_;
    QString watcherOwner_;
    bool watcherHasNoHost_ = false;
    Presentation presentation_;
};

} // namespace skylet
