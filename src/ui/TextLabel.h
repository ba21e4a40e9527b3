#pragma once

#include <QFont>
#include <QLabel>
#include <QString>

namespace skylet {

/// A text at the top of its frame that wraps as needed. It runs from right to left if there is anything in it that
/// does, also where it begins with a name in Latin letters. It is no place for the pointer or the keyboard.
class TextLabel final : public QLabel {
    Q_OBJECT

  public:
    /// `alignment`: horizontal; left stands for the edge at which the text begins.
    TextLabel(const QString& objectName, const QString& text, const QFont& font, Qt::Alignment alignment);

    /// Colour of the text; without it, the palette's.
    void setTextColor(const QColor& color);

  protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace skylet
