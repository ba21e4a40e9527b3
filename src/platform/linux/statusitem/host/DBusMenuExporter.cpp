#include "platform/linux/statusitem/host/DBusMenuExporter.h"

#include "platform/linux/desktop/ApplicationIcon.h"
#include "platform/linux/statusitem/drawing/Png.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QImage>
#include <QPixmap>

#include <algorithm>
#include <iterator>
#include <utility>

namespace skylet {

namespace {

// The items are the same for good, so their layout is too.
constexpr uint layoutRevision = 1;

/// The application's icon for screens of scale 2: hosts scale down to the size of their menus, never up.
QByteArray pngOfIcon(int side) {
    return toPng(applicationIcon().pixmap(QSize(2 * side, 2 * side), 1.0).toImage());
}

/// Those that stay as they are.
QVariantMap fixedProperties(const MenuItem& item) {
    QVariantMap properties = {{QStringLiteral("visible"), true}};
    if (item.isSeparator()) {
        properties.insert(QStringLiteral("type"), QStringLiteral("separator"));
    }
    if (!item.keyEquivalent().isEmpty()) {
        const QList<QStringList> presses = {{QStringLiteral("Control"), item.keyEquivalent()}};
        properties.insert(QStringLiteral("shortcut"), QVariant::fromValue(presses));
    }
    if (item.applicationIconSize() > 0) {
        properties.insert(QStringLiteral("icon-data"), pngOfIcon(item.applicationIconSize()));
    }
    return properties;
}

/// Sets those that can change. None is ever left out for having the value that its absence would mean: not every host
/// follows the removal of a property.
void setChangingProperties(QVariantMap& properties, const MenuItem& item) {
    properties.insert(QStringLiteral("enabled"), item.isEnabled());
    if (!item.isSeparator()) {
        // A single '_' would mark the access key.
        properties.insert(QStringLiteral("label"), QString(item.title()).replace(u'_', QStringLiteral("__")));
    }
    if (item.isCheckable()) {
        properties.insert(QStringLiteral("toggle-type"), QStringLiteral("checkmark"));
        properties.insert(QStringLiteral("toggle-state"), item.isChecked() ? 1 : 0);
    }
}

/// `wanted` empty: all.
QVariantMap restricted(QVariantMap properties, const QStringList& wanted) {
    if (!wanted.isEmpty()) {
        properties.removeIf([&](QVariantMap::iterator property) { return !wanted.contains(property.key()); });
    }
    return properties;
}

} // namespace

DBusMenuExporter::DBusMenuExporter(std::chrono::milliseconds openTime) {
    registerDBusTypes();
    keepNameless(*this);
    aboutToShowTimer_.setSingleShot(true);
    aboutToShowTimer_.setInterval(openTime);
    connect(&aboutToShowTimer_, &QTimer::timeout, this, [this] { setOpenIn(aboutToShowIn_, false); });
    hostWatcher_.setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
    connect(&hostWatcher_, &QDBusServiceWatcher::serviceUnregistered, this,
            [this](const QString& host) { setOpenIn(host, false); });
}

bool DBusMenuExporter::exportOn(QDBusConnection connection, const QString& path) {
    hostWatcher_.setConnection(connection);
    return connection.registerObject(path, this,
                                     QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllProperties |
                                         QDBusConnection::ExportScriptableSignals);
}

void DBusMenuExporter::setMenu(const Menu& menu) {
    menu_ = menu;
    for (const auto& item : menu_) {
        QVariantMap& properties = sent_.emplaceBack(fixedProperties(*item));
        setChangingProperties(properties, *item);
        connect(item.get(), &MenuItem::changed, this, &DBusMenuExporter::scheduleUpdate);
    }
}

void DBusMenuExporter::setToldOnlyWhileOpen(bool onlyWhileOpen) {
    toldOnlyWhileOpen_ = onlyWhileOpen;
    scheduleUpdate();
}

QString DBusMenuExporter::textDirection() const {
    return isRightToLeft(menu_) ? QStringLiteral("rtl") : QStringLiteral("ltr");
}

void DBusMenuExporter::refuse() {
    if (message().isReplyRequired()) {
        sendErrorReply(QDBusError::InvalidArgs, QStringLiteral("no such menu entry"));
    }
}

uint DBusMenuExporter::GetLayout(int parent, int depth, const QStringList& names, DBusMenuLayout& layout) {
    if (!knows(parent)) {
        refuse();
        return 0;
    }
    layout = {parent, restricted(properties(parent), names), {}};
    if (parent == rootId && depth != 0) {
        for (int id = 1; knows(id); ++id) {
            layout.children.append({id, restricted(properties(id), names), {}});
        }
    }
    Q_EMIT layoutRequested();
    return layoutRevision;
}

QList<DBusMenuProperties> DBusMenuExporter::GetGroupProperties(const QList<int>& ids, const QStringList& names) {
    QList<DBusMenuProperties> group;
    // Each entry once, however often it was asked for: a short request must not make a long answer.
    for (int id = rootId; knows(id); ++id) {
        if (ids.isEmpty() || ids.contains(id)) {
            group.append({id, restricted(properties(id), names)});
        }
    }
    return group;
}

QDBusVariant DBusMenuExporter::GetProperty(int id, const QString& name) {
    const QVariant value = knows(id) ? properties(id).value(name) : QVariant();
    if (!value.isValid()) {
        refuse();
    }
    return QDBusVariant(value);
}

void DBusMenuExporter::Event(int id, const QString& eventId, const QDBusVariant& /*data*/, uint /*timestamp*/) {
    if (knows(id)) {
        handleEvent({id, eventId});
    } else {
        refuse();
    }
}

QList<int> DBusMenuExporter::EventGroup(const QList<DBusMenuEvent>& events) {
    QList<int> unknown;
    for (const DBusMenuEvent& event : events) {
        if (knows(event.id)) {
            handleEvent(event);
        } else {
            unknown.append(event.id);
        }
    }
    if (!events.isEmpty() && unknown.size() == events.size()) {
        refuse();
    }
    return unknown;
}

bool DBusMenuExporter::AboutToShow(int id) {
    if (!knows(id)) {
        refuse();
    } else if (id == rootId) {
        setAboutToShowIn(message().service());
    }
    // What a host has read is kept right by signals; nothing is prepared only when the menu opens.
    return false;
}

QList<int> DBusMenuExporter::AboutToShowGroup(const QList<int>& ids, QList<int>& unknown) {
    std::copy_if(ids.cbegin(), ids.cend(), std::back_inserter(unknown), [this](int id) { return !knows(id); });
    if (!ids.isEmpty() && unknown.size() == ids.size()) {
        refuse();
    } else if (ids.contains(rootId)) {
        setAboutToShowIn(message().service());
    }
    return {};
}

void DBusMenuExporter::handleEvent(const DBusMenuEvent& event) {
    const QString host = message().service();
    if (event.id == rootId) {
        if (event.eventId == QLatin1String("opened") || event.eventId == QLatin1String("closed")) {
            setOpenIn(host, event.eventId == QLatin1String("opened"));
        }
        return;
    }
    if (event.eventId == QLatin1String("clicked")) {
        if (host == aboutToShowIn_ || toldOnlyWhileOpen_) {
            // A choice closes the menu.
            setOpenIn(host, false);
        }
        if (chosen_.contains(event.id)) {
            // One message may hold a million clicks.
            return;
        }
        chosen_.insert(event.id);
        // Only after the answer is on its way: the action may open windows or end the program.
        const auto trigger = [this, id = event.id] {
            chosen_.remove(id);
            // Plasma has flipped the check mark in its own copy of the menu, whatever the click comes to.
            sent_[id - 1].remove(QStringLiteral("toggle-state"));
            scheduleUpdate();
            const std::shared_ptr<MenuItem> item = menu_.at(static_cast<std::size_t>(id) - 1);
            if (item->isEnabled()) {
                item->trigger();
            }
        };
        QMetaObject::invokeMethod(this, trigger, Qt::QueuedConnection);
    }
}

void DBusMenuExporter::setOpenIn(const QString& host, bool open) {
    if (open) {
        openIn_.insert(host);
        if (toldOnlyWhileOpen_) {
            // What was not told may have been read, and changed back since.
            for (QVariantMap& properties : sent_) {
                properties.remove(QStringLiteral("enabled"));
                properties.remove(QStringLiteral("label"));
                properties.remove(QStringLiteral("toggle-state"));
            }
            scheduleUpdate();
        }
    } else {
        openIn_.remove(host);
    }
    if (host == aboutToShowIn_) {
        aboutToShowIn_.clear();
        aboutToShowTimer_.stop();
    }
    hostWatcher_.setWatchedServices(openIn_.values());
    Q_EMIT openChanged();
}

void DBusMenuExporter::setAboutToShowIn(const QString& host) {
    // GNOME's extension says it when it has read the menu, too.
    if (toldOnlyWhileOpen_) {
        return;
    }
    if (!openIn_.contains(host) || host == aboutToShowIn_) {
        openIn_.remove(aboutToShowIn_);
        setOpenIn(host, true);
        aboutToShowIn_ = host;
        aboutToShowTimer_.start();
    }
}

QVariantMap DBusMenuExporter::properties(int id) const {
    if (id == rootId) {
        return {{QStringLiteral("children-display"), QStringLiteral("submenu")}};
    }
    QVariantMap properties = sent_.at(id - 1);
    setChangingProperties(properties, *menu_.at(static_cast<std::size_t>(id) - 1));
    return properties;
}

void DBusMenuExporter::scheduleUpdate() {
    if (!updateScheduled_) {
        updateScheduled_ = true;
        QMetaObject::invokeMethod(this, &DBusMenuExporter::sendChanges, Qt::QueuedConnection);
    }
}

void DBusMenuExporter::sendChanges() {
    updateScheduled_ = false;
    if (toldOnlyWhileOpen_ && !isOpen()) {
        return;
    }
    QList<DBusMenuProperties> updated;
    for (int id = 1; knows(id); ++id) {
        const QVariantMap now = properties(id);
        const QVariantMap before = std::exchange(sent_[id - 1], now);
        QVariantMap changed = now;
        changed.removeIf(
            [&](QVariantMap::iterator property) { return before.value(property.key()) == property.value(); });
        if (!changed.isEmpty()) {
            updated.append({id, changed});
        }
    }
    if (!updated.isEmpty()) {
        Q_EMIT ItemsPropertiesUpdated(updated, {});
    }
}

} // namespace skylet
