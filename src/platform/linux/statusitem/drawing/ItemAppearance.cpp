#include "platform/linux/statusitem/drawing/ItemAppearance.h"

#include "platform/desktop/TextDirection.h"

#include <QChar>

#include <algorithm>

namespace skylet {

namespace {

constexpr char16_t leftToRightMark = u'\u200E';

/// All that follows the dot, without the gap after it. A host lays the text out as a whole, in a direction of its own
/// choice; where a part runs from right to left, marks keep the parts themselves in their order from left to right.
QString textAfterDot(const StatusTitle& title) {
    QString text;
    bool rightToLeft = false;
    for (std::size_t index = 1; index < title.size(); ++index) {
        const QString& part = title[index].text;
        text += part;
        if (hasRightToLeft(part)) {
            text += QChar(leftToRightMark);
            rightToLeft = true;
        }
    }
    const auto start =
        std::find_if_not(text.cbegin(), text.cend(), [](QChar character) { return character.isSpace(); });
    text.remove(0, start - text.cbegin());
    return rightToLeft ? QChar(leftToRightMark) + text : text;
}

DotColor dotColor(const StatusTitle& title) {
    return title.empty() ? DotColor::systemGray : title.front().color.value_or(DotColor::systemGray);
}

/// The figure in the second segment; empty when that is not a bare figure but a state word or a banner.
QString numberIn(const StatusTitle& title) {
    if (title.size() < 2) {
        return {};
    }
    const QString text = title[1].text.trimmed();
    const bool figure = std::all_of(text.cbegin(), text.cend(), [](QChar character) {
        return (character >= u'0' && character <= u'9') || character == u'.';
    });
    return figure ? text : QString();
}

/// A banner stands in another font than the state words. It replaces the number for a while, but says nothing of the
/// state, so its dot stays plain.
bool hasStateWord(const StatusTitle& title) {
    return title.size() == 2 && title[1].font.monospacedDigits;
}

DotSign signFor(DotColor color) {
    switch (color) {
    case DotColor::systemYellow:
        return DotSign::waiting;
    case DotColor::systemRed:
        return DotSign::cross;
    case DotColor::systemGray:
        return DotSign::pause;
    case DotColor::systemGreen:
        break;
    }
    return DotSign::none;
}

StatusIcon badgeIcon(const StatusTitle& title) {
    StatusIcon icon;
    icon.form = StatusIcon::Form::badge;
    icon.color = dotColor(title);
    icon.number = numberIn(title);
    if (icon.number.isEmpty() && hasStateWord(title)) {
        icon.sign = signFor(icon.color);
    }
    return icon;
}

} // namespace

ItemAppearance appearance(Presentation presentation, const StatusTitle& title, const QString& toolTip) {
    ItemAppearance result;
    switch (presentation) {
    case Presentation::label:
        result.icon.color = dotColor(title);
        result.label = textAfterDot(title);
        result.labelGuide = result.label;
        for (QChar& character : result.labelGuide) {
            if (character.isDigit()) {
                character = u'0';
            }
        }
        // The text stands in the panel already; a tooltip that never changes costs no host anything.
        result.toolTipTitle = toolTip;
        break;
    case Presentation::wide:
        // With what a badge needs as well: not every place of such a host has room for the whole title.
        result.icon = badgeIcon(title);
        result.icon.form = StatusIcon::Form::wide;
        result.icon.title = title;
        // As for the label: the text stands in the panel already.
        result.toolTipTitle = toolTip;
        break;
    case Presentation::badge:
        result.icon = badgeIcon(title);
        result.toolTipTitle = textAfterDot(title);
        result.toolTipText = toolTip;
        break;
    }
    return result;
}

} // namespace skylet
