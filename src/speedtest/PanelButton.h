#pragma once

#include <QPushButton>

namespace skylet {

/// A button for the dark panel, in colours of its own whatever the desktop's style. Space and Return press it while it
/// has the keyboard focus, which a ring shows.
class PanelButton final : public QPushButton {
    Q_OBJECT

  public:
    PanelButton(const QString& objectName, const QString& text, const QFont& font, QWidget* parent);

  protected:
    void paintEvent(QPaintEvent* event) override;
    void changeEvent(QEvent* event) override;
};

} // namespace skylet
