#pragma once

#include "platform/desktop/StatusDisplay.h"

#include <QFont>
#include <QImage>
#include <QString>

#include <vector>

class QPainter;
class QRectF;

namespace skylet {

/// The dot and the title set in one line, each segment in its own cut of a font and raised as it asks for. They stand
/// from left to right whatever is written in them, and where a segment wants digits of equal advance, each digit gets a
/// cell of its own, whatever the font's digits are like.
class TitleLine {
  public:
    /// `font` gives the shapes, the segments the sizes; `scale` is device pixels per logical pixel.
    TitleLine(Status status, const StatusTitle& title, const QFont& font, double scale);

    /// In device pixels.
    double width() const { return width_; }
    /// With the dot at `left` and the dot's middle, as the digits', at `middle`. Letters get the plate's text colour.
    void paint(QPainter& painter, double left, double middle) const;

  private:
    struct Piece {
        QString text;
        QFont font;
        double left = 0;
        double raise = 0;
    };

    void add(const TitleSegment& segment, QFont font, double scale);

    Status status_;
    double dotDiameter_;
    double width_;
    std::vector<Piece> pieces_;
    /// How far the baseline is below the middle of its digits.
    double belowMiddle_ = 0;
};

/// A dot with its darker edge, `rim` wide.
void paintStatusDot(QPainter& painter, const QRectF& area, double rim, Status status);

/// Logical pixels between a title and the edges of its plate.
inline constexpr double titlePlateMargin = 6;
inline constexpr double titlePlateHeight = 18;
/// The rounded ground of a title, filling `area`; `scale` as above.
void paintTitleGround(QPainter& painter, const QRectF& area, double scale);

/// A title on its plate, `height` device pixels high and as wide as it needs, at least as `leastWidth` logical pixels
/// for the title itself; cut where it would be too wide for any panel. The fonts have their own sizes below 44 pixels
/// of height, and there twice these, for screens of scale 2.
QImage paintTitlePlate(Status status, const StatusTitle& title, int height, const QFont& font, double leastWidth = 0);

/// The logical pixels that a title needs on a plate, whatever the scale.
double plateTitleWidth(const StatusTitle& title, const QFont& font);

} // namespace skylet
