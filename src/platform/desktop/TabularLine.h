#pragma once

#include <QPointF>
#include <QString>

#include <functional>
#include <vector>

namespace skylet {

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

} // namespace skylet
