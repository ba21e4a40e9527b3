#include "platform/linux/statusitem/DesktopStatusItem.h"

#include <utility>

namespace skylet {

DesktopStatusItem::DesktopStatusItem(const QDBusConnection& connection, SniOptions options,
                                     HostlessOptions hostlessOptions)
    : onHost_(connection, std::move(options)), hostlessOptions_(std::move(hostlessOptions)) {
    patienceTimer_.setSingleShot(true);
    patienceTimer_.setInterval(hostlessOptions_.patience);
    connect(&patienceTimer_, &QTimer::timeout, this, &DesktopStatusItem::showWithoutHost);
    connect(&onHost_, &SniStatusItem::hasHostChanged, this, &DesktopStatusItem::followHost);
    followHost();
}

QString DesktopStatusItem::buttonDescription() const {
    return onHost_.buttonDescription();
}

QString DesktopStatusItem::windowDescription() const {
    return onHost_.windowDescription();
}

void DesktopStatusItem::setAutosaveName(const QString& name) {
    onHost_.setAutosaveName(name);
}

void DesktopStatusItem::setVisible(bool visible) {
    visible_ = visible;
    onHost_.setVisible(visible);
    followHost();
}

void DesktopStatusItem::setMenu(const Menu& menu) {
    onHost_.setMenu(menu);
}

void DesktopStatusItem::setTitle(const StatusTitle& title) {
    title_ = title;
    onHost_.setTitle(title);
    present();
}

void DesktopStatusItem::setToolTip(const QString& toolTip) {
    toolTip_ = toolTip;
    onHost_.setToolTip(toolTip);
    present();
}

void DesktopStatusItem::requestAttention() {
    onHost_.requestAttention();
    if (hostless_) {
        hostless_->openMenu();
    }
}

void DesktopStatusItem::followHost() {
    if (onHost_.hasHost() || !visible_) {
        patienceTimer_.stop();
        if (hostless_) {
            // On Wayland the menu goes with the strip that it belongs to, and would count as open for ever.
            onHost_.closeMenu();
            hostless_.reset();
        }
    } else if (!hostless_ && !patienceTimer_.isActive()) {
        patienceTimer_.start();
    }
}

void DesktopStatusItem::showWithoutHost() {
    hostless_ =
        std::make_unique<HostlessItem>(hostlessOptions_.item, [this](QRect anchor) { onHost_.popUpMenu(anchor); });
    present();
}

void DesktopStatusItem::present() {
    if (hostless_) {
        hostless_->present(title_, toolTip_);
    }
}

} // namespace skylet
