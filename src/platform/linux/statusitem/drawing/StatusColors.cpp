#include "platform/linux/statusitem/drawing/StatusColors.h"

namespace skylet {

namespace {

constexpr QColor white{255, 255, 255};
constexpr QColor black{24, 24, 24};

} // namespace

// Each fill stands out from a dark panel and each rim from a light one by at least 3:1, the contrast that WCAG 2.1
// (1.4.11) asks of graphics; the fills also differ in brightness, not in hue alone.
DotShades dotShades(Status status) {
    switch (status) {
    case Status::online:
        return {QColor(48, 196, 86), QColor(22, 122, 48), black};
    case Status::checking:
    case Status::slow:
        return {QColor(252, 190, 8), QColor(158, 104, 0), black};
    case Status::offline:
        return {QColor(242, 56, 46), QColor(150, 20, 14), white};
    case Status::paused:
        break;
    }
    return {QColor(146, 146, 150), QColor(88, 88, 92), white};
}

} // namespace skylet
