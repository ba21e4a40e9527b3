#pragma once

#include "platform/linux/statusitem/host/DBusTypes.h"
#include "platform/linux/statusitem/host/ExportedObject.h"

#include <QDBusServiceWatcher>
#include <QHash>
#include <QSet>
#include <QTimer>
#include <QVariantMap>

#include <chrono>
#include <memory>
#include <optional>

class QAction;
class QMenu;

namespace skylet {

/// Shows a QMenu to hosts as com.canonical.dbusmenu (version 3): reads its actions, tells of their changes once per
/// turn of the event loop, and triggers them when a host's user clicks. One level deep, as the menu is. It changes
/// nothing in the menu itself.
class DBusMenuExporter final : public ExportedObject {
    Q_OBJECT

  public:
    /// How long a menu is taken for open in a host that tells when it opens but never when it closes, as
    /// xfce4-panel (libdbusmenu-gtk) does: as long as most people look at it.
    static constexpr std::chrono::milliseconds usualOpenTime{15000};

    /// `menu` outlives the exporter.
    DBusMenuExporter(const QString& path, QMenu& menu, std::chrono::milliseconds openTime = usualOpenTime);
    ~DBusMenuExporter() override;
    DBusMenuExporter(const DBusMenuExporter&) = delete;
    DBusMenuExporter& operator=(const DBusMenuExporter&) = delete;
    DBusMenuExporter(DBusMenuExporter&&) = delete;
    DBusMenuExporter& operator=(DBusMenuExporter&&) = delete;

    bool exportOn(const QDBusConnection& connection);
    /// Some host has the menu open, as far as hosts say. A host that disappears has closed it.
    bool isOpen() const { return !openIn_.isEmpty(); }

    bool eventFilter(QObject* watched, QEvent* event) override;

  Q_SIGNALS:
    void openChanged(bool open);
    /// A host reads what is in the menu, so the status item has arrived there.
    void layoutRequested();

  private:
    /// What a host sees of one action.
    struct Entry {
        QAction* action = nullptr;
        QVariantMap told;
        qint64 iconKey = 0;
        QByteArray iconData;
    };

    void addMenuMethods();
    void getLayout(const QDBusMessage& call);
    void getGroupProperties(const QDBusMessage& call);
    void getProperty(const QDBusMessage& call);
    void event(const QDBusMessage& call);
    void eventGroup(const QDBusMessage& call);
    void aboutToShow(const QDBusMessage& call);
    void aboutToShowGroup(const QDBusMessage& call);

    bool knows(int id) const { return id == rootId || entries_.contains(id); }
    /// Carries out what a user did; false when there is no such entry.
    bool handleEvent(int id, const QString& eventId, const QString& host);
    void setOpenIn(const QString& host, bool open);
    /// The host is about to show the menu; whether it says more of it is not known yet.
    void assumeOpenIn(const QString& host);
    void endAssumption();
    QVariantMap properties(int id);
    QVariantMap propertiesOf(Entry& entry);
    QByteArray iconData(Entry& entry);

    void scheduleUpdate();
    void update();
    /// Gives each action that has none yet a number of its own, never used before, and reads the order of all.
    void renumber();
    void tellPropertyChanges();

    static constexpr int rootId = 0;

    QMenu& menu_;
    QHash<int, Entry> entries_;
    /// The numbers of the entries from top to bottom, now and as hosts were last told.
    QList<int> order_;
    QList<int> toldOrder_;
    int lastId_ = rootId;
    uint revision_ = 1;
    bool updateScheduled_ = false;
    QSet<QString> openIn_;
    /// The one host in which the menu is open by assumption; empty: none.
    QString assumedIn_;
    QTimer assumptionTimer_;
    std::unique_ptr<QDBusServiceWatcher> hostWatcher_;
};

} // namespace skylet
