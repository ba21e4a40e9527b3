#pragma once

#include "speedtest/SpeedTestDisplay.h"
#include "ui/Fonts.h"

#include <QColor>
#include <QFont>
#include <QHash>
#include <QPixmap>
#include <QPoint>
#include <QPointF>
#include <QRect>
#include <QRegion>
#include <QStaticText>
#include <QString>
#include <QTransform>

#include <optional>
#include <utility>

class QPainter;

namespace skylet {

QColor toColor(const GaugeColor& color);
QColor whiteWithAlpha(double alpha);
/// Of the gauge and of the window around it.
QColor panelBackground();

/// Draws a gauge: an arc with ticks, a needle, the number with its unit, and a caption. A frame costs what changes in
/// it: what always looks the same is kept as a picture in the pixels of the screen, and texts are laid out once.
class GaugeDrawing {
  public:
    /// `bounds`: logical pixels, the origin at the top left corner, y downward. The unit may stand out below them.
    explicit GaugeDrawing(QSize bounds) : bounds_(bounds) {}

    /// How far the unit's text reaches below the bounds.
    int overhang() const;

    /// Draws what lies in `region`, to which the painter is clipped. `value`: Mbit/s.
    void draw(QPainter& painter, const QRegion& region, double value, const QString& caption, const QColor& accent);

    /// Where the pictures of two values may differ; logical pixels.
    QRegion difference(double from, double to) const;

    /// Gives back the memory of what is kept between frames.
    void forget();

  private:
    void paintBackdrop(const QTransform& toScreen);
    void copyBackdrop(QPainter& painter, const QRegion& region);
    void drawNumber(QPainter& painter, const QRectF& area, const QString& number);
    /// `painter` in pixels of the screen, `place` in logical ones.
    void drawGlyph(QPainter& painter, const QString& text, QPointF place);
    void drawCaption(QPainter& painter, const QPointF& middle, const QString& caption);

    QRect onScreen(const QRect& logical) const;
    QRect area() const { return {0, 0, bounds_.width(), bounds_.height() + overhang()}; }

    const QSize bounds_;
    /// What does not change with the value, in pixels of the screen, with the transformation and the desktop's font for
    /// which it was painted: where a logical pixel is not a whole number of them, a picture in logical pixels would
    /// blur.
    QPixmap backdrop_;
    QTransform toScreen_;
    QFont font_;
    QRect backdropArea_;
    /// Characters of the number by where between two pixels they begin: Qt outlines glyphs of that size anew each time.
    struct Glyph {
        QPixmap picture;
        QPoint offset;
    };
    QHash<std::pair<QString, int>, Glyph> glyphs_;
    // Kept between frames: Qt looks up anew how to draw a font that has just been made.
    std::optional<TabularFont> numberFont_;
    QFont captionFont_;
    QStaticText caption_;
};

} // namespace skylet
