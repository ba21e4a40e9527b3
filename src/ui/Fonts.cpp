#include "ui/Fonts.h"

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

std::vector<TextRun> TabularFont::centered(const QRectF& area, const QString& text) {
    TabularLine line = layOutTabular(text, [this](const QString& part) { return advance(part); });
    const QPointF start(area.center().x() - line.width / 2,
                        area.center().y() + (metrics_.ascent() - metrics_.descent()) / 2);
    for (TextRun& run : line.runs) {
        run.place += start;
    }
    return line.runs;
}

double TabularFont::advance(const QString& text) {
    if (text.size() != 1) {
        return metrics_.horizontalAdvance(text);
    }
    // A single character is measured without shaping it, in a fraction of the time.
    const auto known = advances_.constFind(text);
    return known != advances_.cend() ? *known : *advances_.insert(text, metrics_.horizontalAdvance(text.front()));
}

void drawTabularCentered(QPainter& painter, const QRectF& area, const QString& text, const QFont& font) {
    painter.setFont(font);
    for (const auto& [part, place] : TabularFont(font).centered(area, text)) {
        painter.drawText(place, part);
    }
}

} // namespace skylet
