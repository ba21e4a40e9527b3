#pragma once

#include "platform/desktop/StatusDisplay.h"
#include "platform/linux/statusitem/drawing/StatusIcon.h"

#include <QString>

namespace skylet {

/// What the display becomes on a status host.
struct ItemAppearance {
    StatusIcon icon;
    /// Empty: no text beside the icon.
    QString label;
    /// A text as wide as the label whatever its digits are, from which a host can reserve room; empty with the label.
    QString labelGuide;
    /// For screen readers.
    QString description;
    QString toolTipTitle;
    QString toolTipText;

    bool operator==(const ItemAppearance&) const = default;
};

/// The title without the gap before it. A host lays the text out as a whole, in a direction of its own choice; where a
/// segment runs from right to left, marks keep the segments themselves in their order from left to right.
QString titleText(const StatusTitle& title);

ItemAppearance appearance(Presentation presentation, const StatusDisplay& display);

} // namespace skylet
