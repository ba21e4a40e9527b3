#include "platform/linux/statusitem/hostless/TitleStrip.h"

#include "platform/linux/desktop/Wayland.h"
#include "platform/linux/statusitem/drawing/ItemAppearance.h"

#include <QApplication>
#include <QFontDatabase>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScreen>
#include <QWindow>

#include <algorithm>
#include <cmath>
#include <utility>

namespace skylet {

namespace {

// Logical pixels.
constexpr int stripHeight = 22;
constexpr int gapToScreenEdge = 4;

int distance(const QRect& area, QPoint place) {
    return std::max({area.left() - place.x(), 0, place.x() - area.right()}) +
           std::max({area.top() - place.y(), 0, place.y() - area.bottom()});
}

} // namespace

TitleStrip::TitleStrip(const StatusDisplay& display, Schedule schedule)
    : width_(std::move(schedule), [this] { place(); }) {
    setWindowFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus);
    setFocusPolicy(Qt::NoFocus);
    setObjectName(QStringLiteral("titleStrip"));
    setWindowTitle(QStringLiteral("Skylet"));
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_ShowWithoutActivating);
    // A dock is on every desktop and above ordinary windows, but not above those that fill the screen.
    setAttribute(Qt::WA_X11NetWmWindowTypeDock);
    setAttribute(Qt::WA_AlwaysShowToolTips);
    setLayoutDirection(Qt::LeftToRight);
    // Qt is not always right about where it is, see mouseReleaseEvent(); but Wayland's popups go by what Qt believes.
    connect(this, &QAbstractButton::clicked, this,
            [this] { Q_EMIT activated(QRect(isOnWayland() ? mapToGlobal(QPoint(0, 0)) : wantedPlace_, size())); });
    setDisplay(display);
    watchScreens();
    for (const auto change : {&QGuiApplication::primaryScreenChanged, &QGuiApplication::screenAdded}) {
        connect(qApp, change, this, &TitleStrip::watchScreens);
    }
    // Queued, since Qt moves the windows of that screen after the signal.
    connect(qApp, &QGuiApplication::screenRemoved, this, &TitleStrip::watchScreens, Qt::QueuedConnection);
}

void TitleStrip::watchScreens() {
    for (const QScreen* screen : QGuiApplication::screens()) {
        connect(screen, &QScreen::availableGeometryChanged, this, &TitleStrip::place, Qt::UniqueConnection);
    }
    place();
}

void TitleStrip::setDisplay(const StatusDisplay& display) {
    line_ = TitleLine(display.status, display.title, QFontDatabase::systemFont(QFontDatabase::GeneralFont), 1);
    width_.setNeeded(line_.width());
    setAccessibleName(titleText(display.title));
    setToolTip(display.toolTip);
    place();
    update();
}

void TitleStrip::place() {
    setFixedSize(static_cast<int>(std::ceil(width_.width() + 2 * titlePlateMargin)), stripHeight);
    const QScreen* screen = QGuiApplication::primaryScreen();
    if (screen == nullptr) {
        return;
    }
    const QRect area = screen->availableGeometry();
    const QPoint usual(area.x() + area.width() - gapToScreenEdge, area.y() + gapToScreenEdge);
    wantedPlace_ = cornerOnScreen(chosenCorner_.value_or(usual)) - QPoint(width(), 0);
    move(wantedPlace_);
}

QPoint TitleStrip::cornerOnScreen(QPoint corner) const {
    // The last pixel of the strip's upper edge; the corner itself may lie on the next screen.
    const QPoint end = corner - QPoint(1, 0);
    const QList<QScreen*> screens = QGuiApplication::screens();
    const auto nearest =
        std::min_element(screens.cbegin(), screens.cend(), [end](const QScreen* one, const QScreen* other) {
            return distance(one->geometry(), end) < distance(other->geometry(), end);
        });
    if (nearest == screens.cend()) {
        return corner;
    }
    const QRect area = (*nearest)->availableGeometry();
    // Of a strip that is too wide the dot is what must be seen.
    return {std::max(std::min(corner.x(), area.x() + area.width()), area.x() + width()),
            std::max(std::min(corner.y(), area.y() + area.height() - height()), area.y())};
}

void TitleStrip::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    // Without a compositor there is nothing to be seen through the window.
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(rect(), Qt::transparent);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    paintTitleGround(painter, rect(), 1);
    line_.paint(painter, titlePlateMargin, height() / 2.0);
}

void TitleStrip::mousePressEvent(QMouseEvent* event) {
    pressedAt_ = event->position().toPoint();
    dragged_ = false;
}

void TitleStrip::mouseMoveEvent(QMouseEvent* event) {
    if (!pressedAt_) {
        return;
    }
    const QPoint moved = event->position().toPoint() - *pressedAt_;
    if (!dragged_ && moved.manhattanLength() < QApplication::startDragDistance()) {
        return;
    }
    dragged_ = true;
    if (isOnWayland()) {
        pressedAt_.reset();
        windowHandle()->startSystemMove();
        return;
    }
    chosenCorner_ = cornerOnScreen(event->globalPosition().toPoint() - *pressedAt_ + QPoint(width(), 0));
    place();
}

void TitleStrip::mouseReleaseEvent(QMouseEvent* event) {
    if (pressedAt_ && !dragged_) {
        // Where the window is, the event knows best: Openbox was seen to leave Qt in the belief that it is at the
        // origin.
        Q_EMIT activated(QRect((event->globalPosition() - event->position()).toPoint(), size()));
    }
    pressedAt_.reset();
}

// On Wayland a window that comes up gets the keyboard, perhaps from somebody who is typing.
void TitleStrip::keyPressEvent(QKeyEvent* event) {
    event->ignore();
}

} // namespace skylet
