#pragma once

#include <QByteArray>
#include <QDBusArgument>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantMap>

class QImage;
class QObject;

namespace skylet {

/// The structures of org.kde.StatusNotifierItem and com.canonical.dbusmenu. All but the events are only sent.

/// (iiay): pixels in ARGB32, not premultiplied, network byte order.
struct DBusPixmap {
    int width = 0;
    int height = 0;
    QByteArray pixels;
};
DBusPixmap toDBusPixmap(const QImage& image);

/// (sa(iiay)ss): without an icon.
struct DBusToolTip {
    QString title;
    QString text;

    bool operator==(const DBusToolTip&) const = default;
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

/// (isvu): something that a host's user did to an entry. The data and the time that belong to it are not kept.
struct DBusMenuEvent {
    int id = 0;
    QString eventId;
};

QDBusArgument& operator<<(QDBusArgument& argument, const DBusPixmap& pixmap);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusToolTip& toolTip);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuProperties& properties);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuPropertyNames& names);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuLayout& layout);
/// Qt derives the signature of what it receives from what it would send.
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuEvent& event);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuEvent& event);

/// Makes the structures known to Qt D-Bus. Harmless when repeated.
void registerDBusTypes();

/// Qt lets whoever calls an exported object name it, with a text of any length. Its name stays empty.
void keepNameless(QObject& exported);

} // namespace skylet
