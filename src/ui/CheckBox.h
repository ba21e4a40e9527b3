#pragma once

#include <QCheckBox>

namespace skylet {

/// A check box whose box stands out from the window, also where Qt's own style draws its outline too faintly. Styles of
/// the desktop's are left to draw it as they do everywhere.
class CheckBox final : public QCheckBox {
    Q_OBJECT

  public:
    using QCheckBox::QCheckBox;

  protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace skylet
