#include "platform/linux/statusitem/host/DBusTypes.h"

#include <QDBusMetaType>
#include <QDBusVariant>
#include <QImage>
#include <QtEndian>

namespace skylet {

namespace {

template <typename Type>
void registerSent() {
    QDBusMetaType::registerMarshallOperators(
        QMetaType::fromType<Type>(),
        [](QDBusArgument& argument, const void* value) { argument << *static_cast<const Type*>(value); },
        [](const QDBusArgument&, void*) {});
}

template <typename... Fields>
QDBusArgument& putStructure(QDBusArgument& argument, const Fields&... fields) {
    argument.beginStructure();
    (argument << ... << fields);
    argument.endStructure();
    return argument;
}

} // namespace

DBusPixmap toDBusPixmap(const QImage& image) {
    const QImage source = image.convertToFormat(QImage::Format_ARGB32);
    DBusPixmap pixmap{source.width(), source.height(), {}};
    const qsizetype rowBytes = qsizetype(source.width()) * 4;
    pixmap.pixels.resize(rowBytes * source.height());
    for (int row = 0; row < source.height(); ++row) {
        qToBigEndian<quint32>(source.constScanLine(row), source.width(), pixmap.pixels.data() + row * rowBytes);
    }
    return pixmap;
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusPixmap& pixmap) {
    return putStructure(argument, pixmap.width, pixmap.height, pixmap.pixels);
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusToolTip& toolTip) {
    return putStructure(argument, QString(), QList<DBusPixmap>(), toolTip.title, toolTip.text);
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuProperties& properties) {
    return putStructure(argument, properties.id, properties.properties);
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuPropertyNames& names) {
    return putStructure(argument, names.id, names.names);
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuLayout& layout) {
    argument.beginStructure();
    argument << layout.id << layout.properties;
    argument.beginArray(QMetaType::fromType<QDBusVariant>());
    for (const DBusMenuLayout& child : layout.children) {
        argument << QDBusVariant(QVariant::fromValue(child));
    }
    argument.endArray();
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuEvent& event) {
    return putStructure(argument, event.id, event.eventId, QDBusVariant(0), 0U);
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuEvent& event) {
    QDBusVariant data;
    uint timestamp = 0;
    argument.beginStructure();
    argument >> event.id >> event.eventId >> data >> timestamp;
    argument.endStructure();
    return argument;
}

void registerDBusTypes() {
    registerSent<DBusPixmap>();
    registerSent<QList<DBusPixmap>>();
    registerSent<DBusToolTip>();
    registerSent<DBusMenuProperties>();
    registerSent<QList<DBusMenuProperties>>();
    registerSent<DBusMenuPropertyNames>();
    registerSent<QList<DBusMenuPropertyNames>>();
    registerSent<DBusMenuLayout>();
    registerSent<QList<QStringList>>();
    qDBusRegisterMetaType<DBusMenuEvent>();
    qDBusRegisterMetaType<QList<DBusMenuEvent>>();
}

void keepNameless(QObject& exported) {
    QObject::connect(&exported, &QObject::objectNameChanged, &exported,
                     [&exported] { exported.setObjectName(QString()); });
}

} // namespace skylet
