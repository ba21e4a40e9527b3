#pragma once

#include "platform/desktop/StatusDisplay.h"

#include <QFont>
#include <QImage>
#include <QString>

namespace skylet {

/// How a status host can be made to show the title.
enum class Presentation {
    /// A dot of the size of a character as the icon, the title as a text that the host sets beside it.
    label,
    /// The dot and the title drawn into an icon that is wider than high, on a plate of its own.
    wide,
    /// A square icon: the dot with the number beneath it, or a large dot with a sign where there is no number, so that
    /// the states can be told apart without seeing colours. The title is in the tooltip.
    badge,
};

/// What the icon in the panel shows.
struct StatusIcon {
    Presentation presentation = Presentation::label;
    Status status = Status::checking;
    /// As in the display.
    QString number = {};
    /// Of the wide icon alone.
    StatusTitle title = {};
    /// The room for its title, in logical pixels.
    double titleWidth = 0;
    /// With a frame that calls for a look.
    bool needsAttention = false;

    /// Whether they look the same, so that nothing need be painted and sent anew.
    bool operator==(const StatusIcon& other) const;
};

/// Paints the icon `size` device pixels high, and as wide unless it is a wide one. The dot alone carries colour.
/// `font` gives the text its shapes; the number's size is chosen here, so that three digits of equal advance always
/// fit.
QImage paintStatusIcon(const StatusIcon& icon, int size, const QFont& font);

} // namespace skylet
