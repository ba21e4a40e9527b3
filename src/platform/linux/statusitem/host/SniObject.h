#pragma once

#include "platform/linux/statusitem/drawing/IconFiles.h"
#include "platform/linux/statusitem/drawing/ItemAppearance.h"
#include "platform/linux/statusitem/host/DBusTypes.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusObjectPath>
#include <QObject>
#include <QPoint>

#include <functional>
#include <memory>
#include <optional>

namespace skylet {

/// The item as hosts see it on the bus (org.kde.StatusNotifierItem, with the label that libayatana-appindicator added).
/// A host answers every signal by reading properties, pixmaps included; so signals go out once per turn of the event
/// loop, only for what differs from what was sent last, and none about the tooltip while a host shows the menu, which
/// would make some hosts close it.
class SniObject final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Category MEMBER category_ CONSTANT)
    Q_PROPERTY(QString Id READ id)
    Q_PROPERTY(QString Title MEMBER title_ CONSTANT)
    Q_PROPERTY(QString Status READ statusName)
    Q_PROPERTY(int WindowId MEMBER windowId_ CONSTANT)
    Q_PROPERTY(QString IconThemePath MEMBER none_ CONSTANT)
    Q_PROPERTY(QDBusObjectPath Menu MEMBER menuPath_ CONSTANT)
    Q_PROPERTY(bool ItemIsMenu MEMBER itemIsMenu_ CONSTANT)
    Q_PROPERTY(QString IconName READ iconName)
    Q_PROPERTY(QList<skylet::DBusPixmap> IconPixmap READ iconPixmap)
    Q_PROPERTY(QString OverlayIconName MEMBER none_ CONSTANT)
    Q_PROPERTY(QList<skylet::DBusPixmap> OverlayIconPixmap MEMBER overlay_ CONSTANT)
    Q_PROPERTY(QString AttentionIconName READ attentionIconName)
    Q_PROPERTY(QList<skylet::DBusPixmap> AttentionIconPixmap READ attentionIconPixmap)
    Q_PROPERTY(QString IconAccessibleDesc READ accessibleDescription)
    Q_PROPERTY(QString AttentionAccessibleDesc READ accessibleDescription)
    Q_PROPERTY(QString AttentionMovieName MEMBER none_ CONSTANT)
    Q_PROPERTY(skylet::DBusToolTip ToolTip READ toolTip)
    Q_PROPERTY(uint XAyatanaOrderingIndex MEMBER orderingIndex_ CONSTANT)
    // MATE 1.27 hides an item whose label is there but empty. Not "scriptable", these can be left out of the export.
    Q_PROPERTY(QString XAyatanaLabel READ label SCRIPTABLE false)
    Q_PROPERTY(QString XAyatanaLabelGuide READ labelGuide SCRIPTABLE false)

  public:
    enum class Status { passive, active, needsAttention };
    enum class OpenMenu {
        none,
        /// A host has made it from what it read on the bus.
        ofHost,
        /// The item has popped it up by itself.
        own,
    };
    /// Opens the menu at a place, in logical pixels; false when the calling host shall open it by itself.
    using MenuOpener = std::function<bool(const QString& host, QPoint place)>;

    SniObject(QString path, const QString& menuPath, MenuOpener menuOpener);

    bool exportOn(const QDBusConnection& connection);
    /// Hosts read it once, so it has to be right before they come.
    void setId(const QString& id) { id_ = id; }
    void setAppearance(const ItemAppearance& appearance);
    /// Leaves the label empty for a host that reads the item for the first time, or fills it. GNOME's extension does
    /// not show the label that it has read with the item (version 59), nor follows a signal with a text that it has
    /// read, or where it has read no label at all (46); so the first label is told by a signal.
    void setLabelHeldBack(bool heldBack);
    /// Whether hosts are given the icon as a file, by its name, instead of its pixels.
    void setIconByName(bool byName);
    void setStatus(Status status);
    void setOpenMenu(OpenMenu menu);

  Q_SIGNALS:
    /// The host lets the program bring the next window to the front by this token.
    void activationTokenProvided(const QString& token);

    // The protocol.
    Q_SCRIPTABLE void NewTitle();
    Q_SCRIPTABLE void NewIcon();
    Q_SCRIPTABLE void NewAttentionIcon();
    /// GNOME's extension takes it for a signal of the protocol.
    Q_SCRIPTABLE void NewIconAccessibleDesc();
    Q_SCRIPTABLE void NewToolTip();
    Q_SCRIPTABLE void NewStatus(const QString& status);
    Q_SCRIPTABLE void XAyatanaNewLabel(const QString& label, const QString& guide);

  public Q_SLOTS: // NOLINT(readability-redundant-access-specifiers): the protocol's
    void Activate(int x, int y) { openMenu(QPoint(x, y)); }
    void ContextMenu(int x, int y) { openMenu(QPoint(x, y)); }
    void SecondaryActivate(int /*x*/, int /*y*/) {}
    void XAyatanaSecondaryActivate(uint /*timestamp*/) {}
    void Scroll(int /*delta*/, const QString& /*orientation*/) {}
    void ProvideXdgActivationToken(const QString& token);

  private:
    struct Sent {
        StatusIcon icon;
        QString description;
        QString label;
        Status status = Status::active;
        DBusToolTip toolTip;
    };

    QString id() const { return id_; }
    QString statusName() const;
    /// Empty while hosts are given pixels.
    QString iconName() { return fileName(shownIcon()); }
    QList<DBusPixmap> iconPixmap();
    QString attentionIconName() { return fileName(attentionIcon()); }
    QList<DBusPixmap> attentionIconPixmap();
    QString accessibleDescription() const { return appearance_.description; }
    /// As it was sent last: a host that reads a new icon may read the tooltip as well.
    DBusToolTip toolTip() const { return sent_ ? sent_->toolTip : wantedToolTip(); }
    QString label() const { return labelIsHeldBack_ ? QString() : appearance_.label; }
    QString labelGuide() const { return appearance_.labelGuide; }

    bool exportItem();
    void updateLabel();
    void openMenu(QPoint place);
    void scheduleSignals();
    void sendSignals();
    DBusToolTip wantedToolTip() const;
    /// Framed while attention is wanted, since MATE and Waybar draw no other.
    StatusIcon shownIcon() const;
    StatusIcon attentionIcon() const;
    QString fileName(const StatusIcon& icon);

    const QString path_;
    const MenuOpener menuOpener_;
    const QString category_ = QStringLiteral("ApplicationStatus");
    const QString title_ = QStringLiteral("Skylet");
    const QString none_;
    const QList<DBusPixmap> overlay_;
    const QDBusObjectPath menuPath_;
    const int windowId_ = 0;
    const bool itemIsMenu_ = true;
    // The host chooses the place.
    const uint orderingIndex_ = 0;
    QDBusConnection connection_{QString()};
    QString id_;
    ItemAppearance appearance_;
    bool labelIsHeldBack_ = false;
    bool labelIsExported_ = false;
    Status status_ = Status::active;
    OpenMenu openMenu_ = OpenMenu::none;
    /// What hosts have read or were told of by the last signals; absent before the first turn of the event loop, in
    /// which nothing changes for anybody.
    std::optional<Sent> sent_;
    bool signalsScheduled_ = false;
    /// Absent while hosts are given pixels.
    std::unique_ptr<IconFiles> iconFiles_;
    std::optional<StatusIcon> paintedIcon_;
    QList<DBusPixmap> pixmaps_;
};

} // namespace skylet
