#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QTimer>

#include <chrono>

/// A status item that shows nothing but a label, another one every 2 s.
class LabelItem final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Id READ name)
    Q_PROPERTY(QString IconName READ name)
    Q_PROPERTY(QString XAyatanaLabel READ label)

  public:
    void start() {
        auto bus = QDBusConnection::sessionBus();
        bus.registerObject(QStringLiteral("/StatusNotifierItem"), this,
                           QDBusConnection::ExportAllProperties | QDBusConnection::ExportAllSignals);
        auto call = QDBusMessage::createMethodCall(
            QStringLiteral("org.kde.StatusNotifierWatcher"), QStringLiteral("/StatusNotifierWatcher"),
            QStringLiteral("org.kde.StatusNotifierWatcher"), QStringLiteral("RegisterStatusNotifierItem"));
        bus.send(call << bus.baseService());
        timer_.callOnTimeout(this, [this] {
            ++count_;
            Q_EMIT XAyatanaNewLabel(label(), label());
        });
        timer_.start(std::chrono::seconds(2));
    }

  Q_SIGNALS:
    void XAyatanaNewLabel(const QString& label, const QString& guide); // NOLINT(readability-identifier-naming)

  private:
    QString name() const { return QStringLiteral("reference"); }
    QString label() const { return QString::number(count_); }

    QTimer timer_;
    int count_ = 0;
};
