#include "speedtest/PanelLabel.h"

#include "ui/Fonts.h"

#include <QPainter>

namespace skylet {

PanelLabel::PanelLabel(const QString& objectName, const QString& text, const QFont& font, const QColor& color,
                       QWidget* parent)
    : QLabel(text, parent), color_(color) {
    setObjectName(objectName);
    setTextFormat(Qt::PlainText);
    setFont(font);
}

void PanelLabel::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setPen(color_);
    drawTabularCentered(painter, rect(), text(), font());
}

} // namespace skylet
