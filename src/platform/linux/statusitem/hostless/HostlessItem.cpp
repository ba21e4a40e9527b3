#include "platform/linux/statusitem/hostless/HostlessItem.h"

#include "platform/linux/statusitem/StatusItemLog.h"
#include "platform/linux/statusitem/drawing/ItemAppearance.h"

#include <QApplication>
#include <QScreen>
#include <QStyle>
#include <QToolTip>

#include <utility>

namespace skylet {

QByteArray HostlessItem::Options::usualDisplay() {
    return QGuiApplication::platformName() == QLatin1String("xcb") ? qgetenv("DISPLAY") : QByteArray();
}

HostlessItem::HostlessItem(const Options& options, const StatusDisplay& display,
                           std::function<void(QRect item)> openMenu)
    : display_(display), openMenu_(std::move(openMenu)), server_(X11Connection::open(options.x11Display)),
      noStripBefore_(options.noStripBefore) {
    embeddingTimer_.setSingleShot(true);
    embeddingTimer_.setInterval(options.embedding);
    connect(&embeddingTimer_, &QTimer::timeout, this, &HostlessItem::leaveTray);
    stripTimer_.setSingleShot(true);
    connect(&stripTimer_, &QTimer::timeout, this, &HostlessItem::showStrip);
    toolTipTimer_.setSingleShot(true);
    toolTipTimer_.setInterval(QApplication::style()->styleHint(QStyle::SH_ToolTip_WakeUpDelay));
    connect(&toolTipTimer_, &QTimer::timeout, this, &HostlessItem::showToolTip);
    if (server_) {
        tray_ = std::make_unique<X11Tray>(*server_);
        // Queued, since what follows destroys icons and connections in the middle of their own signals otherwise.
        connect(tray_.get(), &X11Tray::changed, this, &HostlessItem::updatePlace, Qt::QueuedConnection);
        connect(
            server_.get(), &X11Connection::lost, this,
            [this] {
                leaveTray();
                tray_.reset();
                server_.reset();
            },
            Qt::QueuedConnection);
    }
    updatePlace();
}

void HostlessItem::update() {
    if (icon_) {
        icon_->setIcon(appearance(Presentation::badge, display_).icon);
    }
    if (strip_) {
        strip_->setDisplay(display_);
    }
}

void HostlessItem::updatePlace() {
    if (tray_ && tray_->window() != XCB_WINDOW_NONE) {
        showIcon();
    } else {
        leaveTray();
    }
}

void HostlessItem::showIcon() {
    toolTipTimer_.stop();
    stripTimer_.stop();
    const QScreen* screen = QGuiApplication::primaryScreen();
    icon_ = std::make_unique<XembedIcon>(*server_, tray_->window(), appearance(Presentation::badge, display_).icon,
                                         screen != nullptr ? screen->devicePixelRatio() : 1);
    connect(icon_.get(), &XembedIcon::embedded, this, [this] {
        qCInfo(statusItemLog) << "without a host: in the X11 tray";
        embeddingTimer_.stop();
        strip_.reset();
    });
    // The icon is the receiver, so that a farewell on its way ends with it and never concerns the next icon.
    connect(
        icon_.get(), &XembedIcon::expelled, icon_.get(), [this] { leaveTray(); }, Qt::QueuedConnection);
    connect(icon_.get(), &XembedIcon::pressed, this, &HostlessItem::openMenuAtIcon);
    connect(icon_.get(), &XembedIcon::entered, this, [this] { toolTipTimer_.start(); });
    connect(icon_.get(), &XembedIcon::left, this, [this] {
        toolTipTimer_.stop();
        QToolTip::hideText();
    });
    // Not begun anew for each of many trays in short order, of which none takes the icon.
    if (!embeddingTimer_.isActive()) {
        embeddingTimer_.start();
    }
}

void HostlessItem::leaveTray() {
    // The next tray that comes is tried again.
    icon_.reset();
    embeddingTimer_.stop();
    toolTipTimer_.stop();
    if (noStripBefore_.hasExpired()) {
        showStrip();
    } else {
        stripTimer_.start(std::chrono::ceil<std::chrono::milliseconds>(noStripBefore_.remainingTimeAsDuration()));
    }
}

void HostlessItem::showStrip() {
    if (!strip_) {
        qCInfo(statusItemLog) << "without a host: a strip";
        strip_ = std::make_unique<TitleStrip>(display_);
        connect(strip_.get(), &TitleStrip::activated, this, openMenu_);
        strip_->show();
    }
}

void HostlessItem::openMenu() {
    if (strip_) {
        strip_->raise();
        strip_->click();
    } else if (icon_ && icon_->isEmbedded()) {
        openMenuAtIcon(icon_->place());
    }
}

void HostlessItem::openMenuAtIcon(QRect icon) {
    toolTipTimer_.stop();
    QToolTip::hideText();
    openMenu_(QRect(logicalPlace(icon.topLeft()), logicalPlace(icon.bottomRight())));
}

void HostlessItem::showToolTip() {
    const ItemAppearance shown = appearance(Presentation::badge, display_);
    QToolTip::showText(logicalPlace(icon_->place().bottomLeft() + QPoint(0, 1)),
                       shown.toolTipTitle + u'\n' + shown.toolTipText);
}

QPoint logicalPlace(QPoint device) {
    for (const QScreen* screen : QGuiApplication::screens()) {
        // A screen keeps its corner and shrinks to its logical size.
        const QRect logical = screen->geometry();
        const QRect native(logical.topLeft(), logical.size() * screen->devicePixelRatio());
        if (native.contains(device)) {
            return logical.topLeft() + (device - native.topLeft()) / screen->devicePixelRatio();
        }
    }
    return device;
}

} // namespace skylet
