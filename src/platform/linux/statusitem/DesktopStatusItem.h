#pragma once

#include "platform/desktop/StatusItem.h"
#include "platform/linux/statusitem/drawing/TitleWidth.h"
#include "platform/linux/statusitem/host/DBusMenuExporter.h"
#include "platform/linux/statusitem/host/SniObject.h"
#include "platform/linux/statusitem/host/SniRegistration.h"
#include "platform/linux/statusitem/host/StatusHostMonitor.h"
#include "platform/linux/statusitem/hostless/HostlessItem.h"
#include "platform/linux/statusitem/hostless/QtMenu.h"

#include <QDBusConnection>
#include <QDeadlineTimer>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <memory>

namespace skylet {

struct StatusItemOptions {
    StatusHostEnvironment environment = StatusHostEnvironment::system();
    SniRegistrationLimits registration;
    /// How long a call for attention lasts on a host: time enough to look at the panel.
    std::chrono::milliseconds attention{8000};
    /// How long to wait for a host before showing the item without one: a panel that starts or restarts needs a moment,
    /// and an item that jumps into it from elsewhere would be a nuisance.
    std::chrono::milliseconds hostlessDelay{3000};
    /// How long after its start the item shows no strip: a desktop that is starting has its panel last.
    std::chrono::milliseconds stripDelay{10000};
    /// How long the first label waits for a host to read the menu: one that reads it on a click has its label too.
    std::chrono::milliseconds labelDelay{10000};
    HostlessItem::Options hostless;
    Schedule schedule = commonTimer;
};

/// The status item wherever this desktop can show it: on a host of the StatusNotifierItem protocol, with the display as
/// it suits that host, or else without one. Moves as hosts come and go, so that there is one item to be seen at any
/// time. Without a session bus there are no hosts, harmlessly.
class DesktopStatusItem final : public QObject, public StatusItem {
    Q_OBJECT

  public:
    /// `connection`: for this item alone, since its object paths are fixed.
    explicit DesktopStatusItem(const QDBusConnection& connection, StatusItemOptions options = {});

    QString buttonDescription() const override;
    QString windowDescription() const override;
    /// Becomes the item's `Id`, in small letters. To be set in the turn of the event loop in which the item is made.
    void setAutosaveName(const QString& name) override { object_.setId(name.toLower()); }
    void setVisible(bool visible) override;
    void setMenu(const Menu& menu) override;
    void setDisplay(const StatusDisplay& display) override;

    /// Asks the user to look here: a host shows the item with a frame for some seconds, also where it keeps idle items
    /// out of sight; without a host the menu opens, which is the way to it for those who do not use a mouse. False: the
    /// menu is not open.
    bool requestAttention();
    /// Null while the item is on a host, or neither there nor elsewhere yet.
    const HostlessItem* hostless() const { return hostless_.get(); }

  private:
    void show();
    void followHost();
    void updateHostless();
    void showWithoutHost();
    Q_SLOT void screenLockChanged();
    void updateStatus();
    void updateMenuOpen();
    bool openMenu(const QString& host, QPoint place);

    QDBusConnection connection_;
    StatusDisplay display_;
    bool isAnnounced_ = false;
    bool visible_ = true;
    QtMenu menu_;
    DBusMenuExporter menuExporter_;
    SniObject object_;
    SniRegistration registration_;
    StatusHostMonitor monitor_;
    StatusHostTraits watcherTraits_;
    QTimer attentionTimer_;
    QTimer labelTimer_;
    /// Of the title that is drawn into a wide icon.
    TitleWidth titleWidth_;
    std::unique_ptr<HostlessItem> hostless_;
    bool isHostless_ = false;
    const std::chrono::milliseconds hostlessDelay_;
    /// When the wait for a host ends. It goes on while a host comes and goes again, and begins anew once one has
    /// stayed.
    QDeadlineTimer hostlessFrom_{QDeadlineTimer::Forever};
    QTimer hostlessTimer_;
    HostlessItem::Options hostlessOptions_;
};

} // namespace skylet
