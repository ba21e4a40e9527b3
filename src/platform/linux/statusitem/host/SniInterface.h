#pragma once

#include "platform/linux/statusitem/host/DBusTypes.h"
#include "platform/linux/statusitem/host/SniObject.h"

#include <QDBusAbstractAdaptor>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QPoint>

namespace skylet {

/// org.kde.StatusNotifierItem, without a label. What it tells is the object's.
class SniInterface : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Category MEMBER category_ CONSTANT)
    Q_PROPERTY(QString Id READ id)
    Q_PROPERTY(QString Title MEMBER title_ CONSTANT)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(int WindowId MEMBER windowId_ CONSTANT)
    Q_PROPERTY(QString IconThemePath MEMBER none_ CONSTANT)
    Q_PROPERTY(QDBusObjectPath Menu READ menu)
    Q_PROPERTY(bool ItemIsMenu MEMBER itemIsMenu_ CONSTANT)
    Q_PROPERTY(QString IconName READ iconName)
    Q_PROPERTY(QList<skylet::DBusPixmap> IconPixmap READ iconPixmap)
    Q_PROPERTY(QString OverlayIconName MEMBER none_ CONSTANT)
    Q_PROPERTY(QList<skylet::DBusPixmap> OverlayIconPixmap MEMBER overlay_ CONSTANT)
    Q_PROPERTY(QString AttentionIconName READ iconName)
    Q_PROPERTY(QList<skylet::DBusPixmap> AttentionIconPixmap READ attentionIconPixmap)
    Q_PROPERTY(QString AttentionMovieName MEMBER none_ CONSTANT)
    Q_PROPERTY(skylet::DBusToolTip ToolTip READ toolTip)
    Q_PROPERTY(uint XAyatanaOrderingIndex MEMBER orderingIndex_ CONSTANT)

  public:
    SniInterface(QObject* exported, SniObject& object) : QDBusAbstractAdaptor(exported), object_(object) {}

  public Q_SLOTS: // NOLINT(readability-redundant-access-specifiers): the protocol's
    void Activate(int x, int y, const QDBusMessage& call) { object_.openMenu(QPoint(x, y), call); }
    void ContextMenu(int x, int y, const QDBusMessage& call) { object_.openMenu(QPoint(x, y), call); }
    void SecondaryActivate(int /*x*/, int /*y*/) {}
    void XAyatanaSecondaryActivate(uint /*timestamp*/) {}
    void Scroll(int /*delta*/, const QString& /*orientation*/) {}
    void ProvideXdgActivationToken(const QString& token) { object_.takeActivationToken(token); }

  Q_SIGNALS:
    void NewTitle();
    void NewIcon();
    void NewAttentionIcon();
    void NewToolTip();
    void NewStatus(const QString& status);
    void XAyatanaNewLabel(const QString& label, const QString& guide);

  protected:
    SniObject& object() const { return object_; }

  private:
    QString id() const { return object_.id(); }
    QString status() const { return object_.statusName(); }
    QDBusObjectPath menu() const { return QDBusObjectPath(object_.menuPath()); }
    QString iconName() const { return object_.iconName(); }
    QList<DBusPixmap> iconPixmap() const { return object_.iconPixmap(); }
    QList<DBusPixmap> attentionIconPixmap() const { return object_.attentionIconPixmap(); }
    DBusToolTip toolTip() const { return object_.toolTip(); }

    SniObject& object_;
    const QString category_ = QStringLiteral("ApplicationStatus");
    const QString title_ = QStringLiteral("Skylet");
    const QString none_;
    const QList<DBusPixmap> overlay_;
    const int windowId_ = 0;
    const bool itemIsMenu_ = true;
    // The host chooses the place.
    const uint orderingIndex_ = 0;
};

/// The same with the label that libayatana-appindicator added to it.
class LabelledSniInterface final : public SniInterface {
    Q_OBJECT
    // Qt takes the name of a signal's interface from the last class alone.
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString XAyatanaLabel READ label)
    Q_PROPERTY(QString XAyatanaLabelGuide READ labelGuide)

  public:
    using SniInterface::SniInterface;

  private:
    QString label() const { return object().appearance().label; }
    QString labelGuide() const { return object().appearance().labelGuide; }
};

} // namespace skylet
