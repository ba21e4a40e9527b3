#include "ui/Fonts.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPainter>
#include <QTextLayout>

#include <algorithm>
#include <cmath>

namespace skylet {

namespace {

bool isDigit(QChar character) {
    return character >= u'0' && character <= u'9';
}

/// The baseline of a line whose ascent and descent lie in the middle of `area`.
double centeredBaseline(const QRectF& area, const QFontMetricsF& metrics) {
    return area.center().y() + (metrics.ascent() - metrics.descent()) / 2;
}

} // namespace

QFont systemFont(double pixels, QFont::Weight weight) {
    QFont font = QGuiApplication::font();
    font.setPixelSize(static_cast<int>(std::lround(pixels)));
    font.setWeight(weight);
    return font;
}

TabularLine layOutTabular(const QString& text, const Advances& advances) {
    double narrowest = advances.digit(u'0');
    double widest = narrowest;
    for (char16_t digit = u'1'; digit <= u'9'; ++digit) {
        const double width = advances.digit(digit);
        narrowest = std::min(narrowest, width);
        widest = std::max(widest, width);
    }
    if (narrowest == widest || std::none_of(text.cbegin(), text.cend(), isDigit)) {
        return {{{text, 0}}, advances.text(text)};
    }
    TabularLine line;
    for (qsizetype i = 0; i < text.size();) {
        if (isDigit(text.at(i))) {
            line.runs.push_back({text.mid(i, 1), line.width + (widest - advances.digit(text.at(i))) / 2});
            line.width += widest;
            ++i;
            continue;
        }
        const auto end = std::find_if(text.cbegin() + i, text.cend(), isDigit) - text.cbegin();
        const QString rest = text.mid(i, end - i);
        line.runs.push_back({rest, line.width});
        line.width += advances.text(rest);
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

void drawTabularCentered(QPainter& painter, const QRectF& area, const QString& text, const QFont& font) {
    const QFontMetricsF metrics(font);
    const TabularLine line =
        layOutTabular(text, {[&metrics](QChar digit) { return metrics.horizontalAdvance(digit); },
                             [&metrics](const QString& part) { return metrics.horizontalAdvance(part); }});
    const QPointF start(area.center().x() - line.width / 2, centeredBaseline(area, metrics));
    painter.setFont(font);
    for (const TextRun& run : line.runs) {
        painter.drawText(start + QPointF(run.x, 0), run.text);
    }
}

} // namespace skylet
