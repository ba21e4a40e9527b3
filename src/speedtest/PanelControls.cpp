#include "speedtest/PanelControls.h"

#include "ui/Fonts.h"

#include <QPainter>

namespace skylet {

namespace {

constexpr QColor bezel{62, 66, 78};
constexpr QColor bezelHovered{76, 81, 95};
constexpr QColor bezelPressed{46, 49, 59};
constexpr QColor bezelDisabled{33, 36, 44};
constexpr QColor titleColor{255, 255, 255};
// Dim, and still legible: 4.9 to 1.
constexpr QColor titleDisabled{145, 149, 160};
constexpr QColor focusRing{122, 176, 255};
constexpr double cornerRadius = 7;
constexpr double ringWidth = 2;
// The ring stands around the bezel, inside the button's frame.
constexpr double bezelMargin = 3;

} // namespace

PanelLabel::PanelLabel(const QString& objectName, const QString& text, const QFont& font, const QColor& color)
    : QLabel(text), color_(color) {
    setObjectName(objectName);
    setTextFormat(Qt::PlainText);
    setFont(font);
}

void PanelLabel::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setPen(color_);
    drawTabularCentered(painter, rect(), text(), font());
}

void PanelButton::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF body = QRectF(rect()).adjusted(bezelMargin, bezelMargin, -bezelMargin, -bezelMargin);
    painter.setPen(Qt::NoPen);
    painter.setBrush(!isEnabled() ? bezelDisabled : isDown() ? bezelPressed : underMouse() ? bezelHovered : bezel);
    painter.drawRoundedRect(body, cornerRadius, cornerRadius);
    if (hasFocus()) {
        const double half = ringWidth / 2;
        painter.setPen(QPen(focusRing, ringWidth));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(QRectF(rect()).adjusted(half, half, -half, -half), cornerRadius + 2, cornerRadius + 2);
    }
    painter.setPen(isEnabled() ? titleColor : titleDisabled);
    drawCentered(painter, body, text(), font());
}

} // namespace skylet
