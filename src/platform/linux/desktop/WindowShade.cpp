#include "platform/linux/desktop/WindowShade.h"

#include "platform/linux/desktop/Xcb.h"

#include <QApplication>
#include <QEvent>
#include <QPalette>
#include <QStyle>
#include <QStyleHints>
#include <QWidget>

#include <cstdint>
#include <string_view>

namespace skylet {

namespace {

bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() < 128;
}

// On a dark GNOME, Qt 6.8 says that the desktop is dark and takes the colours of the GTK theme all the same, which is
// light there. The style's own colours are dark then.
template <typename Hints>
void followColorScheme(const Hints& hints, QObject& receiver) {
    // Before 6.5 Qt does not say what the desktop is.
    if constexpr (requires { hints.colorScheme(); }) {
        const auto matchColors = [&hints] {
            const bool isDesktopDark = hints.colorScheme() == decltype(hints.colorScheme())::Dark;
            if (isDesktopDark != isDark(QGuiApplication::palette())) {
                QApplication::setPalette(isDesktopDark ? QApplication::style()->standardPalette() : QPalette());
            }
        };
        matchColors();
        // Qt says it before it changes the colours.
        QObject::connect(&hints, &Hints::colorSchemeChanged, &receiver, matchColors, Qt::QueuedConnection);
    }
}

void setTitleBar(const QWidget& window) {
    // Platforms without X11 windows may offer this interface as well.
    const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (QGuiApplication::platformName() != u"xcb" || x11 == nullptr || x11->connection() == nullptr) {
        return;
    }
    constexpr std::string_view dark = "dark";
    xcb_connection_t* connection = x11->connection();
    const auto id = static_cast<xcb_window_t>(window.winId());
    const xcb_atom_t variant = internAtom(connection, "_GTK_THEME_VARIANT");
    if (isDark(window.palette())) {
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, variant, internAtom(connection, "UTF8_STRING"), 8,
                            static_cast<std::uint32_t>(dark.size()), dark.data());
    } else {
        xcb_delete_property(connection, id, variant);
    }
}

} // namespace

WindowShade::WindowShade() {
    followColorScheme(*QGuiApplication::styleHints(), *this);
    qGuiApp->installEventFilter(this);
}

bool WindowShade::eventFilter(QObject* watched, QEvent* event) {
    // A closed window loses its properties. It is shown after it has heard so.
    if (event->type() == QEvent::Show || event->type() == QEvent::PaletteChange) {
        const auto* widget = qobject_cast<const QWidget*>(watched);
        if (widget != nullptr && widget->windowType() == Qt::Window && widget->isVisible()) {
            setTitleBar(*widget);
        }
    }
    return false;
}

} // namespace skylet
