#include "platform/linux/statusitem/drawing/TitleLine.h"

#include "platform/linux/statusitem/drawing/StatusColors.h"

#include <QFontMetricsF>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace skylet {

namespace {

// What the character for the dot covers of its font's size.
constexpr double dotShare = 5.0 / 6;
constexpr double dotRimShare = 1.0 / 12;
constexpr double plateRadius = 4;
// Logical pixels. The longest title of the program is half as wide.
constexpr double widestPlate = 640;
// What most panels give their icons on screens of scale 1.
constexpr double usualHeight = 22;

bool isDigit(QChar character) {
    return character >= u'0' && character <= u'9';
}

double widestDigit(const QFontMetricsF& metrics) {
    double widest = 0;
    for (char16_t digit = u'0'; digit <= u'9'; ++digit) {
        widest = std::max(widest, metrics.horizontalAdvance(QChar(digit)));
    }
    return widest;
}

} // namespace

TitleLine::TitleLine(const StatusTitle& title, const QFont& font, double scale) : baseFont_(font), scale_(scale) {
    for (const TitleSegment& segment : title) {
        if (segment.color) {
            addDot(segment);
        } else {
            addText(segment);
        }
    }
}

void TitleLine::addDot(const TitleSegment& segment) {
    dotColor_ = *segment.color;
    dotDiameter_ = std::round(segment.font.size * scale_ * dotShare);
    width_ += dotDiameter_;
}

void TitleLine::addText(const TitleSegment& segment) {
    // Letters are set on whole pixels; so a segment looks the same whatever stands before it.
    width_ = std::ceil(width_);
    QFont font = baseFont_;
    font.setPixelSize(std::max(1, static_cast<int>(std::lround(segment.font.size * scale_))));
    font.setWeight(segment.font.weight == FontWeight::medium ? QFont::Medium : QFont::Normal);
    drop_ = std::max(drop_, std::round(QFontMetricsF(font).capHeight() / 2));
    if (!segment.font.monospacedDigits) {
        addPiece(segment, font, segment.text);
        return;
    }
    const QFontMetricsF metrics(font);
    const double cell = widestDigit(metrics);
    QString other;
    const auto flush = [&] {
        addPiece(segment, font, other);
        other.clear();
    };
    for (const QChar character : segment.text) {
        if (!isDigit(character)) {
            other += character;
            continue;
        }
        flush();
        const double slack = cell - metrics.horizontalAdvance(character);
        width_ += slack / 2;
        addPiece(segment, font, QString(character));
        width_ += slack / 2;
    }
    flush();
}

void TitleLine::addPiece(const TitleSegment& segment, const QFont& font, const QString& text) {
    if (!text.isEmpty()) {
        // Half a pixel up is made a whole one.
        pieces_.push_back({text, font, width_, std::round(segment.baselineOffset * scale_)});
        width_ += QFontMetricsF(font).horizontalAdvance(text);
    }
}

void TitleLine::paint(QPainter& painter, double left, double middle) const {
    const double radius = dotDiameter_ / 2;
    paintStatusDot(painter, QRectF(left, middle - radius, dotDiameter_, dotDiameter_),
                   std::max(0.75, dotDiameter_ * dotRimShare), dotColor_);
    painter.setPen(plateTextColor());
    painter.setLayoutDirection(Qt::LeftToRight);
    const double baseline = std::round(middle + drop_);
    for (const Piece& piece : pieces_) {
        painter.setFont(piece.font);
        painter.drawText(QPointF(left + piece.left, baseline - piece.raise), piece.text);
    }
}

void paintStatusDot(QPainter& painter, const QRectF& area, double rim, DotColor color) {
    const DotShades shades = dotShades(color);
    painter.setPen(Qt::NoPen);
    painter.setBrush(shades.rim);
    painter.drawEllipse(area);
    painter.setBrush(shades.fill);
    painter.drawEllipse(area.adjusted(rim, rim, -rim, -rim));
}

void paintTitleGround(QPainter& painter, const QRectF& area, double scale) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(plateColor());
    painter.drawRoundedRect(area, plateRadius * scale, plateRadius * scale);
}

QImage paintTitlePlate(const StatusTitle& title, int height, const QFont& font) {
    const double scale = std::max(1.0, std::floor(height / usualHeight));
    const TitleLine line(title, font, scale);
    const double margin = titlePlateMargin * scale;
    const double width = std::min(std::ceil(line.width() + 2 * margin), widestPlate * scale);
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

} // namespace skylet
