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

#include <utility>

namespace skylet {

namespace {

/// Beneath what has outgrown its frame.
constexpr int gap = 6;

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
    placed_.push_back({widget, frame});
    arrange();
}

void PlainWindow::arrange() {
    int shift = 0;
    for (const auto& [widget, frame] : placed_) {
        const int top = content_.height() - frame.y() - frame.height() + shift;
        const int needed = widget->hasHeightForWidth() ? widget->heightForWidth(frame.width()) : 0;
        const int growth = needed > frame.height() ? needed + gap - frame.height() : 0;
        widget->setGeometry(frame.x(), top, frame.width(), frame.height() + growth);
        shift += growth;
    }
    setFixedSize(content_ + QSize(0, shift));
}

void PlainWindow::bringToFront() {
    if (!std::exchange(wasShown_, true)) {
        center();
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

void PlainWindow::center() {
    const QScreen* under = QGuiApplication::screenAt(QCursor::pos());
    const QScreen* screen = under != nullptr ? under : QGuiApplication::primaryScreen();
    if (screen != nullptr) {
        QRect place(QPoint(0, 0), size());
        place.moveCenter(screen->availableGeometry().center());
        setGeometry(place);
    }
}

void PlainWindow::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() != QEvent::FontChange) {
        return;
    }
    for (const auto& [widget, frame] : placed_) {
        if (widget->testAttribute(Qt::WA_SetFont)) {
            widget->setFont(systemFont(widget->font().pixelSize(), widget->font().weight()));
        }
    }
    arrange();
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
