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

/// The ground that text brings with it, and the text's colour on it: it reads the same on every panel.
QColor plateColor();
QColor plateTextColor();

} // namespace skylet
