#pragma once

#include <QColor>
#include <QLabel>

namespace skylet {

/// A line of text on the dark panel, in the middle of its frame, in a colour of its own whatever the desktop's style.
/// All digits take the same room.
class PanelLabel final : public QLabel {
    Q_OBJECT

  public:
    PanelLabel(const QString& objectName, const QString& text, const QFont& font, const QColor& color, QWidget* parent);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    const QColor color_;
};

} // namespace skylet
