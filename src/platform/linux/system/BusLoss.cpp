#include "platform/linux/system/BusLoss.h"

#include <utility>

namespace skylet {

BusLoss::BusLoss(QDBusConnection bus, std::function<void()> onLost) : onLost_(std::move(onLost)) {
    // What the D-Bus library itself says, in the manner of a signal from the bus.
    bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"), QStringLiteral("org.freedesktop.DBus.Local"),
                QStringLiteral("Disconnected"), this, SLOT(disconnected()));
}

void BusLoss::disconnected() {
    onLost_();
}

} // namespace skylet
