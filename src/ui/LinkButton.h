#pragma once

#include <QColor>
#include <QPushButton>

namespace skylet {

/// A button that looks like a link: a coloured text without a border, underlined beneath the pointer, framed while it
/// has the keyboard focus. Space and Return press it.
class LinkButton final : public QPushButton {
    Q_OBJECT

  public:
    LinkButton(const QString& objectName, const QString& text, const QFont& font);

    void setTextColor(const QColor& color);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    QColor color_;
};

} // namespace skylet
