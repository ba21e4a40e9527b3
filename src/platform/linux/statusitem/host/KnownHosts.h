#pragma once

#include "platform/linux/statusitem/drawing/ItemAppearance.h"

#include <QString>

namespace skylet {

/// What a kind of status host can do. The defaults suit every host.
struct StatusHostTraits {
    Presentation presentation = Presentation::badge;
    /// The host opens the menu by itself, on a left click at the latest when `Activate` is refused.
    bool opensMenu = false;
    /// The host is better given the icon's name, which may be the path of a file, than its pixels.
    bool prefersIconName = false;
    /// A change told while the menu is closed costs the host's menu its keyboard when it opens.
    bool losesKeysByMenuChanges = false;
    /// The host squeezes a wide icon into the width of a panel that stands upright.
    bool squeezesWideIcons = false;
    /// Where a tooltip has a text the host shows that alone, without the title.
    bool showsToolTipTextAlone = false;
    /// The program keeps the list of items and shows none itself; what it says of hosts is not to be relied on.
    bool watchesOnly = false;

    bool operator==(const StatusHostTraits&) const = default;
};

/// `processName`: as the kernel has it, cut after 15 characters; empty: not known. `currentDesktop`: the value of
/// XDG_CURRENT_DESKTOP, names separated by colons; it is looked at only where the process says nothing.
StatusHostTraits traitsOfHost(const QString& processName, const QString& currentDesktop);

} // namespace skylet
