#pragma once

#include <QTimer>

#include <memory>

namespace skylet {

/// May be let go from inside its own signal.
using PreciseTimer = std::unique_ptr<QTimer, void (*)(QTimer*)>;

inline PreciseTimer makePreciseTimer(bool isSingleShot) {
    PreciseTimer timer(new QTimer, [](QTimer* old) {
        old->stop();
        old->deleteLater();
    });
    timer->setSingleShot(isSingleShot);
    timer->setTimerType(Qt::PreciseTimer);
    return timer;
}

} // namespace skylet
