#pragma once

#include "platform/linux/statusitem/drawing/IconFiles.h"
#include "platform/linux/statusitem/drawing/ItemAppearance.h"
#include "platform/linux/statusitem/host/DBusTypes.h"

#include <QDBusConnection>
#include <QObject>
#include <QPoint>

#include <functional>
#include <memory>
#include <optional>
#include <utility>

class QDBusMessage;

namespace skylet {

class SniInterface;

/// The item as hosts see it on the bus. A host answers every signal by reading properties, pixmaps included; so signals
/// go out once per turn of the event loop, only for what differs from what was sent last, and none about the tooltip
/// while a host shows the menu, which would make some hosts close it.
class SniObject final : public QObject {
    Q_OBJECT

  public:
    enum class Status { passive, active, needsAttention };
    enum class OpenMenu {
        none,
        /// A host has made it from what it read on the bus.
        ofHost,
        /// The item has popped it up by itself.
        own,
    };
    /// Opens the menu at a place, in logical pixels; false when the calling host shall open it by itself.
    using MenuOpener = std::function<bool(const QString& host, QPoint place)>;

    SniObject(QString path, QString menuPath);

    bool exportOn(const QDBusConnection& connection);
    void setMenuOpener(MenuOpener opener) { menuOpener_ = std::move(opener); }
    /// Gets the token with which the host lets the program bring the next window to the front.
    void setActivationTokenTaker(std::function<void(const QString& token)> taker) { tokenTaker_ = std::move(taker); }
    /// Hosts read it once, so it has to be right before they come.
    void setId(const QString& id) { id_ = id; }
    void setAppearance(const ItemAppearance& appearance);
    /// Whether hosts are given the icon as a file, by its name, instead of its pixels.
    void setIconByName(bool byName);
    void setStatus(Status status);
    void setOpenMenu(OpenMenu menu);

    // What the interface tells and is asked for.
    const QString& id() const { return id_; }
    const QString& menuPath() const { return menuPath_; }
    const ItemAppearance& appearance() const { return appearance_; }
    QString statusName() const;
    /// Empty while hosts are given pixels.
    QString iconName();
    QList<DBusPixmap> iconPixmap();
    QList<DBusPixmap> attentionIconPixmap();
    /// As it was sent last: a host that reads a new icon may read the tooltip as well.
    DBusToolTip toolTip() const { return sent_ ? sent_->toolTip : wantedToolTip(); }
    void openMenu(QPoint place, const QDBusMessage& call);
    void takeActivationToken(const QString& token);

  private:
    struct Sent {
        StatusIcon icon;
        QString label;
        Status status = Status::active;
        DBusToolTip toolTip;
    };

    bool exportInterface();
    void scheduleSignals();
    void sendSignals();
    DBusToolTip wantedToolTip() const;
    const QList<DBusPixmap>& pixmaps();

    const QString path_;
    const QString menuPath_;
    QDBusConnection connection_{QString()};
    /// What is at the path. A property is there or not by the class of its object, and MATE 1.27 hides an item whose
    /// label is there but empty; so with the first label, or none any more, there is another object.
    std::unique_ptr<QObject> exported_;
    SniInterface* interface_ = nullptr;
    QString id_;
    ItemAppearance appearance_;
    Status status_ = Status::active;
    OpenMenu openMenu_ = OpenMenu::none;
    /// What hosts have read or were told of by the last signals; absent before the first turn of the event loop, in
    /// which nothing changes for anybody.
    std::optional<Sent> sent_;
    bool signalsScheduled_ = false;
    MenuOpener menuOpener_;
    std::function<void(const QString& token)> tokenTaker_;
    /// Absent while hosts are given pixels.
    std::unique_ptr<IconFiles> iconFiles_;
    std::optional<StatusIcon> paintedIcon_;
    QList<DBusPixmap> pixmaps_;
};

} // namespace skylet
