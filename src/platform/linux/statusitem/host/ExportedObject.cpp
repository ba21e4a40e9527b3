#include "platform/linux/statusitem/host/ExportedObject.h"

#include <QDBusError>
#include <QDBusVariant>

#include <utility>

namespace skylet {

namespace {

constexpr QLatin1String propertiesInterface("org.freedesktop.DBus.Properties");

QString argumentXml(const QString& signature, QLatin1String direction) {
    return QStringLiteral("      <arg type=\"%1\" direction=\"%2\"/>\n").arg(signature, direction);
}

} // namespace

QString invalidArgumentsError() {
    return QDBusError::errorString(QDBusError::InvalidArgs);
}

QString unknownMethodError() {
    return QDBusError::errorString(QDBusError::UnknownMethod);
}

ExportedObject::ExportedObject(QString path, QString interface, QObject* parent)
    : QDBusVirtualObject(parent), path_(std::move(path)), interface_(std::move(interface)), connection_(QString()) {}

ExportedObject::~ExportedObject() {
    connection_.unregisterObject(path_);
}

bool ExportedObject::exportOn(const QDBusConnection& connection) {
    connection_ = connection;
    return connection_.registerVirtualObject(path_, this);
}

void ExportedObject::addMethod(const QString& name, const QStringList& arguments, const QStringList& results,
                               Method method) {
    methods_.insert(name, {arguments, results, std::move(method)});
}

void ExportedObject::addProperty(const QString& name, const QString& signature, Property value) {
    properties_.insert(name, {signature, std::move(value)});
}

void ExportedObject::addSignal(const QString& name, const QStringList& arguments) {
    signals_.insert(name, arguments);
}

QString ExportedObject::introspect(const QString& /*path*/) const {
    QString xml = QStringLiteral("  <interface name=\"%1\">\n").arg(interface_);
    for (auto property = properties_.cbegin(); property != properties_.cend(); ++property) {
        xml += QStringLiteral("    <property name=\"%1\" type=\"%2\" access=\"read\"/>\n")
                   .arg(property.key(), property->signature);
    }
    for (auto method = methods_.cbegin(); method != methods_.cend(); ++method) {
        xml += QStringLiteral("    <method name=\"%1\">\n").arg(method.key());
        for (const QString& argument : method->arguments) {
            xml += argumentXml(argument, QLatin1String("in"));
        }
        for (const QString& result : method->results) {
            xml += argumentXml(result, QLatin1String("out"));
        }
        xml += QStringLiteral("    </method>\n");
    }
    for (auto signal = signals_.cbegin(); signal != signals_.cend(); ++signal) {
        xml += QStringLiteral("    <signal name=\"%1\">\n").arg(signal.key());
        for (const QString& argument : *signal) {
            xml += argumentXml(argument, QLatin1String("out"));
        }
        xml += QStringLiteral("    </signal>\n");
    }
    return xml + QStringLiteral("  </interface>\n");
}

bool ExportedObject::handleMessage(const QDBusMessage& message, const QDBusConnection& /*connection*/) {
    if (message.type() != QDBusMessage::MethodCallMessage) {
        return false;
    }
    if (message.interface() == propertiesInterface) {
        handlePropertiesCall(message);
        return true;
    }
    // D-Bus allows calls that name no interface.
    if (!message.interface().isEmpty() && message.interface() != interface_) {
        return false;
    }
    const auto method = methods_.constFind(message.member());
    if (method == methods_.cend()) {
        // Left to Qt where no interface is named; it knows of some calls that every object answers.
        if (message.interface().isEmpty()) {
            return false;
        }
        fail(message, unknownMethodError(), QStringLiteral("no such method: ") + message.member());
        return true;
    }
    if (message.signature() != method->arguments.join(QString())) {
        fail(message, invalidArgumentsError(),
             QStringLiteral("%1 takes (%2)").arg(message.member(), method->arguments.join(QString())));
        return true;
    }
    method->call(message);
    return true;
}

void ExportedObject::handlePropertiesCall(const QDBusMessage& message) {
    const QString member = message.member();
    const QVariantList arguments = message.arguments();
    const bool known =
        arguments.isEmpty() || arguments.first().toString() == interface_ || arguments.first().toString().isEmpty();
    if (!known) {
        fail(message, QDBusError::errorString(QDBusError::UnknownInterface),
             QStringLiteral("no such interface here: ") + arguments.first().toString());
    } else if (member == QLatin1String("GetAll") && message.signature() == QLatin1String("s")) {
        reply(message, {allProperties()});
    } else if (member == QLatin1String("Get") && message.signature() == QLatin1String("ss")) {
        const auto property = properties_.constFind(arguments.at(1).toString());
        const std::optional<QVariant> value = property == properties_.cend() ? std::nullopt : property->value();
        if (value) {
            reply(message, {QVariant::fromValue(QDBusVariant(*value))});
        } else {
            fail(message, QDBusError::errorString(QDBusError::UnknownProperty),
                 QStringLiteral("no such property: ") + arguments.at(1).toString());
        }
    } else if (member == QLatin1String("Set") && message.signature() == QLatin1String("ssv")) {
        fail(message, QDBusError::errorString(QDBusError::PropertyReadOnly),
             QStringLiteral("read-only: ") + arguments.at(1).toString());
    } else {
        fail(message, invalidArgumentsError(), QStringLiteral("not a call of org.freedesktop.DBus.Properties"));
    }
}

QVariantMap ExportedObject::allProperties() const {
    QVariantMap all;
    for (auto property = properties_.cbegin(); property != properties_.cend(); ++property) {
        if (std::optional<QVariant> value = property->value()) {
            all.insert(property.key(), *value);
        }
    }
    return all;
}

void ExportedObject::reply(const QDBusMessage& call, const QVariantList& values) {
    if (call.isReplyRequired()) {
        connection_.send(call.createReply(values));
    }
}

void ExportedObject::fail(const QDBusMessage& call, const QString& name, const QString& text) {
    if (call.isReplyRequired()) {
        connection_.send(call.createErrorReply(name, text));
    }
}

void ExportedObject::emitSignal(const QString& name, const QVariantList& values) {
    QDBusMessage signal = QDBusMessage::createSignal(path_, interface_, name);
    signal.setArguments(values);
    connection_.send(signal);
}

} // namespace skylet
