#pragma once

#include "platform/desktop/StatusItem.h"
#include "platform/linux/statusitem/drawing/ItemAppearance.h"
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

/// The status item on hosts of the StatusNotifierItem protocol: exports the item and its menu, has them registered, and
/// shows the title in the way that suits whoever is the host. Without a session bus it does nothing, harmlessly.
class SniStatusItem final : public QObject, public StatusItem {
    Q_OBJECT

  public:
    /// `connection`: for this item alone, since its object paths are fixed.
    explicit SniStatusItem(const QDBusConnection& connection, SniOptions options = {});
    ~SniStatusItem() override;
    SniStatusItem(const SniStatusItem&) = delete;
    SniStatusItem& operator=(const SniStatusItem&) = delete;
    SniStatusItem(SniStatusItem&&) = delete;
    SniStatusItem& operator=(SniStatusItem&&) = delete;

    QString buttonDescription() const override;
    QString windowDescription() const override;
    /// Becomes the item's `Id`, in small letters. To be set in the turn of the event loop in which the item is made.
    void setAutosaveName(const QString& name) override;
    void setVisible(bool visible) override;
    void setMenu(const Menu& menu) override;
    void setTitle(const StatusTitle& title) override;
    void setToolTip(const QString& toolTip) override;

    /// Somebody shows status items in this session.
    bool hasHost() const { return monitor_.hasHost(); }
    /// Opens the menu beside a place, in logical pixels of the whole desktop.
    void popUpMenu(QRect anchor) { menu_.popUp(anchor); }
    /// Closes what `popUpMenu` has opened.
    void closeMenu() { menu_.close(); }
    /// Asks the user to look here: a host that keeps idle items out of sight shows this one for some seconds. Does
    /// nothing while the item is hidden.
    void requestAttention();

  Q_SIGNALS:
    void hasHostChanged();

  private:
    void present();
    void followHost();
    void updateStatus();
    void updateMenuOpen();
    bool openMenu(const QString& host, QPoint place);

    QDBusConnection connection_;
    QtMenu menu_;
    DBusMenuExporter menuExporter_;
    SniObject item_;
    SniRegistration registration_;
    StatusHostMonitor monitor_;
    Presentation presentation_;
    StatusTitle title_;
    QString toolTip_;
    bool visible_ = true;
    bool hadHost_ = false;
    QTimer attentionTimer_;
};

} // namespace skylet
