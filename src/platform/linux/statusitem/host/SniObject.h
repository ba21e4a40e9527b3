#pragma once

#include "platform/linux/statusitem/drawing/IconFiles.h"
#include "platform/linux/statusitem/drawing/ItemAppearance.h"
#include "platform/linux/statusitem/host/DBusTypes.h"
#include "platform/linux/statusitem/host/ExportedObject.h"

#include <QPoint>

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace skylet {

/// The item as hosts see it on the bus: org.kde.StatusNotifierItem with the label that libayatana-appindicator added to
/// it. A host answers every signal by reading properties, pixmaps included; so signals go out once per turn of the
/// event loop, only for what differs from what was told last, and none about the tooltip while a host shows the menu,
/// which would make some hosts close it.
class SniObject final : public ExportedObject {
    Q_OBJECT

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

    SniObject(const QString& path, const QString& menuPath);

    void setMenuOpener(MenuOpener opener) { menuOpener_ = std::move(opener); }
    /// Gets the token with which the host lets the program bring the next window to the front.
    void setActivationTokenTaker(std::function<void(const QString& token)> taker) { tokenTaker_ = std::move(taker); }
    /// Hosts read it once, so it has to be right before they come.
    void setId(const QString& id) { id_ = id; }
    void setAppearance(const ItemAppearance& appearance);
    /// Whether hosts are given the icon as a file, by its name, instead of its pixels.
    void setIconByName(bool byName);
    void setStatus(Status status);
    void setOpenMenu(OpenMenu menu);

  private:
    struct Told {
        ItemAppearance appearance;
        Status status = Status::active;
    };

    void addItemProperties(const QString& menuPath);
    void addItemMethods();
    void openMenu(const QDBusMessage& call);
    void scheduleTelling();
    void tellChanges();
    void tellToolTip();
    std::pair<QString, QString> shownToolTip() const;
    DBusToolTip toolTip() const;
    const QList<DBusPixmap>& pixmaps();
    QList<DBusPixmap> smallestPixmap();
    QString iconName();

    QString id_;
    ItemAppearance appearance_;
    Status status_ = Status::active;
    OpenMenu openMenu_ = OpenMenu::none;
    /// Absent until the first turn of the event loop: what stands then is read, not told.
    std::optional<Told> told_;
    bool tellingScheduled_ = false;
    MenuOpener menuOpener_;
    std::function<void(const QString& token)> tokenTaker_;
    /// Absent while hosts are given pixels.
    std::unique_ptr<IconFiles> iconFiles_;
    std::optional<StatusIcon> paintedIcon_;
    QList<DBusPixmap> pixmaps_;
};

} // namespace skylet
