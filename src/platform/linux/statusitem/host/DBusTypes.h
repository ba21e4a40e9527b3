#pragma once

#include <QByteArray>
#include <QDBusArgument>
#include <QDBusVariant>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantMap>

class QImage;

namespace skylet {

/// The structures of org.kde.StatusNotifierItem and com.canonical.dbusmenu, as Qt D-Bus needs them to be declared.

/// (iiay): pixels in ARGB32, not premultiplied, network byte order.
struct DBusPixmap {
    int width = 0;
    int height = 0;
    QByteArray pixels;
};
DBusPixmap toDBusPixmap(const QImage& image);

/// (sa(iiay)ss)
struct DBusToolTip {
    QString iconName;
    QList<DBusPixmap> icon;
    QString title;
    QString text;
};

/// (ia{sv}): one menu entry's properties.
struct DBusMenuProperties {
    int id = 0;
    QVariantMap properties;
};

/// (ias): names of properties that one menu entry no longer has.
struct DBusMenuPropertyNames {
    int id = 0;
    QStringList names;
};

/// (ia{sv}av): a menu entry with what lies below it.
struct DBusMenuLayout {
    int id = 0;
    QVariantMap properties;
    QList<DBusMenuLayout> children;
};

/// (isvu): something that a host's user did to an entry.
struct DBusMenuEvent {
    int id = 0;
    QString eventId;
    QDBusVariant data;
    uint timestamp = 0;
};

QDBusArgument& operator<<(QDBusArgument& argument, const DBusPixmap& pixmap);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusPixmap& pixmap);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusToolTip& toolTip);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusToolTip& toolTip);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuProperties& properties);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuProperties& properties);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuPropertyNames& names);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuPropertyNames& names);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuLayout& layout);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuLayout& layout);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuEvent& event);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuEvent& event);

/// Makes the structures known to Qt D-Bus. Harmless when repeated.
void registerDBusTypes();

} // namespace skylet

Q_DECLARE_METATYPE(skylet::DBusPixmap)
Q_DECLARE_METATYPE(skylet::DBusToolTip)
Q_DECLARE_METATYPE(skylet::DBusMenuProperties)
Q_DECLARE_METATYPE(skylet::DBusMenuPropertyNames)
Q_DECLARE_METATYPE(skylet::DBusMenuLayout)
Q_DECLARE_METATYPE(skylet::DBusMenuEvent)
