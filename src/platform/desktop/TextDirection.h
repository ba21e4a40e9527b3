#pragma once

#include <QString>

#include <algorithm>

namespace skylet {

/// Whether the text has letters that run from right to left, so that it belongs into a place of that direction whatever
/// it begins with.
inline bool hasRightToLeft(const QString& text) {
    return std::any_of(text.cbegin(), text.cend(), [](QChar character) {
        return character.direction() == QChar::DirR || character.direction() == QChar::DirAL;
    });
}

/// The text for a line that runs from left to right as a whole. What ends a text of the other direction, such as the
/// dots of "בודק…", stays at its end there.
inline QString insideLeftToRight(const QString& text) {
    constexpr char16_t rightToLeftMark = u'\u200F';
    return hasRightToLeft(text) ? text + QChar(rightToLeftMark) : text;
}

} // namespace skylet
