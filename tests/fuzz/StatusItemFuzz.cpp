#include "fuzz/Fuzz.h"
#include "platform/linux/statusitem/host/DBusMenuExporter.h"
#include "platform/linux/statusitem/host/DBusReading.h"
#include "platform/linux/statusitem/host/SniObject.h"
#include "support/PrivateBus.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusVariant>

namespace skylet::test {
namespace {

const auto menuPath = [] { return QStringLiteral("/MenuBar"); };
const auto itemPath = [] { return QStringLiteral("/StatusNotifierItem"); };
const auto menuInterface = [] { return QStringLiteral("com.canonical.dbusmenu"); };
const auto itemInterface = [] { return QStringLiteral("org.kde.StatusNotifierItem"); };
const auto propertiesInterface = [] { return QStringLiteral("org.freedesktop.DBus.Properties"); };

// The sixth entry is a separator, the seventh is disabled.
constexpr int entries = 8;
constexpr int separator = 6;
constexpr int disabled = 7;
constexpr int mostCalls = 32;

int itemId(FuzzInput& input) {
    const auto choice = input.byte();
    return choice < 250 ? choice % (entries + 4) : input.number<int>();
}

bool isKnown(int id) {
    return id >= 0 && id <= entries;
}

QString eventName(FuzzInput& input) {
    static const QStringList names = {QStringLiteral("clicked"), QStringLiteral("opened"), QStringLiteral("closed"),
                                      QStringLiteral("hovered")};
    const auto choice = input.byte();
    return choice < 200 ? names.at(choice % names.size()) : QString::fromUtf8(input.line());
}

QVariant anyValue(FuzzInput& input) {
    switch (input.byte() % 8) {
    case 0:
        return input.number<int>();
    case 1:
        return QString::fromUtf8(input.line());
    case 2:
        return input.number<double>();
    case 3:
        return QStringList{QString::fromUtf8(input.line()), QString::fromUtf8(input.line())};
    case 4:
        return input.line();
    case 5:
        return QVariantMap{{QString::fromUtf8(input.line()), input.number<int>()}};
    case 6:
        return QVariant::fromValue(QDBusVariant(input.number<quint64>()));
    default:
        return input.flag();
    }
}

QVariant variant(const QVariant& value) {
    return QVariant::fromValue(QDBusVariant(value));
}

/// The item and its menu, on a connection that calls itself: Qt delivers such calls without the bus, and as it delivers
/// those that come from there.
class ExportedItem {
  public:
    ExportedItem() {
        for (int id = 1; id <= entries; ++id) {
            menu_.push_back(id == separator
                                ? MenuItem::separator()
                                : std::make_shared<MenuItem>(
                                      QStringLiteral("entry"), [this, id] { ++triggered_[id]; }, QString()));
        }
        menu_[disabled - 1]->setEnabled(false);
        exporter_.setMenu(menu_);
        require(exporter_.exportOn(connection_, menuPath()) && item_.exportOn(connection_), "the item is on the bus");
        item_.setId(QStringLiteral("skylet"));
        ItemAppearance appearance;
        appearance.label = QStringLiteral("87");
        item_.setAppearance(appearance);
        QCoreApplication::processEvents();
    }

    QDBusMessage call(const QString& path, const QString& interface, const QString& method,
                      const QVariantList& arguments) {
        auto message = QDBusMessage::createMethodCall(connection_.baseService(), path, interface, method);
        message.setArguments(arguments);
        return connection_.call(message);
    }
    QDBusMessage callMenu(const QString& method, const QVariantList& arguments) {
        return call(menuPath(), menuInterface(), method, arguments);
    }

    /// After whatever a host has done.
    void check() {
        QCoreApplication::processEvents();
        require(triggered_.count(separator) == 0 && triggered_.count(disabled) == 0, "what is disabled does nothing");
        const auto layout = callMenu(QStringLiteral("GetLayout"), {0, -1, QStringList()});
        require(qdbus_cast<DBusMenuLayout>(layout.arguments().value(1)).children.size() == entries,
                "the menu has its entries");
    }

    std::map<int, int>& triggered() { return triggered_; }

  private:
    PrivateBus bus_;
    QDBusConnection connection_ = bus_.connect();
    Menu menu_;
    DBusMenuExporter exporter_{std::chrono::milliseconds(1)};
    SniObject item_{itemPath(), menuPath(), [](const QString& /*host*/, QPoint /*place*/) { return true; }};
    std::map<int, int> triggered_;
};

std::unique_ptr<ExportedItem> exported;

ExportedItem& item() {
    if (!exported) {
        exported = std::make_unique<ExportedItem>();
        qAddPostRoutine([] { exported.reset(); });
    }
    return *exported;
}

/// Whether a host that says so of an entry chooses it.
bool chooses(int id, const QString& event) {
    return isKnown(id) && id != 0 && id != separator && id != disabled && event == u"clicked";
}

/// What was chosen before is done and forgotten.
void forgetChoices() {
    QCoreApplication::processEvents();
    item().triggered().clear();
}

bool isError(const QDBusMessage& answer) {
    return answer.type() == QDBusMessage::ErrorMessage;
}

void callMenuOnce(FuzzInput& input) {
    switch (input.byte() % 8) {
    case 0: {
        const int id = itemId(input);
        const auto answer = item().callMenu(QStringLiteral("GetLayout"),
                                            {id, input.number<int>(), QStringList{QString::fromUtf8(input.line())}});
        require(isError(answer) == !isKnown(id), "entries that are there have a layout");
        break;
    }
    case 1: {
        QList<int> ids;
        for (int count = input.byte(); count > 0; --count) {
            ids.append(itemId(input));
        }
        const auto answer =
            item().callMenu(QStringLiteral("GetGroupProperties"), {QVariant::fromValue(ids), QStringList()});
        require(qdbus_cast<QList<DBusMenuProperties>>(answer.arguments().value(0)).size() <= entries + 1,
                "each entry comes once");
        break;
    }
    case 2:
        item().callMenu(QStringLiteral("GetProperty"), {itemId(input), QString::fromUtf8(input.line())});
        break;
    case 3: {
        const int id = itemId(input);
        const QString name = eventName(input);
        forgetChoices();
        const auto answer =
            item().callMenu(QStringLiteral("Event"), {id, name, variant(anyValue(input)), input.number<uint>()});
        require(isError(answer) == !isKnown(id), "entries that are there have events");
        QCoreApplication::processEvents();
        require(item().triggered() == (chooses(id, name) ? std::map<int, int>{{id, 1}} : std::map<int, int>()),
                "a click chooses once, and nothing else does");
        break;
    }
    case 4: {
        QList<DBusMenuEvent> events;
        std::map<int, int> chosen;
        for (int count = input.byte(); count > 0; --count) {
            events.append({itemId(input), eventName(input)});
            if (chooses(events.constLast().id, events.constLast().eventId)) {
                chosen[events.constLast().id] = 1;
            }
        }
        forgetChoices();
        const auto known =
            std::count_if(events.begin(), events.end(), [](const auto& event) { return isKnown(event.id); });
        const auto answer = item().callMenu(QStringLiteral("EventGroup"), {QVariant::fromValue(events)});
        require(isError(answer) == (!events.isEmpty() && known == 0), "a group is refused as a whole or not at all");
        QCoreApplication::processEvents();
        require(item().triggered() == chosen, "a group chooses each entry once, however often it was clicked");
        break;
    }
    case 5: {
        const int id = itemId(input);
        require(isError(item().callMenu(QStringLiteral("AboutToShow"), {id})) == !isKnown(id), "entries can be shown");
        break;
    }
    case 6: {
        const QList<int> ids = {itemId(input), itemId(input), itemId(input)};
        item().callMenu(QStringLiteral("AboutToShowGroup"), {QVariant::fromValue(ids)});
        break;
    }
    default: {
        QVariantList arguments;
        for (int count = input.byte() % 5; count > 0; --count) {
            arguments.append(anyValue(input));
        }
        static const QStringList methods = {QStringLiteral("GetLayout"),   QStringLiteral("Event"),
                                            QStringLiteral("EventGroup"),  QStringLiteral("AboutToShow"),
                                            QStringLiteral("GetProperty"), QStringLiteral("deleteLater"),
                                            QStringLiteral("setMenu"),     QStringLiteral("nobody")};
        item().callMenu(methods.at(input.byte() % methods.size()), arguments);
        break;
    }
    }
}

void callMenu(FuzzInput input) {
    for (int calls = 0; calls < mostCalls && !input.isEmpty(); ++calls) {
        callMenuOnce(input);
    }
    item().check();
}

void callItemOnce(FuzzInput& input) {
    static const QStringList properties = {
        QStringLiteral("Id"),         QStringLiteral("Status"),     QStringLiteral("IconName"),
        QStringLiteral("IconPixmap"), QStringLiteral("ToolTip"),    QStringLiteral("XAyatanaLabel"),
        QStringLiteral("Menu"),       QStringLiteral("objectName"), QStringLiteral("nothing")};
    const auto choice = input.byte() % 8;
    switch (choice) {
    case 0:
    case 1:
    case 2: {
        static const QStringList methods = {QStringLiteral("Activate"), QStringLiteral("ContextMenu"),
                                            QStringLiteral("SecondaryActivate")};
        item().call(itemPath(), itemInterface(), methods.at(choice), {input.number<int>(), input.number<int>()});
        break;
    }
    case 3:
        item().call(itemPath(), itemInterface(), QStringLiteral("Scroll"),
                    {input.number<int>(), QString::fromUtf8(input.line())});
        break;
    case 4:
        item().call(itemPath(), itemInterface(), QStringLiteral("ProvideXdgActivationToken"),
                    {QString::fromUtf8(input.line())});
        break;
    case 5:
        item().call(itemPath(), propertiesInterface(), QStringLiteral("Get"),
                    {itemInterface(), properties.at(input.byte() % properties.size())});
        break;
    case 6: {
        const QString& property = properties.at(input.byte() % properties.size());
        const auto answer = item().call(itemPath(), propertiesInterface(), QStringLiteral("Set"),
                                        {itemInterface(), property, variant(anyValue(input))});
        const auto name = item().call(itemPath(), propertiesInterface(), QStringLiteral("Get"),
                                      {itemInterface(), QStringLiteral("objectName")});
        require(isError(answer) || name.arguments().value(0).value<QDBusVariant>().variant() == QString(),
                "nobody sets a property");
        break;
    }
    default: {
        QVariantList arguments;
        for (int count = input.byte() % 4; count > 0; --count) {
            arguments.append(anyValue(input));
        }
        item().call(itemPath(), itemInterface(), QString::fromUtf8(input.line()), arguments);
        break;
    }
    }
}

void callItem(FuzzInput input) {
    for (int calls = 0; calls < mostCalls && !input.isEmpty(); ++calls) {
        callItemOnce(input);
    }
    item().check();
}

const FuzzTarget menuTarget("menu", callMenu);
const FuzzTarget itemTarget("item", callItem);

} // namespace
} // namespace skylet::test
