#include "platform/linux/statusitem/host/SniStatusItem.h"

#include "platform/linux/desktop/Wayland.h"

#include <utility>

namespace skylet {

namespace {

// Where the StatusNotifierItem protocol wants the item, and where menus usually are.
const auto itemPath = [] { return QStringLiteral("/StatusNotifierItem"); };
const auto menuPath = [] { return QStringLiteral("/MenuBar"); };

/// Puts the token where Qt's Wayland client looks for it when a window is to come to the front. Done there alone:
/// nothing else reads it, and changing the environment of a running program is best avoided.
void keepActivationToken(const QString& token) {
    if (isOnWayland()) {
        qputenv("XDG_ACTIVATION_TOKEN", token.toUtf8());
    }
}

} // namespace

SniStatusItem::SniStatusItem(const QDBusConnection& connection, SniOptions options)
    : connection_(connection), item_(itemPath(), menuPath()), registration_(connection, options.registration),
      monitor_(connection, std::move(options.environment)), presentation_(monitor_.presentation()) {
    attentionTimer_.setSingleShot(true);
    attentionTimer_.setInterval(options.attention);
    connect(&attentionTimer_, &QTimer::timeout, this, &SniStatusItem::updateStatus);
    connect(&menu_.widget(), &QMenu::aboutToShow, this, &SniStatusItem::updateMenuOpen, Qt::QueuedConnection);
    connect(&menu_.widget(), &QMenu::aboutToHide, this, &SniStatusItem::updateMenuOpen, Qt::QueuedConnection);
    connect(&menuExporter_, &DBusMenuExporter::openChanged, this, &SniStatusItem::updateMenuOpen);
    connect(&menuExporter_, &DBusMenuExporter::layoutRequested, &registration_, &SniRegistration::layoutRead);
    connect(&monitor_, &StatusHostMonitor::changed, this, &SniStatusItem::followHost);
    item_.setActivationTokenTaker(keepActivationToken);
    item_.setMenuOpener([this](const QString& host, QPoint place) { return openMenu(host, place); });
    if (!connection_.isConnected()) {
        return;
    }
    // Hosts look at the item as soon as they hear of it, so everything is in place before its name is.
    menuExporter_.exportOn(connection_, menuPath());
    item_.exportOn(connection_);
    monitor_.start();
}

SniStatusItem::~SniStatusItem() = default;

QString SniStatusItem::buttonDescription() const {
    if (!connection_.isConnected()) {
        return QStringLiteral("none (no session bus)");
    }
    return QStringLiteral("StatusNotifierItem of %1 at %2").arg(registration_.serviceName(), itemPath());
}

QString SniStatusItem::windowDescription() const {
    return registration_.watcherOwner().isEmpty() ? QStringLiteral("none (no status host yet)")
                                                  : QStringLiteral("status host ") + registration_.watcherOwner();
}

void SniStatusItem::setAutosaveName(const QString& name) {
    item_.setId(name.toLower());
}

void SniStatusItem::setVisible(bool visible) {
    visible_ = visible;
    updateStatus();
}

void SniStatusItem::setMenu(const Menu& menu) {
    menu_.setMenu(menu);
    menuExporter_.setMenu(menu);
}

void SniStatusItem::setTitle(const StatusTitle& title) {
    title_ = title;
    present();
}

void SniStatusItem::setToolTip(const QString& toolTip) {
    toolTip_ = toolTip;
    present();
}

void SniStatusItem::requestAttention() {
    if (visible_) {
        attentionTimer_.start();
        updateStatus();
    }
}

void SniStatusItem::present() {
    item_.setAppearance(appearance(presentation_, title_, toolTip_));
}

void SniStatusItem::followHost() {
    if (presentation_ != monitor_.presentation()) {
        presentation_ = monitor_.presentation();
        present();
    }
    const QString owner = monitor_.watcherOwner();
    item_.setIconByName(monitor_.traitsOfConnection(owner).prefersIconName);
    // The hosts that set a label are those that are known to read the menu at once.
    registration_.setWatcher(
        {owner, presentation_ == Presentation::label, monitor_.traitsOfConnection(owner).prefersConnectionName});
    if (hadHost_ != hasHost()) {
        hadHost_ = hasHost();
        Q_EMIT hasHostChanged();
    }
}

void SniStatusItem::updateStatus() {
    using Status = SniObject::Status;
    item_.setStatus(!visible_ ? Status::passive : attentionTimer_.isActive() ? Status::needsAttention : Status::active);
}

void SniStatusItem::updateMenuOpen() {
    using OpenMenu = SniObject::OpenMenu;
    item_.setOpenMenu(menu_.widget().isVisible() ? OpenMenu::own
                      : menuExporter_.isOpen()   ? OpenMenu::ofHost
                                                 : OpenMenu::none);
}

bool SniStatusItem::openMenu(const QString& host, QPoint place) {
    if (monitor_.traitsOfConnection(host).opensMenu) {
        return false;
    }
    menu_.popUp(QRect(place, place));
    return true;
}

} // namespace skylet
