#pragma once

#include <QGuiApplication>

namespace skylet {

/// There the compositor places windows, and a program can neither choose nor know where they are.
inline bool isOnWayland() {
    return QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
}

/// Puts the token where Qt's Wayland client looks for it when a window is to come to the front. Done there alone:
/// nothing else reads it, and changing the environment of a running program is best avoided.
inline void keepActivationToken(const QString& token) {
    if (isOnWayland() && !token.isEmpty()) {
        qputenv("XDG_ACTIVATION_TOKEN", token.toUtf8());
    }
}

} // namespace skylet
