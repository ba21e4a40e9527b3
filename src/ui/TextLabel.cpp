#include "ui/TextLabel.h"

#include "platform/desktop/TextDirection.h"

#include <QPainter>
#include <QPalette>
#include <QStyle>

namespace skylet {

TextLabel::TextLabel(const QString& objectName, const QString& text, const QFont& font, Qt::Alignment alignment) {
    setObjectName(objectName);
    setTextFormat(Qt::PlainText);
    setText(text);
    setFont(font);
    setWordWrap(true);
    setLayoutDirection(hasRightToLeft(text) ? Qt::RightToLeft : Qt::LeftToRight);
    setAlignment(alignment | Qt::AlignTop);
    setTextInteractionFlags(Qt::NoTextInteraction);
}

void TextLabel::setTextColor(const QColor& color) {
    QPalette own;
    own.setColor(QPalette::WindowText, color);
    setPalette(own);
}

void TextLabel::paintEvent(QPaintEvent* /*event*/) {
    // A label of Qt's own lets the first letter decide in which direction the text runs.
    const bool rightToLeft = layoutDirection() == Qt::RightToLeft;
    const auto flags = static_cast<int>(QStyle::visualAlignment(layoutDirection(), alignment())) | Qt::TextWordWrap |
                       (rightToLeft ? Qt::TextForceRightToLeft : Qt::TextForceLeftToRight);
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(rect(), flags | Qt::AlignAbsolute, text());
}

} // namespace skylet
