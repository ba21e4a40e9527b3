#pragma once

#include "platform/Menu.h"

#include <QMenu>
#include <QObject>
#include <QPoint>

#include <memory>

namespace skylet {

/// The program's menu as a QMenu: the one description from which a popup of our own and the menu on D-Bus are both
/// shown. Follows every change of the items; decides nothing about them.
class QtMenu : public QObject {
    Q_OBJECT

  public:
    QtMenu();
    ~QtMenu() override;
    QtMenu(const QtMenu&) = delete;
    QtMenu& operator=(const QtMenu&) = delete;
    QtMenu(QtMenu&&) = delete;
    QtMenu& operator=(QtMenu&&) = delete;

    /// Replaces all entries.
    void setMenu(const Menu& menu);
    QMenu& widget() { return *widget_; }
    /// Opens the menu with a corner at `place`, in logical pixels of the whole desktop, moved so that it lies on a
    /// screen.
    void popUp(QPoint place);

  private:
    std::unique_ptr<QMenu> widget_;
    Menu menu_;
};

} // namespace skylet
