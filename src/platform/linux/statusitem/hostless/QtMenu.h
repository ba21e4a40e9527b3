#pragma once

#include "platform/desktop/Menu.h"
#include "platform/linux/desktop/Wayland.h"

#include <QMenu>
#include <QRect>

#include <memory>

namespace skylet {

/// The menu that the program pops up itself. Follows every change of the items.
class QtMenu {
  public:
    /// `keepsSize`: while open the menu can be made neither larger nor smaller. On Wayland one that has none of our
    /// windows beneath it is a window like any other, and compositors that lay windows out as tiles leave those alone
    /// that have a fixed size.
    explicit QtMenu(bool keepsSize = isOnWayland());

    /// To be called once.
    void setMenu(const Menu& menu);
    QMenu& widget() { return *widget_; }
    /// Opens the menu beside `anchor`, in logical pixels of the whole desktop: beneath it, or above it in the lower
    /// half of the screen. It lies on a screen whatever the anchor is and its texts become, and never on the anchor
    /// where there is room for both. Where the screen is too small for it the text is smaller. A press on the anchor
    /// closes it. Does nothing while there is no screen.
    void popUp(QRect anchor);
    void close() { widget_->close(); }

  private:
    void updateLayout();
    void shrinkToScreen();
    /// Of the menu beside its anchor, with its present texts.
    int leftEdge() const;

    /// What the menu belongs to, and the screen that has it.
    QRect anchor_;
    QRect screen_;
    const std::unique_ptr<QMenu> widget_;
    Menu menu_;
    const bool keepsSize_;
};

} // namespace skylet
