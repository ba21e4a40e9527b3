#include "platform/linux/statusitem/hostless/X11Tray.h"

#include <string>
#include <utility>

namespace skylet {

namespace {

void selectStructure(X11Connection& connection, xcb_window_t window) {
    const uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(connection.get(), window, XCB_CW_EVENT_MASK, &mask);
}

} // namespace

X11Tray::X11Tray(X11Connection& connection)
    : connection_(connection),
      selection_(connection.atom("_NET_SYSTEM_TRAY_S" + std::to_string(connection.screenNumber()))),
      manager_(connection.atom("MANAGER")) {
    connect(&connection_, &X11Connection::received, this, &X11Tray::handleEvent);
    connect(&connection_, &X11Connection::batchRead, this, [this] {
        if (std::exchange(mayHaveChanged_, false)) {
            const xcb_window_t before = window_;
            findOwner();
            if (window_ != before) {
                Q_EMIT changed();
            }
        }
    });
    // A new tray announces itself by a message to the root window.
    selectStructure(connection_, connection_.screen().root);
    findOwner();
}

void X11Tray::findOwner() {
    // Held still, so that the tray cannot go unseen between the two questions.
    xcb_grab_server(connection_.get());
    const auto cookie = xcb_get_selection_owner(connection_.get(), selection_);
    const XcbReply<xcb_get_selection_owner_reply_t> reply(
        xcb_get_selection_owner_reply(connection_.get(), cookie, nullptr));
    window_ = reply ? reply->owner : xcb_window_t{XCB_WINDOW_NONE};
    if (window_ != XCB_WINDOW_NONE) {
        selectStructure(connection_, window_);
    }
    xcb_ungrab_server(connection_.get());
    connection_.flush();
    connection_.readSoon();
}

void X11Tray::handleEvent(const xcb_generic_event_t& event) {
    if (event.response_type == XCB_CLIENT_MESSAGE) {
        const auto& message = reinterpret_cast<const xcb_client_message_event_t&>(event);
        mayHaveChanged_ |= message.type == manager_ && message.format == 32 && message.data.data32[1] == selection_;
    } else if (event.response_type == XCB_DESTROY_NOTIFY) {
        // Another tray may have taken over already, so the end of this one does not say that there is none.
        mayHaveChanged_ |= reinterpret_cast<const xcb_destroy_notify_event_t&>(event).window == window_;
    }
}

} // namespace skylet
