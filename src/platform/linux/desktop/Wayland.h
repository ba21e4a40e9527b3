#pragma once

#include <QGuiApplication>

namespace skylet {

/// There the compositor places windows, and a program can neither choose nor know where they are.
inline bool isOnWayland() {
    return QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
}

} // namespace skylet
