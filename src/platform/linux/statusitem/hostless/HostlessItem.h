#pragma once

#include "platform/desktop/StatusDisplay.h"
#include "platform/linux/statusitem/hostless/TitleStrip.h"
#include "platform/linux/statusitem/hostless/X11Connection.h"
#include "platform/linux/statusitem/hostless/X11Tray.h"
#include "platform/linux/statusitem/hostless/XembedIcon.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QObject>
#include <QPoint>
#include <QRect>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>

namespace skylet {

/// The item on a desktop without a status host: an icon in the X11 tray while there is one that takes it, else a strip
/// of our own. Changes between the two as the tray comes and goes; never shows both.
class HostlessItem final : public QObject {
    Q_OBJECT

  public:
    struct Options {
        /// The X11 display whose tray is looked for; empty: none is.
        QByteArray x11Display = usualDisplay();
        /// How long a tray has to take the icon before the strip is shown instead.
        std::chrono::milliseconds embedding{2000};
        /// Until then there is a place in a tray or none.
        QDeadlineTimer noStripBefore;

        /// The one of the session, where windows are X11's at all: asking would wake an X server that nobody uses.
        static QByteArray usualDisplay();
    };

    /// `display` outlives the item. `openMenu`: pops the menu up beside the item, whose place is in logical pixels of
    /// the desktop.
    HostlessItem(const Options& options, const StatusDisplay& display, std::function<void(QRect item)> openMenu);

    /// To be called after the display has changed.
    void update();
    /// As if it had been clicked. Does nothing while it is not to be seen anywhere.
    void openMenu();
    /// Null while the item is elsewhere.
    QWidget* strip() const { return strip_.get(); }

  private:
    void updatePlace();
    void showIcon();
    void leaveTray();
    void showStrip();
    void openMenuAtIcon(QRect icon);
    void showToolTip();

    const StatusDisplay& display_;
    std::function<void(QRect item)> openMenu_;
    std::unique_ptr<X11Connection> server_;
    std::unique_ptr<X11Tray> tray_;
    std::unique_ptr<XembedIcon> icon_;
    std::unique_ptr<TitleStrip> strip_;
    QTimer embeddingTimer_;
    const QDeadlineTimer noStripBefore_;
    QTimer stripTimer_;
    QTimer toolTipTimer_;
};

/// The logical place that Qt has for a place in device pixels of the X11 screen.
QPoint logicalPlace(QPoint device);

} // namespace skylet
