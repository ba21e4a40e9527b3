#pragma once

#include "platform/linux/DeleteLater.h"

#include <QTimer>

#include <memory>

namespace skylet {

/// May be let go from inside its own signal.
using PreciseTimer = std::unique_ptr<QTimer, DeleteLater>;

inline PreciseTimer makePreciseTimer(bool isSingleShot) {
    PreciseTimer timer(new QTimer);
    timer->setSingleShot(isSingleShot);
    timer->setTimerType(Qt::PreciseTimer);
    return timer;
}

} // namespace skylet
