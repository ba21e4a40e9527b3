#pragma once

#include "platform/desktop/Menu.h"
#include "platform/linux/statusitem/host/DBusTypes.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <chrono>

namespace skylet {

/// Shows the menu to hosts as com.canonical.dbusmenu (version 3): sends its changes once per turn of the event loop,
/// and triggers its items when a host's user clicks. The root has the id 0, the items the ids from 1 on.
class DBusMenuExporter final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.canonical.dbusmenu")
    Q_PROPERTY(uint Version MEMBER version_ CONSTANT)
    Q_PROPERTY(QString TextDirection READ textDirection)
    Q_PROPERTY(QString Status MEMBER status_ CONSTANT)
    Q_PROPERTY(QStringList IconThemePath MEMBER iconThemePath_ CONSTANT)

  public:
    /// How long a menu is taken for open in a host that tells when it opens but never when it closes, as
    /// xfce4-panel (libdbusmenu-gtk) does: as long as most people look at it.
    static constexpr std::chrono::milliseconds usualOpenTime{15000};

    explicit DBusMenuExporter(std::chrono::milliseconds openTime = usualOpenTime);

    bool exportOn(QDBusConnection connection, const QString& path);
    /// To be called once, in the turn of the event loop in which the exporter is made.
    void setMenu(const Menu& menu);
    /// Changes are told only between a host's "opened" and its "closed" or a choice, and the whole menu is told when it
    /// opens.
    void setToldOnlyWhileOpen(bool onlyWhileOpen);
    /// Some host has the menu open, as far as hosts say. A host that disappears has closed it.
    bool isOpen() const { return !openIn_.isEmpty(); }

  Q_SIGNALS:
    /// Another host has it open, or one less.
    void openChanged();
    /// A host reads what is in the menu, so the status item has arrived there.
    void layoutRequested();

    // The protocol.
    Q_SCRIPTABLE void ItemsPropertiesUpdated(const QList<skylet::DBusMenuProperties>& updated,
                                             const QList<skylet::DBusMenuPropertyNames>& removed);
    Q_SCRIPTABLE void LayoutUpdated(uint revision, int parent);
    Q_SCRIPTABLE void ItemActivationRequested(int id, uint timestamp);

  public Q_SLOTS: // NOLINT(readability-redundant-access-specifiers): the protocol's
    uint GetLayout(int parent, int depth, const QStringList& names, skylet::DBusMenuLayout& layout);
    QList<skylet::DBusMenuProperties> GetGroupProperties(const QList<int>& ids, const QStringList& names);
    QDBusVariant GetProperty(int id, const QString& name);
    void Event(int id, const QString& eventId, const QDBusVariant& data, uint timestamp);
    QList<int> EventGroup(const QList<skylet::DBusMenuEvent>& events);
    bool AboutToShow(int id);
    QList<int> AboutToShowGroup(const QList<int>& ids, QList<int>& unknown);

  private:
    bool knows(int id) const { return id >= rootId && id <= sent_.size(); }
    void refuse();
    void handleEvent(const DBusMenuEvent& event);
    void setOpenIn(const QString& host, bool open);
    void setAboutToShowIn(const QString& host);
    QVariantMap properties(int id) const;
    void scheduleUpdate();
    void sendChanges();
    QString textDirection() const;

    static constexpr int rootId = 0;

    const uint version_ = 3;
    const QString status_ = QStringLiteral("normal");
    const QStringList iconThemePath_;
    Menu menu_;
    /// Each item's properties as hosts have them, without the root's.
    QList<QVariantMap> sent_;
    bool updateScheduled_ = false;
    /// Ids of entries whose actions are about to run.
    QSet<int> chosen_;
    bool toldOnlyWhileOpen_ = false;
    QSet<QString> openIn_;
    /// The one of them that has only called AboutToShow and may say no more; the menu counts as open there for a while.
    QString aboutToShowIn_;
    QTimer aboutToShowTimer_;
    QDBusServiceWatcher hostWatcher_;
};

} // namespace skylet
