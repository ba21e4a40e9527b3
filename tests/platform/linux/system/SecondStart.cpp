#include "platform/linux/system/SingleInstance.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTextStream>
#include <QTimer>

using skylet::SingleInstance;

/// Starts the way the program does on the bus given as its first argument and says which role it got, and after how
/// many milliseconds. As the first it runs until its standard input ends.
int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    const auto bus =
        QDBusConnection::connectToBus(QCoreApplication::arguments().value(1), QStringLiteral("second start"));
    QTextStream out(stdout);
    SingleInstance instance(bus, [&out](const QString& /*activationToken*/) { out << "activated" << Qt::endl; });
    QElapsedTimer elapsed;
    elapsed.start();
    const auto role = instance.claim();
    const auto took = elapsed.elapsed();
    switch (role) {
    case SingleInstance::Role::first:
        out << "first ";
        break;
    case SingleInstance::Role::second:
        out << "second ";
        break;
    case SingleInstance::Role::noBus:
        out << "noBus ";
        break;
    }
    out << took << Qt::endl;
    return role == SingleInstance::Role::first ? QCoreApplication::exec() : 0;
}
