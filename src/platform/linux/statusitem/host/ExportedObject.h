#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QHash>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <functional>
#include <optional>

namespace skylet {

/// One interface on one object path, served without a meta-object, so that a property can be there or not from one
/// moment to the next. Answers introspection, the standard property calls and calls with the wrong arguments by itself;
/// it never blocks and never answers a call twice.
class ExportedObject : public QDBusVirtualObject {
    Q_OBJECT

  public:
    ~ExportedObject() override;
    ExportedObject(const ExportedObject&) = delete;
    ExportedObject& operator=(const ExportedObject&) = delete;
    ExportedObject(ExportedObject&&) = delete;
    ExportedObject& operator=(ExportedObject&&) = delete;

    /// Makes the object visible on the connection; false when the path is taken or the connection is not open.
    bool exportOn(const QDBusConnection& connection);
    const QString& path() const { return path_; }

    QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

  protected:
    /// Answers a call whose arguments have the promised signature.
    using Method = std::function<void(const QDBusMessage&)>;
    /// Makes the value of a property; an empty optional: the object does not have it now.
    using Property = std::function<std::optional<QVariant>()>;

    ExportedObject(QString path, QString interface, QObject* parent);
    /// Arguments and results are given by their D-Bus signatures, one after the other.
    void addMethod(const QString& name, const QStringList& arguments, const QStringList& results, Method method);
    void addProperty(const QString& name, const QString& signature, Property value);
    void addSignal(const QString& name, const QStringList& arguments);

    /// What a method answers with; nothing is sent when the caller wants no answer.
    void reply(const QDBusMessage& call, const QVariantList& values = {});
    void fail(const QDBusMessage& call, const QString& name, const QString& text);
    void emitSignal(const QString& name, const QVariantList& values = {});

  private:
    struct MethodEntry {
        QStringList arguments;
        QStringList results;
        Method call;
    };
    struct PropertyEntry {
        QString signature;
        Property value;
    };

    void handlePropertiesCall(const QDBusMessage& message);
    QVariantMap allProperties() const;

    QString path_;
    QString interface_;
    QDBusConnection connection_;
    QHash<QString, MethodEntry> methods_;
    QHash<QString, PropertyEntry> properties_;
    QHash<QString, QStringList> signals_;
};

/// The names of the errors that D-Bus itself defines.
QString invalidArgumentsError();
QString unknownMethodError();

} // namespace skylet
