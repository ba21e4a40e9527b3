#pragma once

#include <QDBusAbstractAdaptor>
#include <QStringList>
#include <QVariantMap>

namespace skylet {

/// The running program as others on the session bus may address it (org.freedesktop.Application, Desktop Entry
/// Specification, "D-Bus Activation"). It opens no files and offers no actions; those requests are answered and
/// ignored.
class ApplicationInterface : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

  public:
    explicit ApplicationInterface(QObject* owner) : QDBusAbstractAdaptor(owner) {}

  public Q_SLOTS: // NOLINT(readability-redundant-access-specifiers): moc's
    void Activate(const QVariantMap& platformData) {
        Q_EMIT activated(platformData.value(QStringLiteral("activation-token")).toString());
    }
    void Open(const QStringList&, const QVariantMap&) {}
    void ActivateAction(const QString&, const QVariantList&, const QVariantMap&) {}

  Q_SIGNALS:
    void activated(const QString& activationToken);
};

} // namespace skylet
