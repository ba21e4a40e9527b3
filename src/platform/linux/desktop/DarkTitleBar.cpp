#include "platform/linux/desktop/DarkTitleBar.h"

#include "platform/linux/desktop/Xcb.h"

#include <QGuiApplication>
#include <QWidget>

#include <cstdint>
#include <string_view>

namespace skylet {

void askForDarkTitleBar(const QWidget& window) {
    // Platforms without X11 windows may offer this interface as well.
    const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (QGuiApplication::platformName() != u"xcb" || x11 == nullptr || x11->connection() == nullptr) {
        return;
    }
    constexpr std::string_view variant = "dark";
    xcb_connection_t* connection = x11->connection();
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, static_cast<xcb_window_t>(window.winId()),
                        internAtom(connection, "_GTK_THEME_VARIANT"), internAtom(connection, "UTF8_STRING"), 8,
                        static_cast<std::uint32_t>(variant.size()), variant.data());
}

} // namespace skylet
