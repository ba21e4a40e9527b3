#pragma once

#include "platform/Timers.h"
#include "platform/desktop/StatusDisplay.h"
#include "platform/linux/statusitem/drawing/TitleLine.h"
#include "platform/linux/statusitem/drawing/TitleWidth.h"

#include <QAbstractButton>
#include <QPoint>

#include <optional>

namespace skylet {

/// The title in a small window of its own at the top right of the screen, above other windows, for desktops that have
/// no place for it. Never asks for the focus, and no key works it; to a screen reader it is a button. Can be drawn
/// elsewhere with the mouse; Wayland lets the compositor choose the place, the layer and who has the keyboard.
class TitleStrip final : public QAbstractButton {
    Q_OBJECT

  public:
    explicit TitleStrip(const StatusDisplay& display, Schedule schedule = commonTimer);

    void setDisplay(const StatusDisplay& display);
  Q_SIGNALS:
    /// It was clicked, by a mouse or by other means. `place`: the strip, in logical pixels of the desktop.
    void activated(QRect place);

  protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

  private:
    void place();
    void watchScreens();
    /// Where the top right corner has to be for the whole strip to be seen, on the screen that is nearest.
    QPoint cornerOnScreen(QPoint corner) const;

    TitleLine line_{Status::checking, {}, {}, 1};
    TitleWidth width_;
    /// Where on the strip a button went down that may still become a click or a drag.
    std::optional<QPoint> pressedAt_;
    bool dragged_ = false;
    /// The top left corner that was asked for last.
    QPoint wantedPlace_;
    /// The top right corner that the user has chosen. Its screen may be gone, and may come back.
    std::optional<QPoint> chosenCorner_;
};

} // namespace skylet
