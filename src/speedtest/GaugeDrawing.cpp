#include "speedtest/GaugeDrawing.h"

#include "speedtest/GaugeScale.h"
#include "ui/Fonts.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QPen>
#include <QPolygonF>
#include <QStaticText>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

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
constexpr double numberPixels = 40;
/// What smoothed edges and glyphs wider than their cells may reach beyond their outlines.
constexpr double edge = 2;
constexpr double glyphEdge = 10;

/// The outermost pixels that a shape in `area` touches.
QRect touched(const QRectF& area, double margin = edge) {
    return area.adjusted(-margin, -margin, margin, margin).toAlignedRect();
}

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
    /// From one share of the sweep to another.
    QPainterPath arc(double from, double to) const {
        const QRectF square = around(center_, radius_);
        const double start = gauge::startAngle - gauge::sweep * from;
        QPainterPath path;
        path.arcMoveTo(square, start);
        path.arcTo(square, start, -gauge::sweep * (to - from));
        return path;
    }
    /// Where an arc no longer than a piece is seen, with its round ends.
    QRect arcArea(double from, double to) const {
        constexpr int samples = 6;
        QRectF area;
        for (int i = 0; i <= samples; ++i) {
            const double degrees = gauge::startAngle - gauge::sweep * (from + (to - from) * i / samples);
            area |= around(at(degrees, radius_), arcWidth / 2);
        }
        return touched(area);
    }
    QRectF hubArea() const { return around(center_, hubRadius); }
    QPolygonF needle(double value) const {
        const double angle = gauge::angle(value);
        return {at(angle - 90, 3), at(angle, radius_ - 24), at(angle + 90, 3)};
    }
    QRectF numberArea() const { return {0, center_.y() + radius_ - 18, width_, 48}; }
    /// Where a number of so many characters is seen: none of them is wider than the font's size.
    QRect numberArea(qsizetype characters) const {
        const double room = numberPixels * static_cast<double>(characters) + 2 * glyphEdge;
        return touched({center_.x() - room / 2, numberArea().y(), room, numberArea().height()}, 0);
    }
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

/// Calls `visit` with the ends of each piece of the arc between two shares of the sweep. The same pieces wherever the
/// arc begins and ends, and overlapping in their round ends: drawn alone, each looks as it does among the others.
template <typename Visit>
void forEachPiece(double from, double to, const Visit& visit) {
    constexpr int pieces = 10;
    for (int i = static_cast<int>(from * pieces); i < to * pieces; ++i) {
        visit(static_cast<double>(i) / pieces, std::min(to, static_cast<double>(i + 1) / pieces));
    }
}

/// Beyond this the arc has closed to a ring, and looks the same.
constexpr double mostDrawnFraction = 2;

double drawnFraction(double value) {
    const double fraction = gauge::fraction(value);
    return fraction > leastDrawnFraction ? std::min(fraction, mostDrawnFraction) : 0;
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
    paintBackdrop(painter.deviceTransform());
    copyBackdrop(painter, region);
    painter.setRenderHint(QPainter::Antialiasing);
    const Dial dial{QSizeF(bounds_)};
    const auto shows = [&region](const QRectF& area, double margin) {
        return region.intersects(touched(area, margin));
    };
    forEachPiece(0, drawnFraction(value), [&](double from, double to) {
        if (region.intersects(dial.arcArea(from, to))) {
            painter.strokePath(dial.arc(from, to), arcPen(accent));
        }
    });
    painter.setPen(Qt::NoPen);
    const QPolygonF needle = dial.needle(value);
    // An infinite speed points nowhere.
    if (std::isfinite(gauge::angle(value)) && shows(needle.boundingRect(), edge)) {
        painter.setBrush(Qt::white);
        painter.drawPolygon(needle);
    }
    if (shows(dial.hubArea(), edge)) {
        painter.setBrush(accent);
        painter.drawEllipse(dial.hubArea());
    }
    if (shows(dial.numberArea(), glyphEdge)) {
        drawNumber(painter, dial.numberArea(), gauge::number(value));
    }
    if (shows(dial.captionArea(), glyphEdge)) {
        painter.setPen(accent);
        drawCaption(painter, dial.captionArea().center(), caption);
    }
}

QRegion GaugeDrawing::difference(double from, double to) const {
    const Dial dial{QSizeF(bounds_)};
    const double before = drawnFraction(from);
    const double after = drawnFraction(to);
    if (std::max(before, after) >= mostDrawnFraction) {
        return area();
    }
    QRegion region;
    // Pieces as a whole: one that grows is rounded a little differently all along.
    forEachPiece(std::min(before, after), std::max(before, after),
                 [&](double start, double end) { region += dial.arcArea(start, end); });
    region += touched(dial.needle(from).boundingRect() | dial.needle(to).boundingRect());
    const QString numberBefore = gauge::number(from);
    const QString numberAfter = gauge::number(to);
    if (numberBefore != numberAfter) {
        region += dial.numberArea(std::max(numberBefore.size(), numberAfter.size()));
    }
    return region & area();
}

void GaugeDrawing::paintBackdrop(const QTransform& toScreen) {
    const QFont font = QGuiApplication::font();
    if (!backdrop_.isNull() && toScreen == toScreen_ && font == font_) {
        return;
    }
    forget();
    toScreen_ = toScreen;
    font_ = font;
    numberFont_.emplace(systemFont(numberPixels, QFont::DemiBold));
    captionFont_ = systemFont(11, QFont::Bold);
    captionFont_.setLetterSpacing(QFont::AbsoluteSpacing, 2);
    backdropArea_ = onScreen(area());
    backdrop_ = QPixmap(backdropArea_.size());
    backdrop_.fill(panelBackground());
    QPainter painter(&backdrop_);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setTransform(toScreen * QTransform::fromTranslate(-backdropArea_.x(), -backdropArea_.y()));
    const Dial dial{QSizeF(bounds_)};
    forEachPiece(
        0, 1, [&](double from, double to) { painter.strokePath(dial.arc(from, to), arcPen(whiteOnBackground(0.1))); });
    drawTicks(painter, dial);
    painter.setPen(whiteWithAlpha(0.6));
    drawCentered(painter, dial.unitLine(), QStringLiteral("Mbps"), systemFont(12, QFont::Medium));
}

void GaugeDrawing::copyBackdrop(QPainter& painter, const QRegion& region) {
    // Within a clip of any other shape than a rectangle, and from 96 rows on, Qt copies on several threads, and waking
    // them costs more than the copying.
    constexpr int rows = 64;
    painter.save();
    painter.setTransform(toScreen_.inverted(), true);
    for (const QRect& part : region) {
        const QRect pixels = onScreen(part) & backdropArea_;
        painter.setClipRect(pixels);
        for (int y = pixels.top(); y <= pixels.bottom(); y += rows) {
            const QRect strip = pixels & QRect(pixels.x(), y, pixels.width(), rows);
            painter.drawPixmap(strip.topLeft(), backdrop_, strip.translated(-backdropArea_.topLeft()));
        }
    }
    painter.restore();
}

QRect GaugeDrawing::onScreen(const QRect& logical) const {
    return toScreen_.mapRect(QRectF(logical)).toAlignedRect();
}

void GaugeDrawing::drawNumber(QPainter& painter, const QRectF& area, const QString& number) {
    const QTransform logical = painter.transform();
    painter.setTransform(toScreen_.inverted(), true);
    // Within a rectangle, where it is one, pictures are drawn in half the time.
    painter.setClipRect(onScreen(touched(area, glyphEdge)));
    for (const auto& [glyph, place] : numberFont_->centered(area, number)) {
        drawGlyph(painter, glyph, place);
    }
    painter.setClipping(false);
    painter.setTransform(logical);
}

void GaugeDrawing::drawGlyph(QPainter& painter, const QString& text, QPointF place) {
    constexpr int most = 64;
    constexpr int steps = 16;
    const QPointF exact = toScreen_.map(place);
    const QPoint pixel(static_cast<int>(std::floor(exact.x())), static_cast<int>(std::floor(exact.y())));
    const auto key = std::pair(text, static_cast<int>((exact.x() - pixel.x()) * steps));
    if (!glyphs_.contains(key)) {
        const QRect pixels = onScreen(touched(QFontMetricsF(numberFont_->font()).boundingRect(text).translated(place)));
        Glyph glyph{QPixmap(pixels.size()), pixels.topLeft() - pixel};
        glyph.picture.fill(Qt::transparent);
        QPainter inside(&glyph.picture);
        inside.setRenderHint(QPainter::Antialiasing);
        inside.setTransform(toScreen_ * QTransform::fromTranslate(-pixels.x(), -pixels.y()));
        inside.setFont(numberFont_->font());
        inside.setPen(Qt::white);
        inside.drawText(place, text);
        inside.end();
        if (glyphs_.size() >= most) {
            glyphs_.clear();
        }
        glyphs_.insert(key, glyph);
    }
    const Glyph& glyph = glyphs_[key];
    painter.drawPixmap(pixel + glyph.offset, glyph.picture);
}

void GaugeDrawing::drawCaption(QPainter& painter, const QPointF& middle, const QString& caption) {
    if (caption_.text() != caption) {
        caption_ = QStaticText(caption);
        caption_.setTextFormat(Qt::PlainText);
        caption_.prepare({}, captionFont_);
    }
    painter.setFont(captionFont_);
    painter.drawStaticText(middle - QPointF(caption_.size().width(), QFontMetricsF(captionFont_).height()) / 2,
                           caption_);
}

void GaugeDrawing::forget() {
    backdrop_ = QPixmap();
    glyphs_.clear();
    caption_ = QStaticText();
}

} // namespace skylet
