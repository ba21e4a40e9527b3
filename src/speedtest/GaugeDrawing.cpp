#include "speedtest/GaugeDrawing.h"

#include "speedtest/GaugeScale.h"
#include "ui/Fonts.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QPen>
#include <QPolygonF>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace skylet {

QColor toColor(const GaugeColor& color) {
    return QColor::fromRgbF(static_cast<float>(color.red), static_cast<float>(color.green),
                            static_cast<float>(color.blue));
}

QColor whiteWithAlpha(double alpha) {
    return QColor::fromRgbF(1, 1, 1, static_cast<float>(alpha));
}

namespace {

constexpr GaugeColor backgroundColor{0.08, 0.09, 0.12};

/// What translucent white makes of the background. An opaque colour looks the same and costs half as much: Qt hands
/// translucent shapes to several threads, which pays for larger pictures only.
QColor whiteOnBackground(double alpha) {
    const auto part = [alpha](double behind) { return alpha + (1 - alpha) * behind; };
    return toColor({part(backgroundColor.red), part(backgroundColor.green), part(backgroundColor.blue)});
}

// Lengths of the drawing, in logical pixels.
constexpr double centerDrop = 10;
constexpr double radiusShare = 0.36;
constexpr double arcWidth = 14;
constexpr double hubRadius = 6;
/// Below this share of the sweep the round caps alone would show, as a dot at zero.
constexpr double leastDrawnFraction = 0.005;
/// What smoothed edges and glyphs wider than their cells may reach beyond their outlines.
constexpr double edge = 2;
constexpr double glyphEdge = 10;

/// The places of a gauge within bounds of that size: y grows downward, the origin is the top left corner.
class Dial {
  public:
    explicit Dial(const QSizeF& bounds)
        : center_(bounds.width() / 2, bounds.height() / 2 + centerDrop), width_(bounds.width()),
          radius_(radiusShare * std::min(bounds.width(), bounds.height())) {}

    QPointF center() const { return center_; }
    double radius() const { return radius_; }
    QPointF at(double degrees, double distance) const {
        const double radians = degrees * std::numbers::pi / 180;
        return center_ + QPointF(distance * std::cos(radians), -distance * std::sin(radians));
    }
    QPainterPath arc(double sweep) const {
        const QRectF square(center_.x() - radius_, center_.y() - radius_, 2 * radius_, 2 * radius_);
        QPainterPath path;
        path.arcMoveTo(square, gauge::startAngle);
        path.arcTo(square, gauge::startAngle, -sweep);
        return path;
    }
    /// Both need a margin for their smoothed edges.
    QRectF arcArea() const { return around(center_, radius_ + arcWidth / 2); }
    QPolygonF needle(double value) const {
        const double angle = gauge::angle(value);
        return {at(angle - 90, 3), at(angle, radius_ - 24), at(angle + 90, 3)};
    }
    QRectF numberArea() const { return {0, center_.y() + radius_ - 18, width_, 48}; }
    /// The upper part of the 16 that the unit has: the captions of the results are close beneath.
    QRectF unitLine() const { return {0, center_.y() + radius_ + 32, width_, 10}; }
    QRectF captionArea() const { return {0, center_.y() - 0.35 * radius_ - 16, width_, 16}; }

    static QRectF around(QPointF middle, double distance) {
        return {middle.x() - distance, middle.y() - distance, 2 * distance, 2 * distance};
    }

  private:
    QPointF center_;
    double width_;
    double radius_;
};

QPen arcPen(const QColor& color) {
    return {color, arcWidth, Qt::SolidLine, Qt::RoundCap};
}

void drawTicks(QPainter& painter, const Dial& dial) {
    const QFont font = systemFont(9, QFont::Medium);
    for (const int tick : gauge::ticks) {
        const double angle = gauge::angle(tick);
        painter.setPen(QPen(whiteWithAlpha(0.35), 1.5, Qt::SolidLine, Qt::FlatCap));
        painter.drawLine(QLineF(dial.at(angle, dial.radius() - 14), dial.at(angle, dial.radius() - 20)));
        painter.setPen(whiteWithAlpha(0.5));
        // An area without extent: the label stands around its middle.
        drawCentered(painter, QRectF(dial.at(angle, dial.radius() - 34), QSizeF()), QString::number(tick), font);
    }
}

/// The outermost pixels that a shape in `area` touches.
QRect touched(const QRectF& area, double margin = edge) {
    return area.adjusted(-margin, -margin, margin, margin).toAlignedRect();
}

/// Where the arc's end passes from one share of the sweep to another.
QRegion swept(const Dial& dial, double from, double to) {
    // In pieces: a rectangle around a long arc has much in it that stays as it is.
    constexpr double piece = 0.1;
    constexpr int samples = 6;
    QRegion region;
    const double end = std::max(from, to);
    for (double start = std::min(from, to); start < end; start += piece) {
        const double length = std::min(piece, end - start);
        QRectF area;
        for (int i = 0; i <= samples; ++i) {
            const double fraction = start + length * i / samples;
            area |= Dial::around(dial.at(gauge::startAngle - gauge::sweep * fraction, dial.radius()), arcWidth / 2);
        }
        region += touched(area);
    }
    return region;
}

double drawnFraction(double value) {
    const double fraction = gauge::fraction(value);
    return fraction > leastDrawnFraction ? fraction : 0;
}

} // namespace

QColor panelBackground() {
    return toColor(backgroundColor);
}

int GaugeDrawing::overhang() const {
    // No further than needed, so that the captions beneath are not painted again with each frame.
    constexpr double descender = 4;
    const double unitBottom = Dial(bounds_).unitLine().bottom() + descender;
    return std::max(0, static_cast<int>(std::ceil(unitBottom)) - bounds_.height());
}

void GaugeDrawing::draw(QPainter& painter, const QRegion& region, double value, const QString& caption,
                        const QColor& accent) {
    const Dial dial{QSizeF(bounds_)};
    useFont(QGuiApplication::font());
    painter.setRenderHint(QPainter::Antialiasing);
    drawBackdrop(painter, region);
    const double fraction = drawnFraction(value);
    if (fraction > 0) {
        painter.strokePath(dial.arc(gauge::sweep * fraction), arcPen(accent));
    }
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::white);
    painter.drawPolygon(dial.needle(value));
    painter.setBrush(accent);
    painter.drawEllipse(dial.center(), hubRadius, hubRadius);
    if (region.intersects(touched(dial.numberArea(), glyphEdge))) {
        drawNumber(painter, value);
    }
    if (region.intersects(touched(dial.captionArea(), glyphEdge))) {
        drawCaption(painter, caption, accent);
    }
}

QRegion GaugeDrawing::difference(double from, double to) const {
    const Dial dial{QSizeF(bounds_)};
    const double before = drawnFraction(from);
    const double after = drawnFraction(to);
    // More than a turn beyond the scale, or no number at all.
    if (!(std::max(before, after) < 2)) {
        return area();
    }
    QRegion region = swept(dial, before, after);
    for (const double value : {from, to}) {
        region += touched(dial.needle(value).boundingRect());
    }
    if (gauge::number(from) != gauge::number(to)) {
        region += touched(dial.numberArea(), 0);
    }
    return region & area();
}

void GaugeDrawing::useFont(const QFont& font) {
    if (digitWidth_ > 0 && font == font_) {
        return;
    }
    font_ = font;
    backdrop_ = QPixmap();
    caption_ = QStaticText();
    characters_.clear();
    numberFont_ = systemFont(40, QFont::DemiBold);
    captionFont_ = systemFont(11, QFont::Bold);
    captionFont_.setLetterSpacing(QFont::AbsoluteSpacing, 2);
    const QFontMetricsF metrics(numberFont_);
    digitWidth_ = 0;
    for (char16_t digit = u'0'; digit <= u'9'; ++digit) {
        digitWidth_ = std::max(digitWidth_, metrics.horizontalAdvance(QChar(digit)));
    }
    numberBaseline_ = (metrics.ascent() - metrics.descent()) / 2;
}

void GaugeDrawing::drawBackdrop(QPainter& painter, const QRegion& region) {
    // In pixels of the screen, also where a logical pixel has a fraction of one too much: painted there by way of the
    // same transformation, and copied pixel by pixel.
    const QTransform toDevice = painter.deviceTransform();
    const QRect place = toDevice.mapRect(QRectF(area())).toAlignedRect();
    if (backdrop_.isNull() || toDevice != backdropPlace_) {
        backdropPlace_ = toDevice;
        backdrop_ = QPixmap(place.size());
        backdrop_.fill(panelBackground());
        QPainter backdrop(&backdrop_);
        backdrop.setRenderHint(QPainter::Antialiasing);
        backdrop.setTransform(toDevice * QTransform::fromTranslate(-place.x(), -place.y()));
        const Dial dial{QSizeF(bounds_)};
        backdrop.strokePath(dial.arc(gauge::sweep), arcPen(whiteOnBackground(0.1)));
        drawTicks(backdrop, dial);
        backdrop.setPen(whiteWithAlpha(0.6));
        drawCentered(backdrop, dial.unitLine(), QStringLiteral("Mbps"), systemFont(12, QFont::Medium));
    }
    painter.save();
    painter.setTransform(toDevice.inverted(), true);
    for (const QRect& part : region) {
        const QRect pixels = toDevice.mapRect(QRectF(part)).toAlignedRect() & place;
        painter.drawPixmap(pixels.topLeft(), backdrop_, pixels.translated(-place.topLeft()));
    }
    painter.restore();
}

void GaugeDrawing::drawNumber(QPainter& painter, double value) {
    const QString number = gauge::number(value);
    double width = 0;
    for (const QChar character : number) {
        Character& known = characters_[character];
        if (known.advance == 0) {
            known.text = QStaticText(QString(character));
            known.text.setTextFormat(Qt::PlainText);
            known.text.prepare({}, numberFont_);
            known.advance = QFontMetricsF(numberFont_).horizontalAdvance(character);
        }
        width += character.isDigit() ? digitWidth_ : known.advance;
    }
    const QRectF area = Dial(bounds_).numberArea();
    QPointF place(area.center().x() - width / 2,
                  area.center().y() + numberBaseline_ - QFontMetricsF(numberFont_).ascent());
    painter.setFont(numberFont_);
    painter.setPen(Qt::white);
    for (const QChar character : number) {
        const Character& known = characters_[character];
        const double cell = character.isDigit() ? digitWidth_ : known.advance;
        painter.drawStaticText(place + QPointF((cell - known.advance) / 2, 0), known.text);
        place += QPointF(cell, 0);
    }
}

void GaugeDrawing::drawCaption(QPainter& painter, const QString& caption, const QColor& accent) {
    painter.setPen(accent);
    drawCentered(painter, Dial(bounds_).captionArea(), caption, captionFont_);
}

} // namespace skylet
