#pragma once

#include <QRect>
#include <QSize>
#include <QWidget>

#include <vector>

namespace skylet {

/// `frame`, given with y upward from the bottom left corner of a content area of that height, as a widget wants it.
constexpr QRect fromBottomLeft(const QRect& frame, int contentHeight) {
    return {frame.x(), contentHeight - frame.y() - frame.height(), frame.width(), frame.height()};
}

/// Places widgets in a window by frames given with y upward. What needs more height than its frame has, such as a text
/// in a wide font, keeps its top edge and gets the height; all that lies beneath moves down, and the content area
/// grows.
class Frames {
  public:
    /// `content`: the area to which the frames refer, logical pixels.
    explicit Frames(QSize content) : content_(content) {}

    /// From top to bottom. A widget without a parent belongs to this object's caller until it is arranged.
    void add(QWidget* widget, const QRect& frame);
    /// Places all widgets in `parent`, whose children they become in this order. Returns the size of its content area.
    /// May be called again, for instance when the fonts have changed.
    QSize arrange(QWidget* parent) const;

  private:
    struct Placed {
        QWidget* widget;
        QRect frame;
    };
    QSize content_;
    std::vector<Placed> placed_;
};

} // namespace skylet
