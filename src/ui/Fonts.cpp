#include "ui/Fonts.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPainter>
#include <QTextLayout>

#include <cmath>

namespace skylet {

QFont systemFont(double pixels, QFont::Weight weight) {
    QFont font = QGuiApplication::font();
    font.setPixelSize(static_cast<int>(std::lround(pixels)));
    font.setWeight(weight);
    return font;
}

void drawCentered(QPainter& painter, const QRectF& area, const QString& text, const QFont& font) {
    // Measured and drawn from one shaping of the text, which is what costs the time.
    QTextLayout layout(text, font, painter.device());
    layout.beginLayout();
    QTextLine line = layout.createLine();
    layout.endLayout();
    if (line.isValid()) {
        const double baseline = area.center().y() + (line.ascent() - line.descent()) / 2;
        line.draw(&painter, QPointF(area.center().x() - line.naturalTextWidth() / 2, baseline - line.ascent()));
    }
}

std::vector<TextRun> tabularCentered(const QRectF& area, const QString& text, const QFont& font) {
    const QFontMetricsF metrics(font);
    TabularLine line = layOutTabular(text, [&metrics](const QString& part) {
        // A single character is measured without shaping it, in a fraction of the time.
        return part.size() == 1 ? metrics.horizontalAdvance(part.front()) : metrics.horizontalAdvance(part);
    });
    const QPointF start(area.center().x() - line.width / 2,
                        area.center().y() + (metrics.ascent() - metrics.descent()) / 2);
    for (TextRun& run : line.runs) {
        run.place += start;
    }
    return line.runs;
}

void drawTabularCentered(QPainter& painter, const QRectF& area, const QString& text, const QFont& font) {
    painter.setFont(font);
    for (const auto& [part, place] : tabularCentered(area, text, font)) {
        painter.drawText(place, part);
    }
}

} // namespace skylet
