#pragma once

#include "platform/desktop/StatusTitle.h"

#include <QFont>
#include <QImage>
#include <QString>

namespace skylet {

/// A small mark on a dot that stands alone, so that the states can be told apart without seeing colours.
enum class DotSign {
    none,
    /// Three points: an answer is awaited.
    waiting,
    /// A cross: nothing gets through.
    cross,
    /// Two bars, as on a player.
    pause,
};

/// What the icon in the panel shows. Comparing two of them says whether it must be painted and sent anew.
struct StatusIcon {
    enum class Form {
        /// A dot of the size of a character, beside a text that the host sets.
        textDot,
        /// A dot with the number beneath it, or a large dot where there is no number.
        badge,
        /// The whole title in a line on a plate of its own, wider than it is high.
        wide,
    };

    Form form = Form::textDot;
    DotColor color = DotColor::systemGray;
    /// At most three digits and a point; empty: no number.
    QString number;
    DotSign sign = DotSign::none;
    /// Of the wide form alone.
    StatusTitle title = {};

    bool operator==(const StatusIcon&) const = default;
};

/// Paints the icon `size` device pixels high, and as wide unless it is of the wide form. The dot alone carries colour.
/// `font` gives the text its shapes; the number's size is chosen here, so that three digits of equal advance always
/// fit.
QImage paintStatusIcon(const StatusIcon& icon, int size, const QFont& font);

} // namespace skylet
