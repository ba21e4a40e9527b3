#include "platform/linux/desktop/DarkTitleBar.h"

#include <QGuiApplication>
#include <QWidget>

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace skylet {

namespace {

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};

/// XCB_ATOM_NONE when the connection is broken.
xcb_atom_t atom(xcb_connection_t* connection, std::string_view name) {
    const auto request = xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.data());
    const std::unique_ptr<xcb_intern_atom_reply_t, Free> reply(xcb_intern_atom_reply(connection, request, nullptr));
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

} // namespace

void askForDarkTitleBar(const QWidget& window) {
    // Platforms without X11 windows may offer this interface as well.
    const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (QGuiApplication::platformName() != u"xcb" || x11 == nullptr || x11->connection() == nullptr) {
        return;
    }
    constexpr std::string_view variant = "dark";
    xcb_connection_t* connection = x11->connection();
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, static_cast<xcb_window_t>(window.winId()),
                        atom(connection, "_GTK_THEME_VARIANT"), atom(connection, "UTF8_STRING"), 8,
                        static_cast<std::uint32_t>(variant.size()), variant.data());
}

} // namespace skylet
