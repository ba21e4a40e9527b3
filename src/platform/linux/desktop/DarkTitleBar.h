#pragma once

class QWidget;

namespace skylet {

/// Asks the desktop for a dark title bar, whatever its own shade: by the window property `_GTK_THEME_VARIANT`, which
/// several X11 window managers follow. To be called before each showing, since a closed window loses its properties.
/// Elsewhere it does nothing.
void askForDarkTitleBar(const QWidget& window);

} // namespace skylet
