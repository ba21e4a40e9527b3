#include "platform/linux/statusitem/host/SniObject.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QFontDatabase>

#include <array>
#include <span>
#include <utility>

namespace skylet {

namespace {

// Panels ask for 16 to 32 logical pixels; the rest is for scale 2, where 22 are the most usual. A host takes the
// nearest and scales it.
constexpr std::array iconSizes = {16, 22, 24, 32, 44, 48, 64};
// Of the whole title, which is some ten times as wide, none is larger than twice the usual height: Waybar takes the
// largest whatever its scale is. MATE stretches the next smaller one to its panel's height, so the usual ones are here.
constexpr std::array titleHeights = {16, 22, 24, 28, 32, 44};
// Where the title is drawn there are badges too, for a panel of MATE that stands upright: it takes the widest that fits
// in, and where only the whole title was offered squeezed that into its width. No badge has as many pixels as the
// largest title, and of two that are equally high a lying panel takes the one that comes first.
constexpr std::array uprightSizes = {16, 22, 32, 64};

// An activation token is a short opaque text; a longer one is no token.
constexpr qsizetype longestToken = 1024;

/// Hosts may read the tooltip's text as markup.
QString escapedMarkup(QString text) {
    text.replace(QLatin1Char('&'), QStringLiteral("&amp;"));
    return text.replace(QLatin1Char('<'), QStringLiteral("&lt;"));
}

DBusPixmap painted(const StatusIcon& icon, int size) {
    return toDBusPixmap(paintStatusIcon(icon, size, QFontDatabase::systemFont(QFontDatabase::GeneralFont)));
}

QList<DBusPixmap> paintInAllSizes(StatusIcon icon) {
    QList<DBusPixmap> pixmaps;
    const auto add = [&](std::span<const int> sizes) {
        for (const int size : sizes) {
            pixmaps.append(painted(icon, size));
        }
    };
    if (icon.presentation == Presentation::wide) {
        add(titleHeights);
        icon.presentation = Presentation::badge;
        add(uprightSizes);
    } else {
        add(iconSizes);
    }
    return pixmaps;
}

} // namespace

SniObject::SniObject(QString path, const QString& menuPath, MenuOpener menuOpener)
    : path_(std::move(path)), menuOpener_(std::move(menuOpener)), menuPath_(menuPath) {
    registerDBusTypes();
    keepNameless(*this);
}

bool SniObject::exportOn(const QDBusConnection& connection) {
    connection_ = connection;
    return exportItem();
}

bool SniObject::exportItem() {
    labelIsExported_ = !appearance_.label.isEmpty();
    QDBusConnection::RegisterOptions contents = QDBusConnection::ExportAllSlots |
                                                QDBusConnection::ExportScriptableSignals |
                                                QDBusConnection::ExportScriptableProperties;
    contents.setFlag(QDBusConnection::ExportNonScriptableProperties, labelIsExported_);
    connection_.unregisterObject(path_);
    return connection_.registerObject(path_, this, contents);
}

QString SniObject::statusName() const {
    switch (status_) {
    case Status::passive:
        return QStringLiteral("Passive");
    case Status::needsAttention:
        return QStringLiteral("NeedsAttention");
    case Status::active:
        break;
    }
    return QStringLiteral("Active");
}

void SniObject::openMenu(QPoint place) {
    if (!menuOpener_(message().service(), place) && message().isReplyRequired()) {
        // "Unknown method" is the one refusal after which GNOME's extension never tries again.
        sendErrorReply(QDBusError::UnknownMethod, QStringLiteral("a click opens the menu"));
    }
}

void SniObject::ProvideXdgActivationToken(const QString& token) {
    if (token.size() <= longestToken) {
        Q_EMIT activationTokenProvided(token);
    }
}

void SniObject::setAppearance(const ItemAppearance& appearance) {
    appearance_ = appearance;
    updateLabel();
}

void SniObject::setLabelHeldBack(bool heldBack) {
    labelIsHeldBack_ = heldBack;
    if (heldBack && sent_) {
        sent_->label.clear();
    }
    updateLabel();
}

void SniObject::updateLabel() {
    if (labelIsExported_ == appearance_.label.isEmpty()) {
        exportItem();
    }
    scheduleSignals();
}

void SniObject::setIconByName(bool byName) {
    if (byName != (iconFiles_ != nullptr)) {
        iconFiles_ = byName ? std::make_unique<IconFiles>(IconFiles::usualFolder()) : nullptr;
    }
}

void SniObject::setStatus(Status status) {
    status_ = status;
    scheduleSignals();
}

void SniObject::setOpenMenu(OpenMenu menu) {
    openMenu_ = menu;
    scheduleSignals();
}

void SniObject::scheduleSignals() {
    if (!signalsScheduled_) {
        signalsScheduled_ = true;
        QMetaObject::invokeMethod(this, &SniObject::sendSignals, Qt::QueuedConnection);
    }
}

void SniObject::sendSignals() {
    signalsScheduled_ = false;
    const Sent now{shownIcon(), appearance_.description, label(), status_, wantedToolTip()};
    const Sent before = std::exchange(sent_, now).value_or(now);
    const bool newIcon = now.icon != before.icon;
    const bool newStatus = now.status != before.status;
    if (newIcon) {
        Q_EMIT NewIcon();
    }
    // Hosts read it with a new icon anyway.
    if (!newIcon && now.description != before.description && !now.label.isEmpty()) {
        Q_EMIT NewIconAccessibleDesc();
    }
    // Its changes are sent only while it is on show, so a host may hold an old one when attention is asked for.
    if (status_ == Status::needsAttention && (newIcon || newStatus)) {
        Q_EMIT NewAttentionIcon();
    }
    if (newStatus) {
        Q_EMIT NewStatus(statusName());
    }
    if (now.label != before.label) {
        Q_EMIT XAyatanaNewLabel(label(), labelGuide());
    }
    if (now.toolTip != before.toolTip) {
        Q_EMIT NewToolTip();
    }
}

DBusToolTip SniObject::wantedToolTip() const {
    switch (openMenu_) {
    case OpenMenu::none:
        break;
    case OpenMenu::ofHost:
        if (sent_) {
            return sent_->toolTip;
        }
        break;
    case OpenMenu::own:
        // With every new icon MATE shows the tooltip of what the mouse is on, and there it would hide the menu's lines.
        return {};
    }
    return {appearance_.toolTipTitle, escapedMarkup(appearance_.toolTipText)};
}

StatusIcon SniObject::shownIcon() const {
    return status_ == Status::needsAttention ? attentionIcon() : appearance_.icon;
}

StatusIcon SniObject::attentionIcon() const {
    StatusIcon icon = appearance_.icon;
    icon.needsAttention = true;
    return icon;
}

// A name goes before the pixmap, and no icon theme has an icon for every number: so there is one only where the host
// does better with it.
QString SniObject::fileName(const StatusIcon& icon) {
    return iconFiles_ ? iconFiles_->fileFor(icon) : QString();
}

// A host that reads one property reads them all, and what is made of the pixels stays in its memory for a while: so
// there are none beside a file, and the icon that is not on show has its smallest size only, for a host that shows it
// before it has read it anew.
QList<DBusPixmap> SniObject::iconPixmap() {
    if (!iconName().isEmpty()) {
        return {};
    }
    if (paintedIcon_ != shownIcon()) {
        paintedIcon_ = shownIcon();
        pixmaps_ = paintInAllSizes(shownIcon());
    }
    return pixmaps_;
}

QList<DBusPixmap> SniObject::attentionIconPixmap() {
    if (!attentionIconName().isEmpty()) {
        return {};
    }
    return status_ == Status::needsAttention ? iconPixmap()
                                             : QList<DBusPixmap>{painted(attentionIcon(), iconSizes.front())};
}

} // namespace skylet
