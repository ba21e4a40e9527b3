#include "platform/linux/statusitem/host/DBusMenuExporter.h"

#include "platform/linux/statusitem/host/DBusReading.h"
#include "platform/linux/statusitem/host/FakeStatusHost.h"
#include "support/EventLoop.h"
#include "support/PrivateBus.h"
#include "support/QStringPrinting.h"

#include <QDBusError>
#include <QImage>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <limits>

namespace skylet {
namespace {

using test::callAndWait;
using test::PrivateBus;
using test::runFor;
using test::waitUntil;

using testing::ElementsAre;
using testing::IsEmpty;

class DBusMenuExporterTest : public testing::Test {
  protected:
    DBusMenuExporterTest() {
        line_->setEnabled(false);
        check_->setChecked(true);
        about_->setApplicationIconSize(16);
        exporter_.setMenu({line_, MenuItem::separator(), run_, check_, about_});
        EXPECT_TRUE(exporter_.exportOn(itemConnection_, QStringLiteral("/MenuBar")));
        host_.takeItem(itemConnection_.baseService());
        host_.settle();
        host_.forgetSignals();
    }

    std::shared_ptr<MenuItem> command(const QString& title, const QString& key = {}) {
        return std::make_shared<MenuItem>(
            title, [this, title] { chosen_.append(title); }, key);
    }

    DBusMenuLayout layout(int parent = 0, int depth = -1, const QStringList& names = {}) {
        const QDBusMessage answer = host_.callMenu(QStringLiteral("GetLayout"), {parent, depth, names});
        EXPECT_EQ(answer.signature(), QStringLiteral("u(ia{sv}av)"));
        return qdbus_cast<DBusMenuLayout>(answer.arguments().value(1));
    }

    int idOf(int index) { return layout().children.at(index).id; }

    QVariant property(int index, const QString& name) { return layout().children.at(index).properties.value(name); }

    QDBusMessage event(int id, const QString& eventId, const QVariant& data = 0) {
        return host_.callMenu(QStringLiteral("Event"), {id, eventId, QVariant::fromValue(QDBusVariant(data)), 0U});
    }

    static QVariant list(const QList<int>& ids) { return QVariant::fromValue(ids); }

    /// The property changes of the last ItemsPropertiesUpdated.
    QList<DBusMenuProperties> updates() {
        return qdbus_cast<QList<DBusMenuProperties>>(host_.last(QStringLiteral("ItemsPropertiesUpdated")).value(0));
    }

    QList<DBusMenuPropertyNames> removals() {
        return qdbus_cast<QList<DBusMenuPropertyNames>>(host_.last(QStringLiteral("ItemsPropertiesUpdated")).value(1));
    }

    int propertySignals() const { return host_.count(QStringLiteral("ItemsPropertiesUpdated")); }
    int layoutSignals() const { return host_.count(QStringLiteral("LayoutUpdated")); }

    static constexpr std::chrono::milliseconds openTime_{80};
    PrivateBus bus_;
    QDBusConnection itemConnection_ = bus_.connect();
    FakeStatusHost host_{bus_.connect()};
    QStringList chosen_;
    std::shared_ptr<MenuItem> line_ = command(QStringLiteral("Online — 87 ms"));
    std::shared_ptr<MenuItem> run_ = command(QStringLiteral("Run_it & go"), QStringLiteral("t"));
    std::shared_ptr<MenuItem> check_ = command(QStringLiteral("Live traffic"));
    std::shared_ptr<MenuItem> about_ = command(QStringLiteral("About"));
    DBusMenuExporter exporter_{openTime_};
};

TEST_F(DBusMenuExporterTest, ShowsTheMenuFromTopToBottom) {
    const DBusMenuLayout root = layout();
    EXPECT_EQ(root.id, 0);
    EXPECT_EQ(root.properties.value(QStringLiteral("children-display")), QStringLiteral("submenu"));
    ASSERT_EQ(root.children.size(), 5);
    EXPECT_EQ(root.children.at(0).properties.value(QStringLiteral("label")), QStringLiteral("Online — 87 ms"));
    EXPECT_EQ(root.children.at(0).properties.value(QStringLiteral("enabled")), false);
    EXPECT_EQ(root.children.at(1).properties.value(QStringLiteral("type")), QStringLiteral("separator"));
    EXPECT_EQ(root.children.at(2).properties.value(QStringLiteral("enabled")), true);
    EXPECT_EQ(root.children.at(2).properties.value(QStringLiteral("visible")), true);
    EXPECT_FALSE(root.children.at(2).properties.contains(QStringLiteral("toggle-type")));
    EXPECT_EQ(root.children.at(3).properties.value(QStringLiteral("toggle-type")), QStringLiteral("checkmark"));
    EXPECT_EQ(root.children.at(3).properties.value(QStringLiteral("toggle-state")), 1);
}

TEST_F(DBusMenuExporterTest, EscapesTheMarkOfAccessKeys) {
    EXPECT_EQ(property(2, QStringLiteral("label")), QStringLiteral("Run__it & go"));
}

TEST_F(DBusMenuExporterTest, GivesTheShortcut) {
    const auto keys = qdbus_cast<QList<QStringList>>(property(2, QStringLiteral("shortcut")));
    EXPECT_THAT(keys, ElementsAre(QStringList{QStringLiteral("Control"), QStringLiteral("t")}));
    EXPECT_FALSE(property(0, QStringLiteral("shortcut")).isValid());
}

TEST_F(DBusMenuExporterTest, GivesTheIconAsAPictureForScale2) {
    const QImage image = QImage::fromData(property(4, QStringLiteral("icon-data")).toByteArray(), "PNG");
    EXPECT_EQ(image.size(), QSize(32, 32));
    EXPECT_GT(qGreen(image.pixel(16, 14)), 100);
}

TEST_F(DBusMenuExporterTest, AnswersWithTheWantedPropertiesAlone) {
    const DBusMenuLayout root =
        layout(0, -1, {QStringLiteral("type"), QStringLiteral("children-display"), QStringLiteral("nonsense")});
    EXPECT_EQ(root.children.at(1).properties.keys(), QStringList{QStringLiteral("type")});
    EXPECT_THAT(root.children.at(0).properties.keys(), IsEmpty());
}

TEST_F(DBusMenuExporterTest, KeepsToTheDepthAndTheParentThatAreAskedFor) {
    EXPECT_TRUE(layout(0, 0).children.isEmpty());
    EXPECT_EQ(layout(0, 1).children.size(), 5);
    EXPECT_EQ(layout(0, std::numeric_limits<int>::max()).children.size(), 5);
    const DBusMenuLayout entry = layout(idOf(2), -1);
    EXPECT_EQ(entry.properties.value(QStringLiteral("label")), QStringLiteral("Run__it & go"));
    EXPECT_TRUE(entry.children.isEmpty());
}

TEST_F(DBusMenuExporterTest, RefusesUnknownEntries) {
    for (const int id : {-1, 4711, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_EQ(host_.callMenu(QStringLiteral("GetLayout"), {id, -1, QStringList()}).type(),
                  QDBusMessage::ErrorMessage);
        EXPECT_EQ(host_.callMenu(QStringLiteral("GetProperty"), {id, QStringLiteral("label")}).type(),
                  QDBusMessage::ErrorMessage);
        EXPECT_EQ(event(id, QStringLiteral("clicked")).type(), QDBusMessage::ErrorMessage);
        EXPECT_EQ(host_.callMenu(QStringLiteral("AboutToShow"), {id}).type(), QDBusMessage::ErrorMessage);
    }
    EXPECT_TRUE(chosen_.isEmpty());
}

TEST_F(DBusMenuExporterTest, RefusesArgumentsOfTheWrongKind) {
    const auto refused = [](const QDBusMessage& answer) {
        return answer.type() == QDBusMessage::ErrorMessage &&
               answer.errorName() == QDBusError::errorString(QDBusError::UnknownMethod);
    };
    const QString text = QStringLiteral("x");
    EXPECT_TRUE(refused(host_.callMenu(QStringLiteral("GetLayout"))));
    EXPECT_TRUE(refused(host_.callMenu(QStringLiteral("GetLayout"), {text, text, text})));
    EXPECT_TRUE(refused(host_.callMenu(QStringLiteral("GetGroupProperties"), {QStringList{text}, QStringList()})));
    EXPECT_TRUE(refused(host_.callMenu(QStringLiteral("GetProperty"), {0})));
    EXPECT_TRUE(refused(host_.callMenu(QStringLiteral("Event"), {0, text})));
    EXPECT_TRUE(refused(host_.callMenu(QStringLiteral("EventGroup"), {text})));
    EXPECT_TRUE(refused(host_.callMenu(QStringLiteral("AboutToShow"), {text})));
    EXPECT_TRUE(refused(host_.callMenu(QStringLiteral("AboutToShowGroup"), {0})));
    EXPECT_EQ(host_.callMenu(QStringLiteral("NoSuchMethod")).errorName(),
              QDBusError::errorString(QDBusError::UnknownMethod));
}

TEST_F(DBusMenuExporterTest, GivesThePropertiesOfSeveralEntries) {
    const auto group = [this](const QList<int>& ids, const QStringList& names) {
        const QDBusMessage answer = host_.callMenu(QStringLiteral("GetGroupProperties"), {list(ids), names});
        EXPECT_EQ(answer.signature(), QStringLiteral("a(ia{sv})"));
        return qdbus_cast<QList<DBusMenuProperties>>(answer.arguments().value(0));
    };
    const auto two = group({idOf(0), idOf(2)}, {QStringLiteral("label")});
    ASSERT_EQ(two.size(), 2);
    EXPECT_EQ(two.at(0).properties.size(), 1);
    EXPECT_EQ(group({}, {}).size(), 6) << "no entries named: all, and the root";
    EXPECT_TRUE(group({4711}, {}).isEmpty());
    EXPECT_EQ(group(QList<int>(1000, idOf(0)), {}).size(), 1);
}

TEST_F(DBusMenuExporterTest, GivesSingleProperties) {
    const QDBusMessage answer =
        host_.callMenu(QStringLiteral("GetProperty"), {idOf(3), QStringLiteral("toggle-state")});
    EXPECT_EQ(qdbus_cast<QDBusVariant>(answer.arguments().value(0)).variant(), 1);
    EXPECT_EQ(host_.callMenu(QStringLiteral("GetProperty"), {idOf(0), QStringLiteral("toggle-state")}).type(),
              QDBusMessage::ErrorMessage);
}

TEST_F(DBusMenuExporterTest, HasThePropertiesOfTheProtocol) {
    const QDBusMessage answer =
        host_.call(QStringLiteral("/MenuBar"), QStringLiteral("org.freedesktop.DBus.Properties"),
                   QStringLiteral("GetAll"), {QStringLiteral("com.canonical.dbusmenu")});
    const auto all = qdbus_cast<QVariantMap>(answer.arguments().value(0));
    EXPECT_EQ(all.value(QStringLiteral("Version")), 3U);
    EXPECT_EQ(all.value(QStringLiteral("Status")), QStringLiteral("normal"));
    EXPECT_EQ(all.value(QStringLiteral("TextDirection")), QStringLiteral("ltr"));
    EXPECT_TRUE(all.value(QStringLiteral("IconThemePath")).toStringList().isEmpty());
    EXPECT_EQ(all.size(), 4);
}

TEST_F(DBusMenuExporterTest, TriggersAnEntryThatIsClicked) {
    EXPECT_EQ(event(idOf(2), QStringLiteral("clicked")).type(), QDBusMessage::ReplyMessage);
    host_.settle();
    EXPECT_EQ(chosen_, QStringList{QStringLiteral("Run_it & go")});
}

TEST_F(DBusMenuExporterTest, TriggersNothingElse) {
    EXPECT_EQ(event(idOf(0), QStringLiteral("clicked")).type(), QDBusMessage::ReplyMessage) << "disabled";
    EXPECT_EQ(event(idOf(1), QStringLiteral("clicked")).type(), QDBusMessage::ReplyMessage) << "a separator";
    EXPECT_EQ(event(idOf(2), QStringLiteral("hovered")).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(event(idOf(2), QStringLiteral("")).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(event(0, QStringLiteral("clicked"), QStringList{QStringLiteral("odd data")}).type(),
              QDBusMessage::ReplyMessage);
    host_.settle();
    EXPECT_TRUE(chosen_.isEmpty());
}

TEST_F(DBusMenuExporterTest, DoesNotTriggerAnEntryThatWasDisabledSinceTheClick) {
    QObject::connect(&exporter_, &DBusMenuExporter::openChanged, run_.get(), [this] { run_->setEnabled(false); });
    const QList<DBusMenuEvent> events = {
        {idOf(2), QStringLiteral("clicked")},
        {0, QStringLiteral("opened")},
    };
    host_.callMenu(QStringLiteral("EventGroup"), {QVariant::fromValue(events)});
    host_.settle();
    EXPECT_TRUE(chosen_.isEmpty());
}

TEST_F(DBusMenuExporterTest, TakesGroupsOfEventsAndNamesTheUnknownOnes) {
    const QList<DBusMenuEvent> events = {
        {idOf(2), QStringLiteral("clicked")},
        {4711, QStringLiteral("clicked")},
    };
    const QDBusMessage answer = host_.callMenu(QStringLiteral("EventGroup"), {QVariant::fromValue(events)});
    EXPECT_THAT(qdbus_cast<QList<int>>(answer.arguments().value(0)), ElementsAre(4711));
    host_.settle();
    EXPECT_EQ(chosen_.size(), 1);
    const QDBusMessage none = host_.callMenu(QStringLiteral("EventGroup"), {QVariant::fromValue(events.mid(1))});
    EXPECT_EQ(none.type(), QDBusMessage::ErrorMessage);
    const QDBusMessage nothing = host_.callMenu(QStringLiteral("EventGroup"), {QVariant::fromValue(events.mid(2))});
    EXPECT_EQ(nothing.type(), QDBusMessage::ReplyMessage);
}

TEST_F(DBusMenuExporterTest, ChoosesAnEntryOnceHoweverOftenOneMessageHasIt) {
    const QList<DBusMenuEvent> events(1000, {idOf(2), QStringLiteral("clicked")});
    host_.callMenu(QStringLiteral("EventGroup"), {QVariant::fromValue(events)});
    host_.settle();
    EXPECT_EQ(chosen_.size(), 1);
    host_.callMenu(QStringLiteral("EventGroup"), {QVariant::fromValue(events)});
    host_.settle();
    EXPECT_EQ(chosen_.size(), 2);
}

TEST_F(DBusMenuExporterTest, AnswersMessagesAsLargeAsTheBusCarries) {
    const qsizetype megabytes = test::largestMegabytes();
    const QList<DBusMenuEvent> events(megabytes * 24'000, {idOf(2), QStringLiteral("clicked")});
    const QList<int> ids(megabytes * 250'000, idOf(2));
    const QList<int> strangers(megabytes * 250'000, 4711);
    const QStringList names(megabytes * 120'000, QStringLiteral("x"));
    const QString text(megabytes * 1'000'000, u'x');
    const auto isAnswered = [this](const char* method, const QVariantList& arguments) {
        return host_.callMenu(QString::fromUtf8(method), arguments).type() == QDBusMessage::ReplyMessage;
    };
    EXPECT_TRUE(isAnswered("EventGroup", {QVariant::fromValue(events)}));
    EXPECT_TRUE(isAnswered("GetGroupProperties", {list(ids), QStringList()}));
    EXPECT_TRUE(isAnswered("AboutToShowGroup", {list(ids)}));
    EXPECT_FALSE(isAnswered("AboutToShowGroup", {list(strangers)}));
    EXPECT_TRUE(isAnswered("GetLayout", {0, -1, names}));
    EXPECT_FALSE(isAnswered("GetProperty", {idOf(2), text}));
    EXPECT_EQ(event(idOf(2), text).type(), QDBusMessage::ReplyMessage);
    host_.settle();
    EXPECT_EQ(chosen_.size(), 1);
    EXPECT_EQ(layout().children.size(), 5);
}

TEST_F(DBusMenuExporterTest, NeedsNoUpdateBeforeItIsShown) {
    EXPECT_EQ(host_.callMenu(QStringLiteral("AboutToShow"), {0}).arguments().value(0), false);
    const QDBusMessage answer = host_.callMenu(QStringLiteral("AboutToShowGroup"), {list({0, 4711})});
    EXPECT_THAT(qdbus_cast<QList<int>>(answer.arguments().value(0)), IsEmpty());
    EXPECT_THAT(qdbus_cast<QList<int>>(answer.arguments().value(1)), ElementsAre(4711));
    EXPECT_EQ(host_.callMenu(QStringLiteral("AboutToShowGroup"), {list({4711})}).type(), QDBusMessage::ErrorMessage);
}

TEST_F(DBusMenuExporterTest, TellsTheChangesOfOneTurnAtOnce) {
    const int lineId = idOf(0);
    const int runId = idOf(2);
    const int checkId = idOf(3);
    line_->setTitle(QStringLiteral("Online — 90 ms"));
    line_->setTitle(QStringLiteral("Online — 91 ms"));
    run_->setEnabled(false);
    check_->setChecked(false);
    host_.settle();
    EXPECT_EQ(propertySignals(), 1);
    EXPECT_EQ(layoutSignals(), 0);
    const QList<DBusMenuProperties> told = updates();
    ASSERT_EQ(told.size(), 3);
    EXPECT_EQ(told.at(0).id, lineId);
    EXPECT_EQ(told.at(0).properties, (QVariantMap{{QStringLiteral("label"), QStringLiteral("Online — 91 ms")}}));
    EXPECT_EQ(told.at(1).id, runId);
    EXPECT_EQ(told.at(1).properties, (QVariantMap{{QStringLiteral("enabled"), false}}));
    EXPECT_EQ(told.at(2).id, checkId);
    EXPECT_EQ(told.at(2).properties, (QVariantMap{{QStringLiteral("toggle-state"), 0}}));
    EXPECT_TRUE(removals().isEmpty());
}

TEST_F(DBusMenuExporterTest, TellsNothingThatIsAsItWasTold) {
    line_->setTitle(QStringLiteral("something else"));
    line_->setTitle(QStringLiteral("Online — 87 ms"));
    check_->setChecked(false);
    check_->setChecked(true);
    host_.settle();
    EXPECT_EQ(host_.countAll(), 0);
}

TEST_F(DBusMenuExporterTest, TellsACheckMarkAfterAClickThoughItIsAsBefore) {
    const int checkId = idOf(3);
    event(checkId, QStringLiteral("clicked"));
    host_.settle();
    EXPECT_EQ(chosen_.size(), 1);
    ASSERT_EQ(propertySignals(), 1);
    ASSERT_EQ(updates().size(), 1);
    EXPECT_EQ(updates().at(0).id, checkId);
    EXPECT_EQ(updates().at(0).properties, (QVariantMap{{QStringLiteral("toggle-state"), 1}}));
}

TEST_F(DBusMenuExporterTest, TellsNothingAfterAClickOnAnEntryWithoutACheckMark) {
    event(idOf(2), QStringLiteral("clicked"));
    host_.settle();
    EXPECT_EQ(chosen_.size(), 1);
    EXPECT_EQ(host_.countAll(), 0);
}

TEST_F(DBusMenuExporterTest, ToldOnlyWhileOpenItTellsTheWholeMenuWhenThatOpensAndChangesUntilItCloses) {
    exporter_.setToldOnlyWhileOpen(true);
    line_->setTitle(QStringLiteral("Offline"));
    host_.settle();
    EXPECT_EQ(property(0, QStringLiteral("label")), QStringLiteral("Offline"));
    line_->setTitle(QStringLiteral("Online — 87 ms"));
    host_.callMenu(QStringLiteral("AboutToShow"), {0});
    host_.settle();
    EXPECT_EQ(host_.countAll(), 0);
    event(0, QStringLiteral("opened"));
    host_.settle();
    ASSERT_EQ(propertySignals(), 1);
    ASSERT_EQ(updates().size(), 5);
    EXPECT_EQ(updates().at(0).properties, (QVariantMap{{QStringLiteral("enabled"), false},
                                                       {QStringLiteral("label"), QStringLiteral("Online — 87 ms")}}));
    EXPECT_EQ(updates().at(3).properties.value(QStringLiteral("toggle-state")), 1);
    line_->setTitle(QStringLiteral("Offline"));
    host_.settle();
    EXPECT_EQ(propertySignals(), 2);
    EXPECT_EQ(updates().size(), 1);
    event(0, QStringLiteral("closed"));
    line_->setTitle(QStringLiteral("Checking connection..."));
    host_.settle();
    EXPECT_EQ(propertySignals(), 2);
    event(0, QStringLiteral("opened"));
    host_.settle();
    EXPECT_EQ(propertySignals(), 3);
    event(idOf(3), QStringLiteral("clicked"));
    host_.settle();
    EXPECT_EQ(chosen_.size(), 1);
    EXPECT_EQ(propertySignals(), 3);
}

TEST_F(DBusMenuExporterTest, NeverTellsOfANewLayout) {
    line_->setTitle(QStringLiteral("another line"));
    run_->setChecked(true);
    host_.settle();
    EXPECT_EQ(layoutSignals(), 0);
    ASSERT_EQ(updates().size(), 2);
    EXPECT_EQ(updates().at(1).properties, (QVariantMap{{QStringLiteral("toggle-type"), QStringLiteral("checkmark")},
                                                       {QStringLiteral("toggle-state"), 1}}));
    EXPECT_TRUE(removals().isEmpty());
}

TEST_F(DBusMenuExporterTest, KnowsWhetherAHostHasTheMenuOpen) {
    EXPECT_FALSE(exporter_.isOpen());
    event(0, QStringLiteral("opened"));
    EXPECT_TRUE(exporter_.isOpen());
    event(0, QStringLiteral("opened"));
    event(0, QStringLiteral("closed"));
    EXPECT_FALSE(exporter_.isOpen());
    event(0, QStringLiteral("closed"));
    EXPECT_FALSE(exporter_.isOpen());
}

TEST_F(DBusMenuExporterTest, TakesTheMenuForClosedWhenTheHostThatHadItOpenIsGone) {
    QDBusConnection other = bus_.connect();
    QDBusMessage open =
        QDBusMessage::createMethodCall(itemConnection_.baseService(), QStringLiteral("/MenuBar"),
                                       QStringLiteral("com.canonical.dbusmenu"), QStringLiteral("Event"));
    open.setArguments({0, QStringLiteral("opened"), QVariant::fromValue(QDBusVariant(0)), 0U});
    callAndWait(other, open);
    event(0, QStringLiteral("opened"));
    event(0, QStringLiteral("closed"));
    EXPECT_TRUE(exporter_.isOpen()) << "the other host still has it open";
    const QString name = other.name();
    other = QDBusConnection(QString());
    PrivateBus::disconnect(name);
    EXPECT_TRUE(waitUntil([this] { return !exporter_.isOpen(); }));
}

TEST_F(DBusMenuExporterTest, TakesTheMenuForOpenForAWhileWhereTheHostOnlySaysThatItIsAboutToShowIt) {
    host_.callMenu(QStringLiteral("AboutToShowGroup"), {list({0})});
    EXPECT_TRUE(exporter_.isOpen());
    EXPECT_TRUE(waitUntil([this] { return !exporter_.isOpen(); }));
    host_.callMenu(QStringLiteral("AboutToShow"), {0});
    EXPECT_TRUE(exporter_.isOpen());
    EXPECT_TRUE(waitUntil([this] { return !exporter_.isOpen(); }));
    host_.callMenu(QStringLiteral("AboutToShow"), {idOf(2)});
    EXPECT_FALSE(exporter_.isOpen());
}

TEST_F(DBusMenuExporterTest, TakesTheMenuForClosedOnceSomethingIsChosen) {
    host_.callMenu(QStringLiteral("AboutToShow"), {0});
    event(idOf(2), QStringLiteral("clicked"));
    EXPECT_FALSE(exporter_.isOpen());
}

TEST_F(DBusMenuExporterTest, BelievesAHostThatSaysWhenTheMenuOpensAndCloses) {
    host_.callMenu(QStringLiteral("AboutToShow"), {0});
    event(0, QStringLiteral("opened"));
    host_.callMenu(QStringLiteral("AboutToShow"), {0});
    runFor(2 * openTime_);
    EXPECT_TRUE(exporter_.isOpen());
    event(0, QStringLiteral("closed"));
    EXPECT_FALSE(exporter_.isOpen());
    host_.callMenu(QStringLiteral("AboutToShow"), {0});
    event(0, QStringLiteral("closed"));
    EXPECT_FALSE(exporter_.isOpen());
}

TEST_F(DBusMenuExporterTest, TellsThatItsLayoutWasRead) {
    int read = 0;
    QObject::connect(&exporter_, &DBusMenuExporter::layoutRequested, &exporter_, [&read] { ++read; });
    host_.callMenu(QStringLiteral("GetGroupProperties"), {list({}), QStringList()});
    EXPECT_EQ(read, 0);
    layout();
    EXPECT_EQ(read, 1);
}

TEST_F(DBusMenuExporterTest, TellsTheDirectionOfItsTexts) {
    const auto direction = [this] {
        const QDBusMessage answer = host_.call(
            QStringLiteral("/MenuBar"), QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
            {QStringLiteral("com.canonical.dbusmenu"), QStringLiteral("TextDirection")});
        return qdbus_cast<QDBusVariant>(answer.arguments().value(0)).variant().toString();
    };
    EXPECT_EQ(direction(), QStringLiteral("ltr"));
    line_->setTitle(QStringLiteral("מחובר"));
    EXPECT_EQ(direction(), QStringLiteral("rtl"));
}

TEST_F(DBusMenuExporterTest, DescribesItself) {
    const QDBusMessage answer =
        host_.call(QStringLiteral("/MenuBar"), QStringLiteral("org.freedesktop.DBus.Introspectable"),
                   QStringLiteral("Introspect"), {});
    const QString xml = answer.arguments().value(0).toString();
    for (const char* part : {"com.canonical.dbusmenu", "GetLayout", "EventGroup", "LayoutUpdated", "(ia{sv}av)"}) {
        EXPECT_TRUE(xml.contains(QLatin1String(part))) << part;
    }
}

} // namespace
} // namespace skylet
