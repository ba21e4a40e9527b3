#pragma once

#include <QDBusConnection>
#include <QObject>

#include <functional>
#include <utility>

namespace skylet {

/// Tells that a connection to a message bus is lost: the bus has ended or has thrown the program out. A connection does
/// not come back.
class BusLoss : public QObject {
    Q_OBJECT

  public:
    /// `onLost` runs once, from the event loop. It never does for a connection that never was.
    BusLoss(QDBusConnection bus, std::function<void()> onLost) : onLost_(std::move(onLost)) {
        // What the D-Bus library itself says, in the manner of a signal from the bus.
        bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                    QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                    SLOT(disconnected()));
    }

  private Q_SLOTS:
    void disconnected() { onLost_(); }

  private: // NOLINT(readability-redundant-access-specifiers): the one above is moc's
    const std::function<void()> onLost_;
};

} // namespace skylet
