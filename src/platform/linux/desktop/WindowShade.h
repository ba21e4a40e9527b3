#pragma once

#include <QObject>

namespace skylet {

/// Keeps the windows as dark as the desktop, and their title bars as dark as the windows, as long as it lives. Needs a
/// QApplication. Of title bars it asks by the window property `_GTK_THEME_VARIANT`, which several X11 window managers
/// follow; elsewhere they are the desktop's own affair.
class WindowShade final : public QObject {
  public:
    WindowShade();

    bool eventFilter(QObject* watched, QEvent* event) override;
};

} // namespace skylet
