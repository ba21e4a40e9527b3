#include "platform/desktop/Menu.h"

#include "platform/desktop/TextDirection.h"

#include <algorithm>
#include <utility>

namespace skylet {

MenuItem::MenuItem(QString title, std::function<void()> action, QString keyEquivalent)
    : title_(std::move(title)), action_(std::move(action)), keyEquivalent_(std::move(keyEquivalent)) {}

std::shared_ptr<MenuItem> MenuItem::separator() {
    auto item = std::make_shared<MenuItem>(QString(), nullptr, QString());
    item->separator_ = true;
    return item;
}

void MenuItem::setTitle(const QString& title) {
    if (title_ != title) {
        title_ = title;
        Q_EMIT changed();
    }
}

void MenuItem::setEnabled(bool enabled) {
    if (enabled_ != enabled) {
        enabled_ = enabled;
        Q_EMIT changed();
    }
}

void MenuItem::setChecked(bool checked) {
    if (!checkable_ || checked_ != checked) {
        checkable_ = true;
        checked_ = checked;
        Q_EMIT changed();
    }
}

void MenuItem::trigger() const {
    if (action_) {
        action_();
    }
}

bool isRightToLeft(const Menu& menu) {
    return std::any_of(menu.cbegin(), menu.cend(), [](const auto& item) { return hasRightToLeft(item->title()); });
}

} // namespace skylet
