#pragma once

#include "platform/linux/statusitem/host/DBusTypes.h"

#include <QDBusArgument>
#include <QDBusVariant>

namespace skylet {

/// Reads as a host does what the program only sends.

inline const QDBusArgument& operator>>(const QDBusArgument& argument, DBusPixmap& pixmap) {
    argument.beginStructure();
    argument >> pixmap.width >> pixmap.height >> pixmap.pixels;
    argument.endStructure();
    return argument;
}

inline const QDBusArgument& operator>>(const QDBusArgument& argument, DBusToolTip& toolTip) {
    QString iconName;
    QList<DBusPixmap> icon;
    argument.beginStructure();
    argument >> iconName >> icon >> toolTip.title >> toolTip.text;
    argument.endStructure();
    return argument;
}

inline const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuProperties& properties) {
    argument.beginStructure();
    argument >> properties.id >> properties.properties;
    argument.endStructure();
    return argument;
}

inline const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuPropertyNames& names) {
    argument.beginStructure();
    argument >> names.id >> names.names;
    argument.endStructure();
    return argument;
}

inline const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuLayout& layout) {
    argument.beginStructure();
    argument >> layout.id >> layout.properties;
    layout.children.clear();
    argument.beginArray();
    while (!argument.atEnd()) {
        QDBusVariant child;
        argument >> child;
        layout.children.append(qdbus_cast<DBusMenuLayout>(child.variant()));
    }
    argument.endArray();
    argument.endStructure();
    return argument;
}

} // namespace skylet
