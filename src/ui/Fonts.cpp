#include "ui/Fonts.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPainter>
#include <QTextLayout>

#include <algorithm>
#include <array>
#include <cmath>

namespace skylet {

namespace {

bool isDigit(QChar character) {
    return character >= u'0' && character <= u'9';
}

} // namespace

QFont systemFont(double pixels, QFont::Weight weight) {
    QFont font = QGuiApplication::font();
    font.setPixelSize(static_cast<int>(std::lround(pixels)));
    font.setWeight(weight);
    return font;
}

TabularLine layOutTabular(const QString& text, const std::function<double(const QString&)>& advance) {
    std::array<double, 10> widths{};
    std::generate(widths.begin(), widths.end(), [&advance, digit = u'0']() mutable { return advance(QChar(digit++)); });
    const double widest = *std::max_element(widths.begin(), widths.end());
    TabularLine line;
    for (qsizetype i = 0; i < text.size();) {
        if (isDigit(text.at(i))) {
            const QString digit = text.mid(i, 1);
            line.runs.push_back({digit, {line.width + (widest - advance(digit)) / 2, 0}});
            line.width += widest;
            ++i;
            continue;
        }
        const auto end = std::find_if(text.cbegin() + i, text.cend(), isDigit) - text.cbegin();
        const QString rest = text.mid(i, end - i);
        line.runs.push_back({rest, {line.width, 0}});
        line.width += advance(rest);
        i = end;
    }
    return line;
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
