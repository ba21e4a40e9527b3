#pragma once

#include "platform/linux/statusitem/hostless/X11Connection.h"

#include <QObject>

namespace skylet {

/// Knows whether there is a system tray on the X11 screen: the owner of the selection _NET_SYSTEM_TRAY_Sn (freedesktop
/// System Tray Protocol). Follows its coming and going; puts nothing into it.
class X11Tray final : public QObject {
    Q_OBJECT

  public:
    /// `connection` outlives the tray.
    explicit X11Tray(X11Connection& connection);

    /// XCB_WINDOW_NONE: there is no tray.
    xcb_window_t window() const { return window_; }

  Q_SIGNALS:
    /// The tray has come, gone, or been followed by another one.
    void changed();

  private:
    void findOwner();
    void handleEvent(const xcb_generic_event_t& event);

    X11Connection& connection_;
    xcb_atom_t selection_;
    xcb_atom_t manager_;
    xcb_window_t window_ = XCB_WINDOW_NONE;
    bool mayHaveChanged_ = false;
};

} // namespace skylet
