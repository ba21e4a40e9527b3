#pragma once

#include "ui/Controls.h"

#include <QColor>
#include <QLabel>

namespace skylet {

/// A line of text on the dark panel, in the middle of its frame, in a colour of its own whatever the desktop's style.
/// All digits take the same room.
class PanelLabel final : public QLabel {
  public:
    PanelLabel(const QString& objectName, const QString& text, const QFont& font, const QColor& color);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    const QColor color_;
};

/// A button for the dark panel. While it has the keyboard focus, a ring shows that.
class PanelButton final : public DrawnButton {
  public:
    using DrawnButton::DrawnButton;

  protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace skylet
