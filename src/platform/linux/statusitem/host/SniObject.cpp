#include "platform/linux/statusitem/host/SniObject.h"

#include <QDBusObjectPath>
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

QString statusName(SniObject::Status status) {
    switch (status) {
    case SniObject::Status::passive:
        return QStringLiteral("Passive");
    case SniObject::Status::needsAttention:
        return QStringLiteral("NeedsAttention");
    case SniObject::Status::active:
        break;
    }
    return QStringLiteral("Active");
}

/// Hosts may read the tooltip's text as markup.
QString escapedMarkup(QString text) {
    text.replace(QLatin1Char('&'), QStringLiteral("&amp;"));
    return text.replace(QLatin1Char('<'), QStringLiteral("&lt;"));
}

} // namespace

SniObject::SniObject(const QString& path, const QString& menuPath)
    : ExportedObject(path, QStringLiteral("org.kde.StatusNotifierItem"), nullptr), id_(QStringLiteral("skylet")) {
    registerDBusTypes();
    addItemProperties(menuPath);
    addItemMethods();
    const QString text = QStringLiteral("s");
    for (const QString& name : {QStringLiteral("NewTitle"), QStringLiteral("NewIcon"),
                                QStringLiteral("NewAttentionIcon"), QStringLiteral("NewToolTip")}) {
        addSignal(name, {});
    }
    addSignal(QStringLiteral("NewStatus"), {text});
    addSignal(QStringLiteral("XAyatanaNewLabel"), {text, text});
}

void SniObject::addItemProperties(const QString& menuPath) {
    const QString text = QStringLiteral("s");
    const QString images = QStringLiteral("a(iiay)");
    const auto constant = [this](const QString& name, const QString& signature, const QVariant& value) {
        addProperty(name, signature, [value] { return value; });
    };
    constant(QStringLiteral("Category"), text, QStringLiteral("ApplicationStatus"));
    addProperty(QStringLiteral("Id"), text, [this] { return QVariant(id_); });
    constant(QStringLiteral("Title"), text, QStringLiteral("Skylet"));
    addProperty(QStringLiteral("Status"), text, [this] { return QVariant(statusName(status_)); });
    constant(QStringLiteral("WindowId"), QStringLiteral("i"), 0);
    constant(QStringLiteral("IconThemePath"), text, QString());
    constant(QStringLiteral("Menu"), QStringLiteral("o"), QVariant::fromValue(QDBusObjectPath(menuPath)));
    constant(QStringLiteral("ItemIsMenu"), QStringLiteral("b"), true);
    // A name goes before the pixmap, and no icon theme has an icon for every number: so there is one only where the
    // host does better with it.
    for (const QString& name : {QStringLiteral("IconName"), QStringLiteral("AttentionIconName")}) {
        addProperty(name, text, [this] { return QVariant(iconName()); });
    }
    constant(QStringLiteral("OverlayIconName"), text, QString());
    constant(QStringLiteral("OverlayIconPixmap"), images, QVariant::fromValue(QList<DBusPixmap>()));
    constant(QStringLiteral("AttentionMovieName"), text, QString());
    // While attention is asked for, hosts show the attention icon in the place of the icon: it is the same.
    // A host that reads one property reads them all, and what is made of the pixels stays in its memory for a while: so
    // there are none beside a file, and the icon that is not on show has its smallest size only, for a host that shows
    // it before it has read it anew.
    addProperty(QStringLiteral("IconPixmap"), images,
                [this] { return QVariant::fromValue(iconName().isEmpty() ? pixmaps() : QList<DBusPixmap>()); });
    addProperty(QStringLiteral("AttentionIconPixmap"), images, [this] {
        if (!iconName().isEmpty()) {
            return QVariant::fromValue(QList<DBusPixmap>());
        }
        return QVariant::fromValue(status_ == Status::needsAttention ? pixmaps() : smallestPixmap());
    });
    addProperty(QStringLiteral("ToolTip"), QStringLiteral("(sa(iiay)ss)"),
                [this] { return QVariant::fromValue(toolTip()); });
    // MATE 1.27 hides an item whose label is there but empty.
    const auto unlessEmpty = [](const QString& value) -> std::optional<QVariant> {
        return value.isEmpty() ? std::nullopt : std::optional<QVariant>(value);
    };
    addProperty(QStringLiteral("XAyatanaLabel"), text, [this, unlessEmpty] { return unlessEmpty(appearance_.label); });
    addProperty(QStringLiteral("XAyatanaLabelGuide"), text,
                [this, unlessEmpty] { return unlessEmpty(appearance_.labelGuide); });
    // 0: the host chooses the place.
    constant(QStringLiteral("XAyatanaOrderingIndex"), QStringLiteral("u"), 0U);
}

void SniObject::addItemMethods() {
    const QString integer = QStringLiteral("i");
    const QString text = QStringLiteral("s");
    const auto opensMenu = [this](const QDBusMessage& call) { openMenu(call); };
    const auto doesNothing = [this](const QDBusMessage& call) { reply(call); };
    addMethod(QStringLiteral("Activate"), {integer, integer}, {}, opensMenu);
    addMethod(QStringLiteral("ContextMenu"), {integer, integer}, {}, opensMenu);
    addMethod(QStringLiteral("SecondaryActivate"), {integer, integer}, {}, doesNothing);
    addMethod(QStringLiteral("XAyatanaSecondaryActivate"), {QStringLiteral("u")}, {}, doesNothing);
    addMethod(QStringLiteral("Scroll"), {integer, text}, {}, doesNothing);
    addMethod(QStringLiteral("ProvideXdgActivationToken"), {text}, {}, [this](const QDBusMessage& call) {
        const QString token = call.arguments().first().toString();
        if (tokenTaker_ && token.size() <= longestToken) {
            tokenTaker_(token);
        }
        reply(call);
    });
}

void SniObject::openMenu(const QDBusMessage& call) {
    const QPoint place(call.arguments().at(0).toInt(), call.arguments().at(1).toInt());
    if (menuOpener_ && menuOpener_(call.service(), place)) {
        reply(call);
    } else {
        // "Unknown method" is the one refusal after which GNOME's extension never tries again.
        fail(call, unknownMethodError(), QStringLiteral("a click opens the menu"));
    }
}

void SniObject::setAppearance(const ItemAppearance& appearance) {
    appearance_ = appearance;
    scheduleTelling();
}

void SniObject::setIconByName(bool byName) {
    if (byName != (iconFiles_ != nullptr)) {
        iconFiles_ = byName ? std::make_unique<IconFiles>(IconFiles::usualFolder()) : nullptr;
    }
}

void SniObject::setStatus(Status status) {
    status_ = status;
    scheduleTelling();
}

void SniObject::setOpenMenu(OpenMenu menu) {
    openMenu_ = menu;
    scheduleTelling();
}

void SniObject::scheduleTelling() {
    if (!tellingScheduled_) {
        tellingScheduled_ = true;
        QMetaObject::invokeMethod(this, &SniObject::tellChanges, Qt::QueuedConnection);
    }
}

void SniObject::tellChanges() {
    tellingScheduled_ = false;
    if (!told_) {
        told_ = Told{appearance_, status_};
        return;
    }
    const Told before = *told_;
    const bool newIcon = appearance_.icon != before.appearance.icon;
    const bool newStatus = status_ != before.status;
    told_->appearance.icon = appearance_.icon;
    told_->appearance.label = appearance_.label;
    told_->appearance.labelGuide = appearance_.labelGuide;
    told_->status = status_;
    if (newIcon) {
        emitSignal(QStringLiteral("NewIcon"));
    }
    // Its changes are told only while it is on show, so a host may hold an old one when attention is asked for.
    if (status_ == Status::needsAttention && (newIcon || newStatus)) {
        emitSignal(QStringLiteral("NewAttentionIcon"));
    }
    if (newStatus) {
        emitSignal(QStringLiteral("NewStatus"), {statusName(status_)});
    }
    if (appearance_.label != before.appearance.label) {
        emitSignal(QStringLiteral("XAyatanaNewLabel"), {appearance_.label, appearance_.labelGuide});
    }
    tellToolTip();
}

void SniObject::tellToolTip() {
    ItemAppearance& told = told_->appearance;
    const auto [title, text] = shownToolTip();
    if (told.toolTipTitle == title && told.toolTipText == text) {
        return;
    }
    told.toolTipTitle = title;
    told.toolTipText = text;
    emitSignal(QStringLiteral("NewToolTip"));
}

std::pair<QString, QString> SniObject::shownToolTip() const {
    switch (openMenu_) {
    case OpenMenu::none:
        break;
    case OpenMenu::ofHost:
        // Not only untold but also unread: a host that is told of an icon may read the tooltip as well.
        if (told_) {
            return {told_->appearance.toolTipTitle, told_->appearance.toolTipText};
        }
        break;
    case OpenMenu::own:
        // With every new icon MATE shows the tooltip of what the mouse is on, and there it would hide the menu's lines.
        return {};
    }
    return {appearance_.toolTipTitle, appearance_.toolTipText};
}

DBusToolTip SniObject::toolTip() const {
    const auto [title, text] = shownToolTip();
    return {{}, {}, title, escapedMarkup(text)};
}

QString SniObject::iconName() {
    return iconFiles_ ? iconFiles_->fileFor(appearance_.icon) : QString();
}

const QList<DBusPixmap>& SniObject::pixmaps() {
    if (paintedIcon_ != appearance_.icon) {
        const QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
        pixmaps_.clear();
        const auto addPixmaps = [&](const StatusIcon& icon, std::span<const int> sizes) {
            for (const int size : sizes) {
                pixmaps_.append(toDBusPixmap(paintStatusIcon(icon, size, font)));
            }
        };
        if (appearance_.icon.presentation == Presentation::wide) {
            addPixmaps(appearance_.icon, titleHeights);
            StatusIcon badge = appearance_.icon;
            badge.presentation = Presentation::badge;
            addPixmaps(badge, uprightSizes);
        } else {
            addPixmaps(appearance_.icon, iconSizes);
        }
        paintedIcon_ = appearance_.icon;
    }
    return pixmaps_;
}

QList<DBusPixmap> SniObject::smallestPixmap() {
    return {pixmaps().first()};
}

} // namespace skylet
