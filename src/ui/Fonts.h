#pragma once

#include <QFont>
#include <QPointF>
#include <QRectF>
#include <QString>

#include <functional>
#include <vector>

class QPainter;

namespace skylet {

/// The desktop's general font in that size (logical pixels, rounded to a whole number) and weight.
QFont systemFont(double pixels, QFont::Weight weight = QFont::Normal);

/// A part of a line of text and where it begins: the left end of its baseline.
struct TextRun {
    QString text;
    QPointF place;
};

/// A line of text laid out so that all digits take the same room, each in the middle of a cell as wide as the widest
/// digit: a number that changes does not jitter, whatever the font.
struct TabularLine {
    std::vector<TextRun> runs;
    double width = 0;
};

/// The line from the origin on. `advance`: how wide a text is.
TabularLine layOutTabular(const QString& text, const std::function<double(const QString&)>& advance);

/// The parts of such a line in the middle of `area`.
std::vector<TextRun> tabularCentered(const QRectF& area, const QString& text, const QFont& font);

/// Draws one line in the middle of `area`, with the painter's pen. What does not fit stands out on all sides alike.
void drawCentered(QPainter& painter, const QRectF& area, const QString& text, const QFont& font);
/// The same with digits of equal width.
void drawTabularCentered(QPainter& painter, const QRectF& area, const QString& text, const QFont& font);

} // namespace skylet
