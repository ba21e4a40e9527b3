#pragma once

#include "platform/desktop/StatusDisplay.h"
#include "platform/linux/statusitem/host/DBusMenuExporter.h"
#include "platform/linux/statusitem/host/SniObject.h"
#include "platform/linux/statusitem/host/SniRegistration.h"
#include "platform/linux/statusitem/host/StatusHostMonitor.h"
#include "platform/linux/statusitem/hostless/QtMenu.h"

#include <QDBusConnection>
#include <QObject>
#include <QTimer>

#include <chrono>

namespace skylet {

/// What a status item is made of besides its connection.
struct SniOptions {
    StatusHostEnvironment environment = StatusHostEnvironment::system();
    SniRegistrationLimits registration;
    /// How long a call for attention lasts: time enough to look at the panel.
    std::chrono::milliseconds attention{8000};
};

/// The item on hosts of the StatusNotifierItem protocol: exports it and its menu, has them registered, and shows the
/// display as suits whoever is the host. Without a session bus it does nothing, harmlessly.
class SniStatusItem final : public QObject {
    Q_OBJECT

  public:
    /// `connection`: for this item alone, since its object paths are fixed. `display` outlives the item,
    /// and so does `popup`, the menu where the host leaves it to the item to open it.
    SniStatusItem(const QDBusConnection& connection, const StatusDisplay& display, QtMenu& popup,
                  SniOptions options = {});

    /// As in StatusItem.
    QString buttonDescription() const;
    QString windowDescription() const;
    /// Becomes the item's `Id`, in small letters. To be set in the turn of the event loop in which the item is made.
    void setAutosaveName(const QString& name) { item_.setId(name.toLower()); }
    /// To be called once, in that same turn.
    void setMenu(const Menu& menu) { menuExporter_.setMenu(menu); }
    void setVisible(bool visible);
    bool isVisible() const { return visible_; }
    /// To be called after the display has changed.
    void update();

    /// Somebody shows status items in this session.
    bool hasHost() const { return monitor_.hasHost(); }
    /// Asks the user to look here: a host that keeps idle items out of sight shows this one for some seconds. Does
    /// nothing while the item is hidden.
    void requestAttention();

  Q_SIGNALS:
    /// The host, or whether there is one.
    void hostChanged();

  private:
    void followHost();
    void updateStatus();
    void updateMenuOpen();
    bool openMenu(const QString& host, QPoint place);

    QDBusConnection connection_;
    const StatusDisplay& display_;
    QtMenu& popup_;
    DBusMenuExporter menuExporter_;
    SniObject item_;
    SniRegistration registration_;
    StatusHostMonitor monitor_;
    bool visible_ = true;
    QTimer attentionTimer_;
};

} // namespace skylet
