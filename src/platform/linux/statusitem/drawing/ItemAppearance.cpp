#include "platform/linux/statusitem/drawing/ItemAppearance.h"

#include "platform/desktop/TextDirection.h"

#include <QChar>

#include <algorithm>

namespace skylet {

namespace {

constexpr char16_t leftToRightMark = u'\u200E';

} // namespace

QString titleText(const StatusTitle& title) {
    QString text;
    bool rightToLeft = false;
    for (const TitleSegment& segment : title) {
        text += insideLeftToRight(segment.text);
        if (hasRightToLeft(segment.text)) {
            text += QChar(leftToRightMark);
            rightToLeft = true;
        }
    }
    const auto start =
        std::find_if_not(text.cbegin(), text.cend(), [](QChar character) { return character.isSpace(); });
    text.remove(0, start - text.cbegin());
    return rightToLeft ? QChar(leftToRightMark) + text : text;
}

ItemAppearance appearance(Presentation presentation, const StatusDisplay& display) {
    ItemAppearance result;
    result.icon.presentation = presentation;
    result.icon.status = display.status;
    StatusTitle described = display.title;
    std::erase_if(described, [](const TitleSegment& segment) { return segment.isTraffic; });
    result.description = titleText(described);
    // Where the text stands in the panel already, a tooltip that never changes costs no host anything.
    result.toolTipTitle = display.toolTip;
    switch (presentation) {
    case Presentation::label:
        result.label = titleText(display.title);
        result.labelGuide = result.label;
        std::replace_if(
            result.labelGuide.begin(), result.labelGuide.end(), [](QChar character) { return character.isDigit(); },
            QChar(u'0'));
        break;
    case Presentation::wide:
        // With the number as well: not every place of such a host has room for more than a badge.
        result.icon.number = display.number;
        result.icon.title = display.title;
        break;
    case Presentation::badge:
        result.icon.number = display.number;
        result.toolTipTitle = titleText(display.title);
        result.toolTipText = display.toolTip;
        break;
    }
    return result;
}

} // namespace skylet
