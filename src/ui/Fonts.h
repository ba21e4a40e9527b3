#pragma once

#include "platform/desktop/TabularLine.h"

#include <QFont>
#include <QFontMetricsF>
#include <QHash>
#include <QRectF>
#include <QString>

#include <vector>

class QPainter;

namespace skylet {

/// The desktop's general font in that size (logical pixels, rounded to a whole number) and weight.
QFont systemFont(double pixels, QFont::Weight weight = QFont::Normal);

/// Lays out lines with digits of equal width. Measures each character once, which takes Qt longer than the rest.
class TabularFont {
  public:
    explicit TabularFont(const QFont& font) : font_(font), metrics_(font) {}

    const QFont& font() const { return font_; }
    /// The parts of a line in the middle of `area`.
    std::vector<TextRun> centered(const QRectF& area, const QString& text);

  private:
    double advance(const QString& text);

    QFont font_;
    QFontMetricsF metrics_;
    QHash<QString, double> advances_;
};

/// Draws one line in the middle of `area`, with the painter's pen. What does not fit stands out on all sides alike.
void drawCentered(QPainter& painter, const QRectF& area, const QString& text, const QFont& font);
/// The same with digits of equal width.
void drawTabularCentered(QPainter& painter, const QRectF& area, const QString& text, const QFont& font);

} // namespace skylet
