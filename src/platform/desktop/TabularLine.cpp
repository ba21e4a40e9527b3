#include "platform/desktop/TabularLine.h"

#include <algorithm>

namespace skylet {

namespace {

bool isDigit(QChar character) {
    return character >= u'0' && character <= u'9';
}

} // namespace

TabularLine layOutTabular(const QString& text, const std::function<double(const QString&)>& advance) {
    double widest = 0;
    for (char16_t digit = u'0'; digit <= u'9'; ++digit) {
        widest = std::max(widest, advance(QChar(digit)));
    }
    TabularLine line;
    for (auto at = text.cbegin(); at != text.cend();) {
        const bool digit = isDigit(*at);
        const auto end = digit ? at + 1 : std::find_if(at, text.cend(), isDigit);
        const QString piece(at, end - at);
        const double width = advance(piece);
        const double room = digit ? widest : width;
        line.runs.push_back({piece, {line.width + (room - width) / 2, 0}});
        line.width += room;
        at = end;
    }
    return line;
}

} // namespace skylet
