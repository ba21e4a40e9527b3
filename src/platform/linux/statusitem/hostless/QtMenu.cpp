#include "platform/linux/statusitem/hostless/QtMenu.h"

#include "platform/linux/desktop/ApplicationIcon.h"

#include <QAction>
#include <QFontInfo>
#include <QGuiApplication>
#include <QIcon>
#include <QKeyEvent>
#include <QKeySequence>
#include <QMouseEvent>
#include <QPainter>
#include <QPalette>
#include <QScreen>

#include <algorithm>
#include <utility>

namespace skylet {

namespace {

/// A menu that runs its entries' shortcuts while it is open. Qt looks a shortcut up among the active window's actions
/// only, to which those of a popup without a parent never belong; so nothing is grabbed outside the open menu.
class ShortcutMenu final : public QMenu {
  public:
    /// `anchor`: what the menu belongs to.
    explicit ShortcutMenu(const QRect& anchor) : anchor_(anchor) { darkenDisabledText(); }

  protected:
    void mousePressEvent(QMouseEvent* event) override {
        // Qt hands the press that closes a menu on to what lies there, and a click on the anchor opens the menu.
        setAttribute(Qt::WA_NoMouseReplay, anchor_.contains(event->globalPosition().toPoint()));
        QMenu::mousePressEvent(event);
    }

    bool event(QEvent* event) override {
        if (event->type() == QEvent::ApplicationPaletteChange) {
            darkenDisabledText();
        }
        return QMenu::event(event);
    }

    /// Styles leave the direction of a text to the painter, and painters have the application's, not the menu's.
    void initPainter(QPainter* painter) const override {
        QMenu::initPainter(painter);
        painter->setLayoutDirection(layoutDirection());
    }

    void keyPressEvent(QKeyEvent* event) override {
        const QKeySequence pressed(event->keyCombination());
        const QList<QAction*> entries = actions();
        const auto entry = std::find_if(entries.cbegin(), entries.cend(), [&](const QAction* action) {
            return !action->shortcut().isEmpty() && action->shortcut() == pressed;
        });
        if (entry == entries.cend()) {
            QMenu::keyPressEvent(event);
            return;
        }
        if ((*entry)->isEnabled()) {
            close();
            (*entry)->trigger();
        }
    }

  private:
    // Lines that cannot be chosen are there to be read, and some styles all but hide them. With this opacity they stay
    // readable (4.5:1 for black on white).
    void darkenDisabledText() {
        constexpr float opacity = 0.6F;
        QPalette own;
        for (const auto text : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText}) {
            QColor color = QGuiApplication::palette().color(QPalette::Active, text);
            color.setAlphaF(opacity);
            own.setColor(QPalette::Disabled, text, color);
        }
        setPalette(own);
    }

    const QRect& anchor_;
};

QKeySequence shortcutFor(const QString& keyEquivalent) {
    return keyEquivalent.isEmpty() ? QKeySequence()
                                   : QKeySequence::fromString(QStringLiteral("Ctrl+") + keyEquivalent.toUpper(),
                                                              QKeySequence::PortableText);
}

/// The application's icon at one size, and at twice that size for screens of scale 2.
QIcon menuIcon(const QSize& size) {
    QIcon icon;
    icon.addPixmap(applicationIcon().pixmap(size, 1.0));
    icon.addPixmap(applicationIcon().pixmap(size * 2, 1.0));
    return icon;
}

void apply(const MenuItem& item, QAction& action) {
    QString text = item.title();
    action.setText(text.replace(QLatin1Char('&'), QStringLiteral("&&")));
    action.setEnabled(item.isEnabled());
    action.setCheckable(item.isCheckable());
    action.setChecked(item.isChecked());
}

/// To what its entries need.
void fixSize(QMenu& menu) {
    menu.setMinimumSize(0, 0);
    menu.setFixedSize(menu.sizeHint());
}

QPoint clampedTo(const QRect& area, QPoint place) {
    return {std::clamp(place.x(), area.left(), area.right()), std::clamp(place.y(), area.top(), area.bottom())};
}

} // namespace

QtMenu::QtMenu(bool keepsSize) : widget_(std::make_unique<ShortcutMenu>(anchor_)), keepsSize_(keepsSize) {}

void QtMenu::setMenu(const Menu& menu) {
    menu_ = menu;
    for (const std::shared_ptr<MenuItem>& item : menu_) {
        auto* action = new QAction(widget_.get());
        action->setSeparator(item->isSeparator());
        action->setShortcut(shortcutFor(item->keyEquivalent()));
        action->setShortcutVisibleInContextMenu(true);
        action->setIconVisibleInMenu(true);
        // Without it Qt moves "About", "Quit" and the like into an application menu where a platform has one.
        action->setMenuRole(QAction::NoRole);
        if (const int side = item->applicationIconSize(); side > 0) {
            action->setIcon(menuIcon(QSize(side, side)));
        }
        apply(*item, *action);
        QObject::connect(item.get(), &MenuItem::changed, action, [this, item = item.get(), action] {
            // A width that is fixed would count as one that the entries need.
            widget_->setMinimumSize(0, 0);
            apply(*item, *action);
            updateLayout();
        });
        QObject::connect(action, &QAction::triggered, action, [item, action] {
            item->trigger();
            // Qt has flipped the check mark on its own; the item decides whether it stays so.
            apply(*item, *action);
        });
        widget_->addAction(action);
    }
    updateLayout();
}

void QtMenu::updateLayout() {
    widget_->setLayoutDirection(isRightToLeft(menu_) ? Qt::RightToLeft : Qt::LeftToRight);
    // A screen reader says the name as the menu opens; the status itself is in a line that the keyboard skips.
    if (const QString& name = menu_.front()->title(); name != widget_->accessibleName()) {
        widget_->setAccessibleName(name);
    }
    if (!widget_->isVisible()) {
        return;
    }
    if (keepsSize_) {
        fixSize(*widget_);
    } else {
        widget_->move(leftEdge(), widget_->y());
    }
}

void QtMenu::popUp(QRect anchor) {
    const QScreen* const there = QGuiApplication::screenAt(anchor.center());
    const QScreen* const screen = there != nullptr ? there : QGuiApplication::primaryScreen();
    if (screen == nullptr) {
        return;
    }
    screen_ = screen->geometry();
    shrinkToScreen();
    anchor_ = QRect(clampedTo(screen_, anchor.topLeft()), clampedTo(screen_, anchor.bottomRight()));
    if (keepsSize_) {
        fixSize(*widget_);
    }
    // Qt moves what does not fit onto the screen, but over the anchor, where a hand that is not quite still would
    // choose an entry by the click that opens the menu.
    const bool isAbove = anchor_.center().y() >= screen_.center().y();
    widget_->popup({leftEdge(), isAbove ? anchor_.top() - widget_->sizeHint().height() : anchor_.bottom() + 1});
}

// Qt would put what is too high into columns, beyond the screen's edge.
void QtMenu::shrinkToScreen() {
    constexpr int leastPixels = 8;
    widget_->setFont(QFont());
    QFont font = widget_->font();
    int pixels = QFontInfo(font).pixelSize();
    while (widget_->sizeHint().boundedTo(screen_.size()) != widget_->sizeHint() && pixels > leastPixels) {
        font.setPixelSize(--pixels);
        widget_->setFont(font);
    }
}

int QtMenu::leftEdge() const {
    const int width = widget_->sizeHint().width();
    const int last = screen_.right() + 1 - width;
    // Of one that is wider than the screen that part can be seen where its lines begin.
    return widget_->isRightToLeft() ? std::min(std::max(anchor_.right() + 1 - width, screen_.left()), last)
                                    : std::max(std::min(anchor_.left(), last), screen_.left());
}

} // namespace skylet
