#include "platform/linux/statusitem/DesktopStatusItem.h"

#include "platform/linux/desktop/Wayland.h"
#include "platform/linux/statusitem/drawing/ItemAppearance.h"
#include "platform/linux/statusitem/drawing/TitleLine.h"
#include "platform/linux/system/BusCall.h"

#include <QFontDatabase>

#include <utility>

namespace skylet {

namespace {

// Where the StatusNotifierItem protocol wants the item, and where menus usually are.
const auto itemPath = [] { return QStringLiteral("/StatusNotifierItem"); };
const auto menuPath = [] { return QStringLiteral("/MenuBar"); };
// GNOME's.
const auto screenLockPath = [] { return QStringLiteral("/org/gnome/ScreenSaver"); };
const auto screenLockInterface = [] { return QStringLiteral("org.gnome.ScreenSaver"); };

} // namespace

DesktopStatusItem::DesktopStatusItem(const QDBusConnection& connection, StatusItemOptions options)
    : connection_(connection),
      object_(itemPath(), menuPath(), [this](const QString& host, QPoint place) { return openMenu(host, place); }),
      registration_(connection, options.registration), monitor_(connection, std::move(options.environment)),
      titleWidth_(std::move(options.schedule), [this] { show(); }), hostlessDelay_(options.hostlessDelay),
      hostlessOptions_(std::move(options.hostless)) {
    hostlessOptions_.noStripBefore.setRemainingTime(options.stripDelay);
    attentionTimer_.setSingleShot(true);
    attentionTimer_.setInterval(options.attention);
    connect(&attentionTimer_, &QTimer::timeout, this, &DesktopStatusItem::updateStatus);
    labelTimer_.setSingleShot(true);
    connect(&labelTimer_, &QTimer::timeout, this, [this] { object_.setLabelHeldBack(false); });
    hostlessTimer_.setSingleShot(true);
    connect(&hostlessTimer_, &QTimer::timeout, this, &DesktopStatusItem::showWithoutHost);
    connect(&menu_.widget(), &QMenu::aboutToShow, this, &DesktopStatusItem::updateMenuOpen, Qt::QueuedConnection);
    connect(&menu_.widget(), &QMenu::aboutToHide, this, &DesktopStatusItem::updateMenuOpen, Qt::QueuedConnection);
    connect(&menuExporter_, &DBusMenuExporter::openChanged, this, &DesktopStatusItem::updateMenuOpen);
    connect(&registration_, &SniRegistration::registering, this, [this, delay = options.labelDelay] {
        object_.setLabelHeldBack(true);
        labelTimer_.start(delay);
    });
    connect(&menuExporter_, &DBusMenuExporter::layoutRequested, this, [this] {
        registration_.layoutRead();
        // Not before the answer is on its way: a host is ready for the label when it has the menu.
        if (labelTimer_.isActive()) {
            labelTimer_.start(0);
        }
    });
    connect(&monitor_, &StatusHostMonitor::changed, this, &DesktopStatusItem::followHost);
    connect(&object_, &SniObject::activationTokenProvided, this, keepActivationToken);
    updateHostless();
    if (!connection_.isConnected()) {
        return;
    }
    menuExporter_.exportOn(connection_, menuPath());
    object_.exportOn(connection_);
    connection_.connect(QString(), screenLockPath(), screenLockInterface(), QStringLiteral("ActiveChanged"), this,
                        SLOT(screenLockChanged()));
}

QString DesktopStatusItem::buttonDescription() const {
    if (!connection_.isConnected()) {
        return QStringLiteral("none (no session bus)");
    }
    return QStringLiteral("StatusNotifierItem of %1 at %2").arg(connection_.baseService(), itemPath());
}

QString DesktopStatusItem::windowDescription() const {
    return monitor_.watcherOwner().isEmpty() ? QStringLiteral("none (no status host yet)")
                                             : QStringLiteral("status host ") + monitor_.watcherOwner();
}

void DesktopStatusItem::setVisible(bool visible) {
    visible_ = visible;
    updateStatus();
    updateHostless();
}

void DesktopStatusItem::setMenu(const Menu& menu) {
    menu_.setMenu(menu);
    menuExporter_.setMenu(menu);
}

void DesktopStatusItem::setDisplay(const StatusDisplay& display) {
    if (display != display_) {
        display_ = display;
        show();
    }
    // Hosts look at the item as soon as they hear of it, so everything is in place before its name is.
    if (!std::exchange(isAnnounced_, true) && connection_.isConnected()) {
        monitor_.start();
    }
}

bool DesktopStatusItem::requestAttention() {
    if (visible_) {
        attentionTimer_.start();
        updateStatus();
    }
    if (hostless_) {
        hostless_->openMenu();
    }
    return menu_.widget().isVisible();
}

void DesktopStatusItem::show() {
    ItemAppearance shown = appearance(monitor_.presentation(), display_);
    if (watcherTraits_.showsToolTipTextAlone) {
        shown.toolTipText = shown.toolTipTitle + u'\n' + shown.toolTipText;
    }
    if (shown.icon.presentation == Presentation::wide) {
        titleWidth_.setNeeded(plateTitleWidth(display_.title, QFontDatabase::systemFont(QFontDatabase::GeneralFont)));
        shown.icon.titleWidth = titleWidth_.width();
    }
    object_.setAppearance(shown);
    if (hostless_) {
        hostless_->update();
    }
}

void DesktopStatusItem::followHost() {
    const QString owner = monitor_.watcherOwner();
    watcherTraits_ = monitor_.traitsOfConnection(owner);
    show();
    object_.setIconByName(watcherTraits_.prefersIconName);
    menuExporter_.setToldOnlyWhileOpen(watcherTraits_.losesKeysByMenuChanges);
    // The hosts that set a label are those that are known to read the menu at once.
    registration_.setWatcher(owner, monitor_.presentation() == Presentation::label);
    updateHostless();
}

void DesktopStatusItem::updateHostless() {
    const bool isHostless = !monitor_.hasHost() && visible_;
    if (isHostless == isHostless_) {
        return;
    }
    isHostless_ = isHostless;
    if (isHostless) {
        if (hostlessFrom_.isForever()) {
            hostlessFrom_.setRemainingTime(hostlessDelay_);
        }
        hostlessTimer_.start(std::chrono::ceil<std::chrono::milliseconds>(hostlessFrom_.remainingTimeAsDuration()));
        return;
    }
    hostlessTimer_.start(hostlessDelay_);
    if (hostless_) {
        // On Wayland the menu goes with the strip that it belongs to, and would count as open for ever.
        menu_.close();
        hostless_.reset();
    }
}

void DesktopStatusItem::showWithoutHost() {
    if (!isHostless_) {
        hostlessFrom_ = QDeadlineTimer(QDeadlineTimer::Forever);
        return;
    }
    // GNOME takes its host away while the screen is locked. The shell itself is asked, not the service that passes the
    // question on and may have to be started for it.
    auto question = QDBusMessage::createMethodCall(QStringLiteral("org.gnome.Shell.ScreenShield"), screenLockPath(),
                                                   screenLockInterface(), QStringLiteral("GetActive"));
    question.setAutoStartService(false);
    callAsync(connection_, question, this, [this](const QDBusMessage& reply) {
        const bool screenIsLocked = QDBusReply<bool>(reply).value();
        if (isHostless_ && !hostless_ && !screenIsLocked) {
            hostless_ = std::make_unique<HostlessItem>(hostlessOptions_, display_,
                                                       [this](QRect anchor) { menu_.popUp(anchor); });
        }
    });
}

void DesktopStatusItem::screenLockChanged() {
    // The host needs a moment to come back to the unlocked screen.
    if (isHostless_) {
        hostlessTimer_.start(hostlessDelay_);
    }
}

void DesktopStatusItem::updateStatus() {
    using enum SniObject::Status;
    object_.setStatus(!visible_ ? passive : attentionTimer_.isActive() ? needsAttention : active);
}

void DesktopStatusItem::updateMenuOpen() {
    using OpenMenu = SniObject::OpenMenu;
    object_.setOpenMenu(menu_.widget().isVisible() ? OpenMenu::own
                        : menuExporter_.isOpen()   ? OpenMenu::ofHost
                                                   : OpenMenu::none);
}

bool DesktopStatusItem::openMenu(const QString& host, QPoint place) {
    if (monitor_.traitsOfConnection(host).opensMenu) {
        return false;
    }
    menu_.popUp(QRect(place, place));
    return true;
}

} // namespace skylet
