#include "platform/linux/statusitem/host/DBusMenuExporter.h"

#include <QAction>
#include <QActionEvent>
#include <QBuffer>
#include <QIcon>
#include <QImage>
#include <QKeySequence>
#include <QMenu>
#include <QPixmap>
#include <QPointer>

#include <algorithm>
#include <utility>

namespace skylet {

namespace {

constexpr uint protocolVersion = 3;

/// An action's text marks its access key with '&'; here '_' does that.
QString menuLabel(const QString& text) {
    QString label;
    for (qsizetype index = 0; index < text.size(); ++index) {
        const QChar character = text.at(index);
        if (character == u'_') {
            label += QStringLiteral("__");
        } else if (character != u'&') {
            label += character;
        } else if (index + 1 < text.size() && text.at(index + 1) == u'&') {
            label += character;
            ++index;
        } else if (index + 1 < text.size()) {
            label += u'_';
        }
    }
    return label;
}

/// The keys of a shortcut as hosts expect them: a list of presses, each a list of modifiers and the key.
QList<QStringList> menuShortcut(const QKeySequence& sequence) {
    QList<QStringList> presses;
    for (int index = 0; index < sequence.count(); ++index) {
        const QKeyCombination press = sequence[static_cast<uint>(index)];
        const Qt::KeyboardModifiers modifiers = press.keyboardModifiers();
        QStringList keys;
        if (modifiers.testFlag(Qt::ControlModifier)) {
            keys += QStringLiteral("Control");
        }
        if (modifiers.testFlag(Qt::AltModifier)) {
            keys += QStringLiteral("Alt");
        }
        if (modifiers.testFlag(Qt::ShiftModifier)) {
            keys += QStringLiteral("Shift");
        }
        if (modifiers.testFlag(Qt::MetaModifier)) {
            keys += QStringLiteral("Super");
        }
        keys += QKeySequence(press.key()).toString(QKeySequence::PortableText).toLower();
        presses += keys;
    }
    return presses;
}

QByteArray pngOf(const QIcon& icon) {
    // The largest picture at hand: hosts scale down to the size of their menus, never up.
    const QList<QSize> sizes = icon.availableSizes();
    const auto largest = std::max_element(sizes.cbegin(), sizes.cend(),
                                          [](QSize left, QSize right) { return left.width() < right.width(); });
    QByteArray data;
    if (largest != sizes.cend()) {
        QBuffer buffer(&data);
        buffer.open(QIODevice::WriteOnly);
        icon.pixmap(*largest, 1.0).toImage().save(&buffer, "PNG");
    }
    return data;
}

/// `wanted` empty: all.
QVariantMap restricted(const QVariantMap& properties, const QStringList& wanted) {
    if (wanted.isEmpty()) {
        return properties;
    }
    QVariantMap rest;
    for (const QString& name : wanted) {
        if (properties.contains(name)) {
            rest.insert(name, properties.value(name));
        }
    }
    return rest;
}

} // namespace

DBusMenuExporter::DBusMenuExporter(const QString& path, QMenu& menu, std::chrono::milliseconds openTime)
    : ExportedObject(path, QStringLiteral("com.canonical.dbusmenu"), nullptr), menu_(menu) {
    registerDBusTypes();
    addMenuMethods();
    addProperty(QStringLiteral("Version"), QStringLiteral("u"), [] { return QVariant(protocolVersion); });
    addProperty(QStringLiteral("TextDirection"), QStringLiteral("s"),
                [this] { return QVariant(menu_.isRightToLeft() ? QStringLiteral("rtl") : QStringLiteral("ltr")); });
    addProperty(QStringLiteral("Status"), QStringLiteral("s"), [] { return QVariant(QStringLiteral("normal")); });
    addProperty(QStringLiteral("IconThemePath"), QStringLiteral("as"), [] { return QVariant(QStringList()); });
    addSignal(QStringLiteral("ItemsPropertiesUpdated"), {QStringLiteral("a(ia{sv})"), QStringLiteral("a(ias)")});
    addSignal(QStringLiteral("LayoutUpdated"), {QStringLiteral("u"), QStringLiteral("i")});
    addSignal(QStringLiteral("ItemActivationRequested"), {QStringLiteral("i"), QStringLiteral("u")});
    assumptionTimer_.setSingleShot(true);
    assumptionTimer_.setInterval(openTime);
    connect(&assumptionTimer_, &QTimer::timeout, this, &DBusMenuExporter::endAssumption);
    menu_.installEventFilter(this);
    renumber();
    toldOrder_ = order_;
}

DBusMenuExporter::~DBusMenuExporter() = default;

bool DBusMenuExporter::exportOn(const QDBusConnection& connection) {
    hostWatcher_ = std::make_unique<QDBusServiceWatcher>();
    hostWatcher_->setConnection(connection);
    hostWatcher_->setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
    connect(hostWatcher_.get(), &QDBusServiceWatcher::serviceUnregistered, this, [this](const QString& host) {
        if (host == assumedIn_) {
            endAssumption();
        }
        setOpenIn(host, false);
    });
    return ExportedObject::exportOn(connection);
}

void DBusMenuExporter::addMenuMethods() {
    const QString integer = QStringLiteral("i");
    const QString integers = QStringLiteral("ai");
    const QString text = QStringLiteral("s");
    const QString texts = QStringLiteral("as");
    const QString variant = QStringLiteral("v");
    const QString count = QStringLiteral("u");
    addMethod(QStringLiteral("GetLayout"), {integer, integer, texts}, {count, QStringLiteral("(ia{sv}av)")},
              [this](const QDBusMessage& call) { getLayout(call); });
    addMethod(QStringLiteral("GetGroupProperties"), {integers, texts}, {QStringLiteral("a(ia{sv})")},
              [this](const QDBusMessage& call) { getGroupProperties(call); });
    addMethod(QStringLiteral("GetProperty"), {integer, text}, {variant},
              [this](const QDBusMessage& call) { getProperty(call); });
    addMethod(QStringLiteral("Event"), {integer, text, variant, count}, {},
              [this](const QDBusMessage& call) { event(call); });
    addMethod(QStringLiteral("EventGroup"), {QStringLiteral("a(isvu)")}, {integers},
              [this](const QDBusMessage& call) { eventGroup(call); });
    addMethod(QStringLiteral("AboutToShow"), {integer}, {QStringLiteral("b")},
              [this](const QDBusMessage& call) { aboutToShow(call); });
    addMethod(QStringLiteral("AboutToShowGroup"), {integers}, {integers, integers},
              [this](const QDBusMessage& call) { aboutToShowGroup(call); });
}

void DBusMenuExporter::getLayout(const QDBusMessage& call) {
    const QVariantList arguments = call.arguments();
    const int parent = arguments.at(0).toInt();
    const int depth = arguments.at(1).toInt();
    const QStringList wanted = arguments.at(2).toStringList();
    if (!knows(parent)) {
        fail(call, invalidArgumentsError(), QStringLiteral("no such menu entry: %1").arg(parent));
        return;
    }
    DBusMenuLayout layout{parent, restricted(properties(parent), wanted), {}};
    if (parent == rootId && depth != 0) {
        for (const int id : order_) {
            layout.children.append({id, restricted(properties(id), wanted), {}});
        }
    }
    reply(call, {revision_, QVariant::fromValue(layout)});
    Q_EMIT layoutRequested();
}

void DBusMenuExporter::getGroupProperties(const QDBusMessage& call) {
    const QVariantList arguments = call.arguments();
    auto ids = qdbus_cast<QList<int>>(arguments.at(0));
    const QStringList wanted = arguments.at(1).toStringList();
    if (ids.isEmpty()) {
        ids = QList<int>{rootId} + order_;
    }
    QList<DBusMenuProperties> group;
    // Each entry once, however often it was asked for: a short request must not make a long answer.
    for (const int id : QSet<int>(ids.cbegin(), ids.cend())) {
        if (knows(id)) {
            group.append({id, restricted(properties(id), wanted)});
        }
    }
    reply(call, {QVariant::fromValue(group)});
}

void DBusMenuExporter::getProperty(const QDBusMessage& call) {
    const int id = call.arguments().at(0).toInt();
    const QString name = call.arguments().at(1).toString();
    const QVariantMap all = knows(id) ? properties(id) : QVariantMap();
    if (!all.contains(name)) {
        fail(call, invalidArgumentsError(), QStringLiteral("menu entry %1 has no property %2").arg(id).arg(name));
        return;
    }
    reply(call, {QVariant::fromValue(QDBusVariant(all.value(name)))});
}

void DBusMenuExporter::event(const QDBusMessage& call) {
    const int id = call.arguments().at(0).toInt();
    if (handleEvent(id, call.arguments().at(1).toString(), call.service())) {
        reply(call);
    } else {
        fail(call, invalidArgumentsError(), QStringLiteral("no such menu entry: %1").arg(id));
    }
}

void DBusMenuExporter::eventGroup(const QDBusMessage& call) {
    const auto events = qdbus_cast<QList<DBusMenuEvent>>(call.arguments().at(0));
    QList<int> unknown;
    for (const DBusMenuEvent& event : events) {
        if (!handleEvent(event.id, event.eventId, call.service())) {
            unknown.append(event.id);
        }
    }
    if (!events.isEmpty() && unknown.size() == events.size()) {
        fail(call, invalidArgumentsError(), QStringLiteral("no such menu entries"));
        return;
    }
    reply(call, {QVariant::fromValue(unknown)});
}

void DBusMenuExporter::aboutToShow(const QDBusMessage& call) {
    const int id = call.arguments().at(0).toInt();
    if (!knows(id)) {
        fail(call, invalidArgumentsError(), QStringLiteral("no such menu entry: %1").arg(id));
        return;
    }
    // What a host has read is kept right by signals; nothing is prepared only when the menu opens.
    reply(call, {false});
    if (id == rootId) {
        assumeOpenIn(call.service());
    }
}

void DBusMenuExporter::aboutToShowGroup(const QDBusMessage& call) {
    const auto ids = qdbus_cast<QList<int>>(call.arguments().at(0));
    QList<int> unknown;
    std::copy_if(ids.cbegin(), ids.cend(), std::back_inserter(unknown), [this](int id) { return !knows(id); });
    if (!ids.isEmpty() && unknown.size() == ids.size()) {
        fail(call, invalidArgumentsError(), QStringLiteral("no such menu entries"));
        return;
    }
    reply(call, {QVariant::fromValue(QList<int>()), QVariant::fromValue(unknown)});
    if (ids.contains(rootId)) {
        assumeOpenIn(call.service());
    }
}

bool DBusMenuExporter::handleEvent(int id, const QString& eventId, const QString& host) {
    if (!knows(id)) {
        return false;
    }
    if (id == rootId) {
        if (eventId == QLatin1String("opened") || eventId == QLatin1String("closed")) {
            if (host == assumedIn_) {
                endAssumption();
            }
            setOpenIn(host, eventId == QLatin1String("opened"));
        }
        return true;
    }
    if (eventId == QLatin1String("clicked")) {
        if (host == assumedIn_) {
            // A choice closes the menu.
            endAssumption();
        }
        // Only after the answer is on its way: the action may open windows, change this menu or end the program. An
        // action that is disabled by then takes no notice.
        QMetaObject::invokeMethod(entries_.value(id).action, &QAction::trigger, Qt::QueuedConnection);
    }
    return true;
}

void DBusMenuExporter::setOpenIn(const QString& host, bool open) {
    const bool wasOpen = isOpen();
    if (open == openIn_.contains(host)) {
        return;
    }
    if (open) {
        openIn_.insert(host);
        hostWatcher_->addWatchedService(host);
    } else {
        openIn_.remove(host);
        hostWatcher_->removeWatchedService(host);
    }
    if (isOpen() != wasOpen) {
        Q_EMIT openChanged(isOpen());
    }
}

void DBusMenuExporter::assumeOpenIn(const QString& host) {
    if (host != assumedIn_) {
        endAssumption();
        if (openIn_.contains(host)) {
            return;
        }
        assumedIn_ = host;
        setOpenIn(host, true);
    }
    assumptionTimer_.start();
}

void DBusMenuExporter::endAssumption() {
    assumptionTimer_.stop();
    if (!assumedIn_.isEmpty()) {
        setOpenIn(std::exchange(assumedIn_, QString()), false);
    }
}

QVariantMap DBusMenuExporter::properties(int id) {
    if (id == rootId) {
        return {{QStringLiteral("children-display"), QStringLiteral("submenu")}};
    }
    return propertiesOf(entries_[id]);
}

QVariantMap DBusMenuExporter::propertiesOf(Entry& entry) {
    const QAction& action = *entry.action;
    // Given even where they have the value that their absence would mean, so that a change is never a removal, which
    // not every host follows.
    QVariantMap properties = {{QStringLiteral("visible"), action.isVisible()},
                              {QStringLiteral("enabled"), action.isEnabled()}};
    if (action.isSeparator()) {
        properties.insert(QStringLiteral("type"), QStringLiteral("separator"));
        return properties;
    }
    properties.insert(QStringLiteral("label"), menuLabel(action.text()));
    if (action.isCheckable()) {
        properties.insert(QStringLiteral("toggle-type"), QStringLiteral("checkmark"));
        properties.insert(QStringLiteral("toggle-state"), action.isChecked() ? 1 : 0);
    }
    if (!action.shortcut().isEmpty()) {
        properties.insert(QStringLiteral("shortcut"), QVariant::fromValue(menuShortcut(action.shortcut())));
    }
    if (!action.icon().isNull()) {
        properties.insert(QStringLiteral("icon-data"), iconData(entry));
    }
    return properties;
}

QByteArray DBusMenuExporter::iconData(Entry& entry) {
    const QIcon icon = entry.action->icon();
    if (entry.iconKey != icon.cacheKey()) {
        entry.iconKey = icon.cacheKey();
        entry.iconData = pngOf(icon);
    }
    return entry.iconData;
}

bool DBusMenuExporter::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::ActionAdded || event->type() == QEvent::ActionChanged) {
        scheduleUpdate();
    } else if (event->type() == QEvent::ActionRemoved) {
        // The action may be gone by the time of the update.
        const QAction* removed = static_cast<QActionEvent*>(event)->action();
        entries_.removeIf([removed](QHash<int, Entry>::iterator entry) { return entry->action == removed; });
        order_.removeIf([this](int id) { return !entries_.contains(id); });
        scheduleUpdate();
    }
    return ExportedObject::eventFilter(watched, event);
}

void DBusMenuExporter::scheduleUpdate() {
    if (!updateScheduled_) {
        updateScheduled_ = true;
        QMetaObject::invokeMethod(this, &DBusMenuExporter::update, Qt::QueuedConnection);
    }
}

void DBusMenuExporter::update() {
    updateScheduled_ = false;
    renumber();
    if (order_ != toldOrder_) {
        toldOrder_ = order_;
        ++revision_;
        emitSignal(QStringLiteral("LayoutUpdated"), {revision_, rootId});
    }
    tellPropertyChanges();
}

void DBusMenuExporter::renumber() {
    QHash<const QAction*, int> numbers;
    for (auto entry = entries_.cbegin(); entry != entries_.cend(); ++entry) {
        numbers.insert(entry->action, entry.key());
    }
    order_.clear();
    for (QAction* action : menu_.actions()) {
        int id = numbers.value(action, rootId);
        if (id == rootId) {
            id = ++lastId_;
            Entry entry;
            entry.action = action;
            entry.told = propertiesOf(entry);
            entries_.insert(id, entry);
        }
        order_.append(id);
    }
}

void DBusMenuExporter::tellPropertyChanges() {
    QList<DBusMenuProperties> changed;
    QList<DBusMenuPropertyNames> removed;
    for (const int id : std::as_const(order_)) {
        Entry& entry = entries_[id];
        const QVariantMap now = propertiesOf(entry);
        QVariantMap changedHere;
        for (auto property = now.cbegin(); property != now.cend(); ++property) {
            if (entry.told.value(property.key()) != *property) {
                changedHere.insert(property.key(), *property);
            }
        }
        QStringList removedHere = entry.told.keys();
        removedHere.removeIf([&now](const QString& name) { return now.contains(name); });
        if (!changedHere.isEmpty()) {
            changed.append({id, changedHere});
        }
        if (!removedHere.isEmpty()) {
            removed.append({id, removedHere});
        }
        entry.told = now;
    }
    if (!changed.isEmpty() || !removed.isEmpty()) {
        emitSignal(QStringLiteral("ItemsPropertiesUpdated"),
                   {QVariant::fromValue(changed), QVariant::fromValue(removed)});
    }
}

} // namespace skylet
