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
    QString toolTipTitle;
    QString toolTipText;

    bool operator==(const ItemAppearance&) const = default;
};

ItemAppearance appearance(Presentation presentation, const StatusDisplay& display);

} // namespace skylet
