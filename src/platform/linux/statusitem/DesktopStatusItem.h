#pragma once

#include "platform/desktop/StatusItem.h"
#include "platform/linux/statusitem/host/SniStatusItem.h"
#include "platform/linux/statusitem/hostless/HostlessItem.h"
#include "platform/linux/statusitem/hostless/QtMenu.h"

#include <QDBusConnection>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <memory>

namespace skylet {

/// What the item does where there is no status host.
struct HostlessOptions {
    /// How long to wait for a host before showing the item without one: a panel that starts or restarts needs a moment,
    /// and an item that jumps into it from elsewhere would be a nuisance.
    std::chrono::milliseconds delay{3000};
    HostlessItem::Options item;
};

/// The status item wherever this desktop can show it: on a status host when there is one, else without. Moves as hosts
/// come and go, so that there is one item to be seen at any time.
class DesktopStatusItem final : public QObject, public StatusItem {
    Q_OBJECT

  public:
    explicit DesktopStatusItem(const QDBusConnection& connection, SniOptions options = {},
                               HostlessOptions hostlessOptions = {});

    QString buttonDescription() const override { return onHost_.buttonDescription(); }
    QString windowDescription() const override { return onHost_.windowDescription(); }
    void setAutosaveName(const QString& name) override { onHost_.setAutosaveName(name); }
    void setVisible(bool visible) override;
    void setMenu(const Menu& menu) override;
    void setDisplay(const StatusDisplay& display) override;

    /// Asks the user to look here: as far as the host has a way to, and without one by opening the menu. That is the
    /// way to the menu for those who do not use a mouse.
    void requestAttention();
    /// Null while the item is on a host, or neither there nor elsewhere yet.
    const HostlessItem* hostless() const { return hostless_.get(); }

  private:
    void followHost();

    StatusDisplay display_;
    QtMenu menu_;
    SniStatusItem onHost_;
    std::unique_ptr<HostlessItem> hostless_;
    QTimer hostlessTimer_;
};

} // namespace skylet
