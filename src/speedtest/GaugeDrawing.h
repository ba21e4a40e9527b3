#pragma once

#include "speedtest/SpeedTestDisplay.h"

#include <QColor>
#include <QFont>
#include <QHash>
#include <QPixmap>
#include <QRect>
#include <QRegion>
#include <QStaticText>
#include <QString>
#include <QTransform>

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

  private:
    void drawBackdrop(QPainter& painter, const QRegion& region);
    void drawNumber(QPainter& painter, double value);
    void drawCaption(QPainter& painter, const QString& caption, const QColor& accent);
    void useFont(const QFont& font);

    QRect area() const { return {0, 0, bounds_.width(), bounds_.height() + overhang()}; }

    const QSize bounds_;
    /// The desktop's font, for which all that is kept below was made.
    QFont font_;
    QFont numberFont_;
    QFont captionFont_;
    /// What does not change with the value, where and how the painter last put it on the screen.
    QPixmap backdrop_;
    QTransform backdropPlace_;
    struct Character {
        QStaticText text;
        double advance = 0;
    };
    QHash<QChar, Character> characters_;
    double digitWidth_ = 0;
    double numberBaseline_ = 0;
    QStaticText caption_;
};

} // namespace skylet
