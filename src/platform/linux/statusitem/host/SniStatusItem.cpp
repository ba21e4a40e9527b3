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

SniStatusItem::SniStatusItem(const QDBusConnection& connection, const StatusDisplay& display, QtMenu& popup,
                             SniOptions options)
    : connection_(connection), display_(display), popup_(popup), item_(itemPath(), menuPath()),
      registration_(connection, options.registration), monitor_(connection, std::move(options.environment)) {
    attentionTimer_.setSingleShot(true);
    attentionTimer_.setInterval(options.attention);
    connect(&attentionTimer_, &QTimer::timeout, this, &SniStatusItem::updateStatus);
    connect(&popup_.widget(), &QMenu::aboutToShow, this, &SniStatusItem::updateMenuOpen, Qt::QueuedConnection);
    connect(&popup_.widget(), &QMenu::aboutToHide, this, &SniStatusItem::updateMenuOpen, Qt::QueuedConnection);
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

void SniStatusItem::setVisible(bool visible) {
    visible_ = visible;
    updateStatus();
}

void SniStatusItem::update() {
    item_.setAppearance(appearance(monitor_.presentation(), display_));
}

void SniStatusItem::requestAttention() {
    if (visible_) {
        attentionTimer_.start();
        updateStatus();
    }
}

void SniStatusItem::followHost() {
    update();
    const QString owner = monitor_.watcherOwner();
    const StatusHostTraits traits = monitor_.traitsOfConnection(owner);
    item_.setIconByName(traits.prefersIconName);
    // The hosts that set a label are those that are known to read the menu at once.
    registration_.setWatcher({owner, monitor_.presentation() == Presentation::label, traits.prefersConnectionName});
    Q_EMIT hostChanged();
}

void SniStatusItem::updateStatus() {
    using enum SniObject::Status;
    item_.setStatus(!visible_ ? passive : attentionTimer_.isActive() ? needsAttention : active);
}

void SniStatusItem::updateMenuOpen() {
    using OpenMenu = SniObject::OpenMenu;
    item_.setOpenMenu(popup_.widget().isVisible() ? OpenMenu::own
                      : menuExporter_.isOpen()    ? OpenMenu::ofHost
                                                  : OpenMenu::none);
}

bool SniStatusItem::openMenu(const QString& host, QPoint place) {
    if (monitor_.traitsOfConnection(host).opensMenu) {
        return false;
    }
    popup_.popUp(QRect(place, place));
    return true;
}

} // namespace skylet
