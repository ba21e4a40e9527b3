#pragma once

#include "platform/desktop/StatusDisplay.h"

#include <QColor>

namespace skylet {

/// How the dot looks on screen.
struct DotShades {
    QColor fill;
    /// A darker edge, so that the dot keeps its outline on a light panel.
    QColor rim;
    /// For the small sign on a dot that stands without a number.
    QColor sign;

    bool operator==(const DotShades&) const = default;
};

/// Green, yellow (checking and slow), red or gray. The same on dark and on light panels: nothing tells a program which
/// one it sits on.
DotShades dotShades(Status status);

/// The ground that text brings with it, and the text's colour on it: it reads the same on every panel. Dark under white
/// letters, not quite opaque so that it blends with dark panels. Letters with an outline were tried: at 16 and 22 px
/// the outline runs into the digits' own holes on a panel of the outline's opposite shade.
inline constexpr QColor plateColor{28, 28, 28, 230};
inline constexpr QColor plateTextColor{255, 255, 255};

} // namespace skylet
