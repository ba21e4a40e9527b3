#include "platform/linux/statusitem/hostless/TitleStrip.h"

#include "platform/linux/desktop/Wayland.h"
#include "platform/linux/statusitem/drawing/TitleLine.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QApplication>
#include <QFontDatabase>
#include <QMouseEvent>
#include <QPainter>
#include <QScreen>
#include <QWindow>

#include <algorithm>
#include <cmath>

namespace skylet {

namespace {

// Logical pixels.
constexpr int stripHeight = 22;
constexpr int gapToScreenEdge = 4;

QString textOf(const StatusTitle& title) {
    QString text;
    for (std::size_t index = 1; index < title.size(); ++index) {
        text += title[index].text;
    }
    return text.trimmed();
}

class AccessibleStrip final : public QAccessibleWidget {
  public:
    explicit AccessibleStrip(TitleStrip& strip) : QAccessibleWidget(&strip, QAccessible::Button), strip_(strip) {}

    QStringList actionNames() const override { return {pressAction()}; }
    void doAction(const QString& name) override {
        if (name == pressAction()) {
            strip_.click();
        }
    }

  private:
    TitleStrip& strip_;
};

QAccessibleInterface* accessibleStrip(const QString& /*className*/, QObject* object) {
    auto* strip = qobject_cast<TitleStrip*>(object);
    // Owned by Qt, which destroys it with the widget.
    return strip != nullptr ? new AccessibleStrip(*strip) : nullptr;
}

int distance(const QRect& area, QPoint place) {
    return std::max({area.left() - place.x(), 0, place.x() - area.right()}) +
           std::max({area.top() - place.y(), 0, place.y() - area.bottom()});
}

} // namespace

TitleStrip::TitleStrip()
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus) {
    setObjectName(QStringLiteral("titleStrip"));
    setWindowTitle(QStringLiteral("Skylet"));
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_ShowWithoutActivating);
    // A dock is on every desktop and above ordinary windows, but not above those that fill the screen.
    setAttribute(Qt::WA_X11NetWmWindowTypeDock);
    setAttribute(Qt::WA_AlwaysShowToolTips);
    setLayoutDirection(Qt::LeftToRight);
    QAccessible::installFactory(accessibleStrip);
    followScreens();
    for (const auto change : {&QGuiApplication::primaryScreenChanged, &QGuiApplication::screenAdded}) {
        connect(qApp, change, this, &TitleStrip::followScreens);
    }
    // Queued, since Qt moves the windows of that screen after the signal.
    connect(qApp, &QGuiApplication::screenRemoved, this, &TitleStrip::followScreens, Qt::QueuedConnection);
}

void TitleStrip::followScreens() {
    for (const QScreen* screen : QGuiApplication::screens()) {
        connect(screen, &QScreen::availableGeometryChanged, this, &TitleStrip::place, Qt::UniqueConnection);
    }
    place();
}

void TitleStrip::setTitle(const StatusTitle& title) {
    if (title == title_) {
        return;
    }
    title_ = title;
    setAccessibleName(textOf(title));
    place();
    update();
}

void TitleStrip::place() {
    const TitleLine line(title_, QFontDatabase::systemFont(QFontDatabase::GeneralFont), 1);
    setFixedSize(static_cast<int>(std::ceil(line.width() + 2 * titlePlateMargin)), stripHeight);
    const QScreen* screen = QGuiApplication::primaryScreen();
    if (screen == nullptr) {
        return;
    }
    const QRect area = screen->availableGeometry();
    const QPoint usual(area.x() + area.width() - gapToScreenEdge, area.y() + gapToScreenEdge);
    wantedPlace_ = cornerOnScreen(chosenCorner_.value_or(usual)) - QPoint(width(), 0);
    move(wantedPlace_);
}

void TitleStrip::click() {
    // Qt is not always right about where it is, see mouseReleaseEvent(); but Wayland's popups go by what Qt believes.
    Q_EMIT clicked(QRect(isOnWayland() ? mapToGlobal(QPoint(0, 0)) : wantedPlace_, size()));
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
    TitleLine(title_, QFontDatabase::systemFont(QFontDatabase::GeneralFont), 1)
        .paint(painter, titlePlateMargin, height() / 2.0);
}

void TitleStrip::mousePressEvent(QMouseEvent* event) {
    pressedAt_ = event->position().toPoint();
    dragged_ = false;
}

void TitleStrip::mouseMoveEvent(QMouseEvent* event) {
    if (!pressedAt_) {
        return;
    }
    const QPoint way = event->position().toPoint() - *pressedAt_;
    if (!dragged_ && way.manhattanLength() < QApplication::startDragDistance()) {
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
        Q_EMIT clicked(QRect((event->globalPosition() - event->position()).toPoint(), size()));
    }
    pressedAt_.reset();
}

} // namespace skylet
