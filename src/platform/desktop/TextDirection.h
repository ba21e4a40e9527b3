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

} // namespace skylet
