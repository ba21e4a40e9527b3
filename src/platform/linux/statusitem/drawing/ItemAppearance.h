#pragma once

#include "platform/desktop/StatusTitle.h"
#include "platform/linux/statusitem/drawing/StatusIcon.h"

#include <QString>

namespace skylet {

/// The ways in which a status host can be made to show the title.
enum class Presentation {
    /// The coloured dot as the icon, the rest as a text that the host sets beside it.
    label,
    /// The whole title drawn into an icon that is wider than high.
    wide,
    /// A square icon with the coloured dot and the number beneath it; the rest is in the tooltip.
    badge,
};

/// What a title and a tooltip become on a status host.
struct ItemAppearance {
    StatusIcon icon;
    /// Empty: no text beside the icon.
    QString label;
    /// A text as wide as the label whatever its digits are, from which a host can reserve room; empty with the label.
    QString labelGuide;
    QString toolTipTitle;
    QString toolTipText;

    bool operator==(const ItemAppearance&) const = default;
};

/// What a title and a tooltip become in that presentation. Paints nothing.
ItemAppearance appearance(Presentation presentation, const StatusTitle& title, const QString& toolTip);

} // namespace skylet
