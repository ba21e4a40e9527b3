#include "platform/linux/statusitem/drawing/TitleLine.h"

#include "platform/desktop/TabularLine.h"
#include "platform/desktop/TextDirection.h"
#include "platform/linux/statusitem/drawing/StatusColors.h"

#include <QFontMetricsF>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace skylet {

namespace {

// What a dot covers that is set as a character of 12 pixels. Logical pixels.
constexpr double dotDiameter = 10;
constexpr double dotRimShare = 1.0 / 12;
constexpr double plateRadius = 4;
// Logical pixels. The longest title of the program is half as wide.
constexpr double widestPlate = 640;
// What most panels give their icons on screens of scale 1.
constexpr double usualHeight = 22;

} // namespace

TitleLine::TitleLine(Status status, const StatusTitle& title, const QFont& font, double scale)
    : status_(status), dotDiameter_(std::round(dotDiameter * scale)), width_(dotDiameter_) {
    for (const TitleSegment& segment : title) {
        add(segment, font, scale);
    }
}

void TitleLine::add(const TitleSegment& segment, QFont font, double scale) {
    // Letters are set on whole pixels; so a segment looks the same whatever stands before it.
    width_ = std::ceil(width_);
    font.setPixelSize(std::max(1, static_cast<int>(std::lround(segment.font.size * scale))));
    font.setWeight(segment.font.weight == FontWeight::medium ? QFont::Medium : QFont::Normal);
    const QFontMetricsF metrics(font);
    belowMiddle_ = std::max(belowMiddle_, std::round(metrics.capHeight() / 2));
    // Half a pixel up is made a whole one.
    const double raise = std::round(segment.baselineOffset * scale);
    const auto advance = [&metrics](const QString& text) { return metrics.horizontalAdvance(text); };
    const QString text = insideLeftToRight(segment.text);
    TabularLine line{{{text, {}}}, advance(text)};
    if (segment.font.monospacedDigits) {
        line = layOutTabular(text, advance);
    }
    for (const TextRun& run : line.runs) {
        pieces_.push_back({run.text, font, width_ + run.place.x(), raise});
    }
    width_ += line.width;
}

void TitleLine::paint(QPainter& painter, double left, double middle) const {
    const double radius = dotDiameter_ / 2;
    paintStatusDot(painter, QRectF(left, middle - radius, dotDiameter_, dotDiameter_),
                   std::max(0.75, dotDiameter_ * dotRimShare), status_);
    painter.setPen(plateTextColor);
    painter.setLayoutDirection(Qt::LeftToRight);
    const double baseline = std::round(middle + belowMiddle_);
    for (const Piece& piece : pieces_) {
        painter.setFont(piece.font);
        painter.drawText(QPointF(left + piece.left, baseline - piece.raise), piece.text);
    }
}

void paintStatusDot(QPainter& painter, const QRectF& area, double rim, Status status) {
    const DotShades shades = dotShades(status);
    painter.setPen(Qt::NoPen);
    painter.setBrush(shades.rim);
    painter.drawEllipse(area);
    painter.setBrush(shades.fill);
    painter.drawEllipse(area.adjusted(rim, rim, -rim, -rim));
}

void paintTitleGround(QPainter& painter, const QRectF& area, double scale) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(plateColor);
    painter.drawRoundedRect(area, plateRadius * scale, plateRadius * scale);
}

QImage paintTitlePlate(Status status, const StatusTitle& title, int height, const QFont& font, double leastWidth) {
    const double scale = std::max(1.0, std::floor(height / usualHeight));
    const TitleLine line(status, title, font, scale);
    const double margin = titlePlateMargin * scale;
    const double titleWidth = std::max(line.width(), leastWidth * scale);
    const double width = std::min(std::ceil(titleWidth + 2 * margin), widestPlate * scale);
    QImage image(static_cast<int>(width), height, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const double plateHeight = std::min<double>(height, titlePlateHeight * scale);
    const QRectF plate(0, std::floor((height - plateHeight) / 2), width, plateHeight);
    paintTitleGround(painter, plate, scale);
    painter.setClipRect(plate.adjusted(margin, 0, -margin / 2, 0));
    line.paint(painter, margin, plate.center().y());
    return image;
}

double plateTitleWidth(const StatusTitle& title, const QFont& font) {
    const auto width = [&](double scale) { return TitleLine(Status::checking, title, font, scale).width() / scale; };
    return std::max(width(1), width(2));
}

} // namespace skylet
