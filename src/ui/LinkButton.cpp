#include "ui/LinkButton.h"

#include "ui/Fonts.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QPen>

namespace skylet {

LinkButton::LinkButton(const QString& objectName, const QString& text, const QFont& font) : QPushButton(text) {
    setObjectName(objectName);
    setFont(font);
    setFlat(true);
    setAutoDefault(true);
    setAttribute(Qt::WA_Hover);
    setCursor(Qt::PointingHandCursor);
}

void LinkButton::setTextColor(const QColor& color) {
    color_ = color;
    update();
}

void LinkButton::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(color_, 1.5));
    if (hasFocus()) {
        QRectF ring(QPointF(), QFontMetricsF(font()).size(0, text()) + QSizeF(16, 2));
        ring.moveCenter(QRectF(rect()).center());
        painter.drawRoundedRect(ring, 4, 4);
    }
    QFont shown = font();
    shown.setUnderline(underMouse() || isDown());
    drawCentered(painter, rect(), text(), shown);
}

} // namespace skylet
