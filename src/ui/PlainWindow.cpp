#include "ui/PlainWindow.h"

#include "ui/Fonts.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QCloseEvent>
#include <QCursor>
#include <QEvent>
#include <QGuiApplication>
#include <QScreen>
#include <QShortcut>
#include <QWindow>

#include <algorithm>
#include <cmath>
#include <utility>

namespace skylet {

namespace {

/// Beneath what has outgrown its frame.
constexpr double gap = 6;
/// Up to this a font is a default one: GNOME and LXQt come with 11 points, Plasma, Xfce, MATE and Cinnamon with less.
constexpr double usualFontPoints = 11;
/// No title bar is higher, and no other edge of a frame wider. Logical pixels.
constexpr int titleBarHeight = 40;
constexpr int frameEdge = 4;
/// Nothing could be read below this.
constexpr double leastScale = 0.5;

double fontScale() {
    const QFont font = QGuiApplication::font();
    // The platform's own measure of points, which desktops may set for larger texts.
    const QScreen* screen = QGuiApplication::primaryScreen();
    const double pixelsPerPoint = (screen != nullptr ? screen->logicalDotsPerInch() : 96) / 72;
    const double pixels = font.pixelSize() > 0 ? font.pixelSize() : font.pointSizeF() * pixelsPerPoint;
    return std::max(1.0, pixels * 72 / 96 / usualFontPoints);
}

QAccessibleInterface* makeAccessibleWindow(const QString& /*className*/, QObject* object) {
    auto* window = qobject_cast<PlainWindow*>(object);
    return window != nullptr ? new QAccessibleWidget(window, QAccessible::Dialog) : nullptr;
}

} // namespace

PlainWindow::PlainWindow(const QString& title, QSize content)
    : QWidget(nullptr, Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowSystemMenuHint |
                           Qt::WindowCloseButtonHint),
      content_(content) {
    QAccessible::installFactory(makeAccessibleWindow);
    setWindowTitle(title);
    setFixedSize(content);
    // Frames are given as they stand on the screen.
    setLayoutDirection(Qt::LeftToRight);
    setAttribute(Qt::WA_QuitOnClose, false);
    // Until the user asks for a control by the Tab key, none is marked as having the keyboard.
    setFocus();
    connect(new QShortcut(QKeySequence(Qt::Key_Escape), this), &QShortcut::activated, this, &QWidget::close);
}

void PlainWindow::place(QWidget* widget, const QRect& frame) {
    widget->setParent(this);
    placed_.push_back({widget, frame, widget->testAttribute(Qt::WA_SetFont) ? widget->font().pixelSize() : 0});
    arrange();
}

void PlainWindow::arrange() {
    const QSize most = available().size() - QSize(2 * frameEdge, titleBarHeight + frameEdge);
    double scale = fontScale();
    arrange(scale);
    while (size().boundedTo(most) != size() && scale > leastScale) {
        scale *= 0.95;
        arrange(scale);
    }
}

void PlainWindow::arrange(double scale) {
    const auto scaled = [scale](double length) { return static_cast<int>(std::lround(length * scale)); };
    int shift = 0;
    for (const auto& [widget, frame, pixels] : placed_) {
        if (pixels > 0) {
            widget->setFont(systemFont(pixels * scale, widget->font().weight()));
        }
        const int width = scaled(frame.width());
        const int height = scaled(frame.height());
        const int needed = widget->hasHeightForWidth() ? widget->heightForWidth(width) : 0;
        const int growth = needed > height ? needed + scaled(gap) - height : 0;
        const int top = scaled(content_.height() - frame.y() - frame.height()) + shift;
        widget->setGeometry(scaled(frame.x()), top, width, height + growth);
        shift += growth;
    }
    setFixedSize(scaled(content_.width()), scaled(content_.height()) + shift);
}

QRect PlainWindow::available() const {
    const QScreen* known = wasShown_ ? screen() : QGuiApplication::screenAt(QCursor::pos());
    const QScreen* chosen = known != nullptr ? known : QGuiApplication::primaryScreen();
    return chosen != nullptr ? chosen->availableGeometry() : QRect(QPoint(), size());
}

void PlainWindow::bringToFront() {
    if (!isVisible()) {
        arrange();
    }
    if (!wasShown_) {
        QRect frame = geometry();
        frame.moveCenter(available().center());
        frame.moveTop(std::max(frame.top(), available().top() + titleBarHeight));
        setGeometry(frame);
        wasShown_ = true;
    }
    if (isMinimized()) {
        setWindowState(windowState() & ~Qt::WindowMinimized);
    } else if (isVisible() && wasSeen_ && !isOnScreen(*this)) {
        // On another virtual desktop: taken off the screen and shown anew, a window comes up where the user is. Few
        // desktops let a program move the user there.
        hide();
    }
    show();
    raise();
    activateWindow();
}

void PlainWindow::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::FontChange) {
        arrange();
    }
}

void PlainWindow::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    // One that the desktop shows again, such as a minimised one, is not always painted anew.
    wasSeen_ = wasSeen_ && event->spontaneous();
}

void PlainWindow::paintEvent(QPaintEvent* event) {
    QWidget::paintEvent(event);
    wasSeen_ = true;
}

void PlainWindow::closeEvent(QCloseEvent* event) {
    if (onClose_) {
        onClose_();
    }
    event->accept();
}

bool isOnScreen(const QWidget& window) {
    const QWindow* handle = window.windowHandle();
    return window.isVisible() && !window.isMinimized() && handle != nullptr && handle->isExposed();
}

} // namespace skylet
