#pragma once

#include "platform/desktop/TabularLine.h"

#include <QFont>
#include <QRectF>
#include <QString>

#include <vector>

class QPainter;

namespace skylet {

/// The desktop's general font in that size (logical pixels, rounded to a whole number) and weight.
QFont systemFont(double pixels, QFont::Weight weight = QFont::Normal);

/// The parts of a tabular line in the middle of `area`.
std::vector<TextRun> tabularCentered(const QRectF& area, const QString& text, const QFont& font);

/// Draws one line in the middle of `area`, with the painter's pen. What does not fit stands out on all sides alike.
void drawCentered(QPainter& painter, const QRectF& area, const QString& text, const QFont& font);
/// The same with digits of equal width.
void drawTabularCentered(QPainter& painter, const QRectF& area, const QString& text, const QFont& font);

} // namespace skylet
