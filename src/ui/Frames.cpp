#include "ui/Frames.h"

namespace skylet {

namespace {

/// Beneath what has outgrown its frame.
constexpr int gap = 6;

int heightFor(const QWidget& widget, QSize frame) {
    const int needed = widget.hasHeightForWidth() ? widget.heightForWidth(frame.width()) : 0;
    return needed <= frame.height() ? frame.height() : needed + gap;
}

} // namespace

void Frames::add(QWidget* widget, const QRect& frame) {
    placed_.push_back({widget, fromBottomLeft(frame, content_.height())});
}

QSize Frames::arrange(QWidget* parent) const {
    int shift = 0;
    for (const auto& [widget, frame] : placed_) {
        // Another parent hides a widget, even if it is the same one.
        if (widget->parentWidget() != parent) {
            widget->setParent(parent);
        }
        const int height = heightFor(*widget, frame.size());
        widget->setGeometry(frame.x(), frame.y() + shift, frame.width(), height);
        shift += height - frame.height();
    }
    return content_ + QSize(0, shift);
}

} // namespace skylet
