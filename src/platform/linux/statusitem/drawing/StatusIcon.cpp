#include "platform/linux/statusitem/drawing/StatusIcon.h"

#include "platform/desktop/TabularLine.h"
#include "platform/linux/statusitem/drawing/StatusColors.h"
#include "platform/linux/statusitem/drawing/TitleLine.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>
#include <QPen>

#include <algorithm>
#include <cmath>

namespace skylet {

namespace {

// Shares of the icon's side. The text dot has the size of the character that it stands for beside 12 px text in 16 px.
constexpr double textDotShare = 0.66;
constexpr double loneDotShare = 0.78;
constexpr double digitHeightShare = 0.45;
constexpr double rimShare = 1.0 / 26;

/// A number's outline in units of a font of `referenceSize` pixels, the baseline at 0.
struct NumberOutline {
    QPainterPath path;
    double width = 0;
    double widestWidth = 0;
    double height = 0;
};

constexpr int referenceSize = 100;

NumberOutline outlineOf(const QString& number, QFont font) {
    font.setPixelSize(referenceSize);
    // A weight above regular: a regular stem is thinner than a pixel in the small icons.
    font.setWeight(QFont::DemiBold);
    const QFontMetricsF metrics(font);
    const auto advance = [&metrics](const QString& text) { return metrics.horizontalAdvance(text); };
    const TabularLine line = layOutTabular(number, advance);
    QPainterPath allDigits;
    allDigits.addText(0, 0, font, QStringLiteral("0123456789"));
    NumberOutline outline{.path = {},
                          .width = line.width,
                          .widestWidth = layOutTabular(QStringLiteral("000"), advance).width,
                          .height = -allDigits.boundingRect().top()};
    for (const TextRun& run : line.runs) {
        outline.path.addText(run.place, font, run.text);
    }
    return outline;
}

/// Dots while an answer is awaited, a cross when nothing gets through, two bars as on a player.
void paintSign(QPainter& painter, const QRectF& dot, Status status) {
    const QPointF centre = dot.center();
    const double unit = dot.width() / 8;
    const QColor color = dotShades(status).sign;
    painter.setBrush(color);
    painter.setPen(Qt::NoPen);
    switch (status) {
    case Status::online:
    case Status::slow:
        for (const int side : {-1, 1}) {
            const QPointF base = centre + QPointF(0, side * 0.45 * unit);
            painter.drawPolygon(QPolygonF(
                {base + QPointF(-2 * unit, 0), base + QPointF(2 * unit, 0), base + QPointF(0, side * 2.1 * unit)}));
        }
        break;
    case Status::checking:
        for (const int place : {-1, 0, 1}) {
            painter.drawEllipse(centre + QPointF(place * 1.9 * unit, 0), 0.65 * unit, 0.65 * unit);
        }
        break;
    case Status::offline:
        painter.setPen(QPen(color, 0.95 * unit, Qt::SolidLine, Qt::RoundCap));
        painter.drawLine(centre + QPointF(-unit, -unit) * 1.2, centre + QPointF(unit, unit) * 1.2);
        painter.drawLine(centre + QPointF(-unit, unit) * 1.2, centre + QPointF(unit, -unit) * 1.2);
        break;
    case Status::paused:
        for (const int side : {-1, 1}) {
            painter.drawRect(
                QRectF(centre.x() + side * 1.1 * unit - 0.5 * unit, centre.y() - 1.6 * unit, unit, 3.2 * unit));
        }
        break;
    }
}

void paintNumber(QPainter& painter, const QRectF& plate, double margin, const NumberOutline& outline) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(plateColor);
    painter.drawRoundedRect(plate, 2 * margin, 2 * margin);
    const double scaleY = (plate.height() - 2 * margin) / outline.height;
    const double room = plate.width() - 2 * margin;
    // Sized for the widest number whatever the number is, so that it does not jump from one measurement to the next.
    const double scaleX = std::min({scaleY, room / outline.widestWidth, room / outline.width});
    QTransform place;
    place.translate(plate.center().x(), plate.bottom() - margin);
    place.scale(scaleX, scaleY);
    place.translate(-outline.width / 2, 0);
    painter.setBrush(plateTextColor);
    painter.drawPath(place.map(outline.path));
}

/// The largest circle diameter up to `wanted` that leaves equal whole pixels on both sides.
double evenDiameter(int size, double wanted) {
    const int diameter = static_cast<int>(std::lround(wanted));
    return (size - diameter) % 2 == 0 ? diameter : diameter - 1;
}

/// In a blue that stands for no state and is seen on light and dark panels.
QImage framed(QImage image) {
    const double width = std::max(1.5, image.height() / 11.0);
    const double inset = width / 2;
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(64, 140, 240), width));
    painter.drawRoundedRect(QRectF(image.rect()).adjusted(inset, inset, -inset, -inset), width, width);
    return image;
}

} // namespace

bool StatusIcon::operator==(const StatusIcon& other) const {
    // Beside a label the dot has no sign, and two states share a colour.
    const bool sameDot =
        presentation == Presentation::label ? dotShades(status) == dotShades(other.status) : status == other.status;
    return sameDot && needsAttention == other.needsAttention && presentation == other.presentation &&
           number == other.number && title == other.title && titleWidth == other.titleWidth;
}

QImage paintStatusIcon(const StatusIcon& icon, int size, const QFont& font) {
    if (icon.needsAttention) {
        StatusIcon plain = icon;
        plain.needsAttention = false;
        return framed(paintStatusIcon(plain, size, font));
    }
    if (icon.presentation == Presentation::wide) {
        return paintTitlePlate(icon.status, icon.title, size, font, icon.titleWidth);
    }
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const double rim = std::max(0.75, size * rimShare);
    const bool isBadge = icon.presentation == Presentation::badge;
    if (icon.number.isEmpty()) {
        const double diameter = evenDiameter(size, size * (isBadge ? loneDotShare : textDotShare));
        const QRectF dot((size - diameter) / 2, (size - diameter) / 2, diameter, diameter);
        paintStatusDot(painter, dot, rim, icon.status);
        if (isBadge) {
            paintSign(painter, dot, icon.status);
        }
        return image;
    }
    const double margin = std::max(1, size / 16);
    const double plateHeight = std::round(size * digitHeightShare) + 2 * margin;
    paintNumber(painter, QRectF(0, size - plateHeight, size, plateHeight), margin, outlineOf(icon.number, font));
    // It may lie over the plate's edge: in the small icons each pixel of its size counts.
    const double diameter = evenDiameter(size, size - plateHeight + 1);
    paintStatusDot(painter, QRectF((size - diameter) / 2, 0, diameter, diameter), rim, icon.status);
    return image;
}

} // namespace skylet
