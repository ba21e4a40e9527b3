#include "platform/linux/statusitem/hostless/HostlessItem.h"

#include "platform/linux/statusitem/drawing/ItemAppearance.h"

#include <QApplication>
#include <QScreen>
#include <QStyle>
#include <QToolTip>

#include <utility>

namespace skylet {

namespace {

ItemAppearance badgeOf(const StatusTitle& title, const QString& toolTip) {
    return appearance(Presentation::badge, title, toolTip);
}

} // namespace

QByteArray HostlessItem::Options::usualDisplay() {
    return QGuiApplication::platformName() == QLatin1String("xcb") ? qgetenv("DISPLAY") : QByteArray();
}

HostlessItem::HostlessItem(Options options, std::function<void(QRect item)> openMenu)
    : options_(std::move(options)), openMenu_(std::move(openMenu)) {
    embeddingTimer_.setSingleShot(true);
    embeddingTimer_.setInterval(options_.embedding);
    connect(&embeddingTimer_, &QTimer::timeout, this, &HostlessItem::giveTrayUp);
    toolTipTimer_.setSingleShot(true);
    toolTipTimer_.setInterval(QApplication::style()->styleHint(QStyle::SH_ToolTip_WakeUpDelay));
    connect(&toolTipTimer_, &QTimer::timeout, this, &HostlessItem::showToolTip);
    connectToServer();
}

HostlessItem::~HostlessItem() = default;

void HostlessItem::connectToServer() {
    server_ = X11Connection::open(options_.x11Display);
    if (!server_) {
        return;
    }
    tray_ = std::make_unique<X11Tray>(*server_);
    // Queued, since what follows destroys icons and connections in the middle of their own signals otherwise.
    connect(tray_.get(), &X11Tray::changed, this, &HostlessItem::followTray, Qt::QueuedConnection);
    connect(
        server_.get(), &X11Connection::lost, this,
        [this] {
            icon_.reset();
            tray_.reset();
            server_.reset();
            followTray();
        },
        Qt::QueuedConnection);
}

void HostlessItem::present(const StatusTitle& title, const QString& toolTip) {
    const bool first = title_.empty();
    title_ = title;
    toolTip_ = toolTip;
    if (icon_) {
        icon_->setIcon(badgeOf(title_, toolTip_).icon);
    }
    if (strip_) {
        strip_->setTitle(title_);
        strip_->setToolTip(toolTip_);
    }
    if (first) {
        followTray();
    }
}

void HostlessItem::followTray() {
    icon_.reset();
    embeddingTimer_.stop();
    toolTipTimer_.stop();
    if (title_.empty()) {
        return;
    }
    if (tray_ && tray_->window() != XCB_WINDOW_NONE) {
        showIcon();
    } else {
        showStrip();
    }
}

void HostlessItem::showIcon() {
    const QScreen* screen = QGuiApplication::primaryScreen();
    icon_ = std::make_unique<XembedIcon>(*server_, tray_->window(), badgeOf(title_, toolTip_).icon,
                                         screen != nullptr ? screen->devicePixelRatio() : 1);
    connect(icon_.get(), &XembedIcon::embedded, this, [this] {
        embeddingTimer_.stop();
        strip_.reset();
    });
    connect(icon_.get(), &XembedIcon::expelled, this, &HostlessItem::giveTrayUp, Qt::QueuedConnection);
    connect(icon_.get(), &XembedIcon::pressed, this, &HostlessItem::openMenuAtIcon);
    connect(icon_.get(), &XembedIcon::entered, this, [this](QRect place) {
        hovered_ = place;
        toolTipTimer_.start();
    });
    connect(icon_.get(), &XembedIcon::left, this, [this] {
        toolTipTimer_.stop();
        QToolTip::hideText();
    });
    embeddingTimer_.start();
}

void HostlessItem::giveTrayUp() {
    // The next tray that comes is tried again.
    icon_.reset();
    embeddingTimer_.stop();
    showStrip();
}

void HostlessItem::showStrip() {
    if (strip_) {
        return;
    }
    strip_ = std::make_unique<TitleStrip>();
    connect(strip_.get(), &TitleStrip::clicked, this, [this](QRect place) { openMenu_(place); });
    strip_->setTitle(title_);
    strip_->setToolTip(toolTip_);
    strip_->show();
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
    const ItemAppearance appearance = badgeOf(title_, toolTip_);
    QToolTip::showText(logicalPlace(QPoint(hovered_.x(), hovered_.y() + hovered_.height())),
                       appearance.toolTipTitle + u'\n' + appearance.toolTipText);
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
