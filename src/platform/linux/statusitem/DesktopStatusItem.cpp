#include "platform/linux/statusitem/DesktopStatusItem.h"

#include <utility>

namespace skylet {

DesktopStatusItem::DesktopStatusItem(const QDBusConnection& connection, SniOptions options,
                                     HostlessOptions hostlessOptions)
    : onHost_(connection, display_, menu_, std::move(options)) {
    hostlessTimer_.setSingleShot(true);
    hostlessTimer_.setInterval(hostlessOptions.delay);
    connect(&hostlessTimer_, &QTimer::timeout, this, [this, itemOptions = hostlessOptions.item] {
        hostless_ =
            std::make_unique<HostlessItem>(itemOptions, display_, [this](QRect anchor) { menu_.popUp(anchor); });
    });
    connect(&onHost_, &SniStatusItem::hostChanged, this, &DesktopStatusItem::followHost);
    followHost();
}

void DesktopStatusItem::setVisible(bool visible) {
    onHost_.setVisible(visible);
    followHost();
}

void DesktopStatusItem::setMenu(const Menu& menu) {
    menu_.setMenu(menu);
    onHost_.setMenu(menu);
}

void DesktopStatusItem::setDisplay(const StatusDisplay& display) {
    if (display == display_) {
        return;
    }
    display_ = display;
    onHost_.update();
    if (hostless_) {
        hostless_->update();
    }
}

void DesktopStatusItem::requestAttention() {
    onHost_.requestAttention();
    if (hostless_) {
        hostless_->openMenu();
    }
}

void DesktopStatusItem::followHost() {
    if (onHost_.hasHost() || !onHost_.isVisible()) {
        hostlessTimer_.stop();
        if (hostless_) {
            // On Wayland the menu goes with the strip that it belongs to, and would count as open for ever.
            menu_.close();
            hostless_.reset();
        }
    } else if (!hostless_ && !hostlessTimer_.isActive()) {
        hostlessTimer_.start();
    }
}

} // namespace skylet
