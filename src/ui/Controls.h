#pragma once

#include "ui/SemanticColors.h"

#include <QCheckBox>
#include <QColor>
#include <QFont>
#include <QLabel>
#include <QPushButton>
#include <QString>
#include <QStyle>

namespace skylet {

/// Shows the program's icon as large as fits, sharp at every scale of the screen.
class IconView final : public QLabel {
  public:
    IconView();

  protected:
    void paintEvent(QPaintEvent* event) override;
};

/// A text at the top of its frame that wraps as needed. It runs from right to left if there is anything in it that
/// does, also where it begins with a name in Latin letters. Its colour follows the desktop's.
class TextLabel final : public QLabel {
  public:
    using ColorRole = QColor SemanticColors::*;

    /// `alignment`: horizontal; left stands for the edge at which the text begins.
    TextLabel(const QString& objectName, const QString& text, const QFont& font,
              Qt::Alignment alignment = Qt::AlignHCenter, ColorRole color = &SemanticColors::label);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    const ColorRole color_;
};

/// A check box whose box stands out from the window, also where Qt's own style draws its outline too faintly. Styles of
/// the desktop's are left to draw it as they do everywhere.
class CheckBox final : public QCheckBox {
  public:
    using QCheckBox::QCheckBox;

    /// The box has its size from the style, whatever the size of the text.
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int /*width*/) const override {
        return style()->pixelMetric(QStyle::PM_IndicatorHeight, nullptr, this);
    }

  protected:
    void paintEvent(QPaintEvent* event) override;
};

/// A button that its class draws, whatever the desktop's style. Space and Return press it.
class DrawnButton : public QPushButton {
  public:
    DrawnButton(const QString& objectName, const QString& text, const QFont& font);
};

/// A button that looks like a link: a text in the user's accent colour without a border, underlined beneath the
/// pointer, framed while it has the keyboard focus.
class LinkButton final : public DrawnButton {
  public:
    LinkButton(const QString& objectName, const QString& text, const QFont& font);

  protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace skylet
