#pragma once

#include <QRect>
#include <QSize>
#include <QString>
#include <QWidget>

#include <functional>
#include <utility>
#include <vector>

namespace skylet {

/// A window with a title and a close button, which can be neither resized nor minimised. Closing only hides it; Escape
/// closes it as the title bar's button does. It appears in the middle of the screen on which the pointer is, and later
/// where the user left it. It follows the desktop's font: where that is larger than any desktop's default, frames and
/// fonts grow with it. On a screen that is too small they shrink, so that all of the window can be reached. To
/// assistive technologies it is a dialogue, whose texts they read out when it opens.
class PlainWindow : public QWidget {
    Q_OBJECT

  public:
    /// `content`: size without the frame, logical pixels.
    PlainWindow(const QString& title, QSize content);

    /// Puts a widget into the window, to which it belongs from now on; from top to bottom. `frame` and the widget's
    /// font: as they are at the desktop's default font, with y upward from the bottom left corner. What needs more
    /// height, such as a text in a wide font, keeps its top edge and gets the height; all that lies beneath moves down,
    /// and the window grows.
    void place(QWidget* widget, const QRect& frame);
    /// Called whenever the user or the program closes the window, before it disappears.
    void setOnClose(std::function<void()> onClose) { onClose_ = std::move(onClose); }

    /// Shows the window before all others and takes the keyboard focus, as far as the desktop lets a program do that.
    void bringToFront();

  protected:
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;

  private:
    struct Placed {
        QWidget* widget;
        QRect frame;
        /// Of the font; below 1 for a widget that writes nothing.
        int pixels;
    };

    void arrange();
    void arrange(double scale);
    /// What the desktop's panels leave of the screen.
    QRect available() const;

    const QSize content_;
    std::vector<Placed> placed_;
    std::function<void()> onClose_;
    bool wasShown_ = false;
    /// Whether it has come to the screen since it was shown.
    bool wasSeen_ = false;
};

/// Whether a window is on the screen: neither hidden nor minimised nor, where the desktop takes such windows off the
/// screen, on another virtual desktop. A window that others cover counts as seen: on X11 and Wayland Qt takes the
/// exposure away from unmapped windows only.
bool isOnScreen(const QWidget& window);

} // namespace skylet
