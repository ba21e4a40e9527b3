#pragma once

#include "platform/desktop/Menu.h"
#include "platform/desktop/StatusDisplay.h"

#include <QString>

namespace skylet {

/// The program's place in the desktop's status area: the coloured dot with a title, a tooltip and a menu that a click
/// opens. It is as wide as its title needs, shows the title from the left and cuts, never wraps, what finds no room.
/// How much of it a desktop shows is the implementation's business; the setters may be called at any rate, what has not
/// changed costs nothing.
class StatusItem {
  public:
    virtual ~StatusItem() = default;
    /// What the item's button and the window around it are here, for the diagnostic log; says so when there is none.
    virtual QString buttonDescription() const = 0;
    virtual QString windowDescription() const = 0;
    /// The name under which the desktop remembers the item's place.
    virtual void setAutosaveName(const QString& name) = 0;
    virtual void setVisible(bool visible) = 0;
    /// To be called once, in the turn of the event loop in which the item is made.
    virtual void setMenu(const Menu& menu) = 0;
    virtual void setDisplay(const StatusDisplay& display) = 0;
};

} // namespace skylet
