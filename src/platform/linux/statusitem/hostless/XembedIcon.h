#pragma once

#include "platform/linux/statusitem/drawing/StatusIcon.h"
#include "platform/linux/statusitem/hostless/X11Connection.h"

#include <QImage>
#include <QObject>
#include <QRect>

#include <optional>

namespace skylet {

/// An icon of ours inside an X11 system tray: a window that the tray takes into its own (freedesktop System Tray
/// Protocol and XEmbed). Paints itself as large as the tray makes it and tells of clicks; knows neither menu nor
/// tooltip.
class XembedIcon final : public QObject {
    Q_OBJECT

  public:
    /// Asks the tray to take the icon, unless the screen's pixels are of a kind that is not known here. `connection`
    /// outlives the icon. `scale`: device pixels for each logical one.
    XembedIcon(X11Connection& connection, xcb_window_t tray, StatusIcon icon, double scale);
    ~XembedIcon() override;

    void setIcon(const StatusIcon& icon);
    bool isEmbedded() const { return embedded_; }
    /// Where it is now, in device pixels of the screen. The server has been asked, and so has carried out what it was
    /// sent before.
    QRect place() const;

  Q_SIGNALS:
    /// The tray has taken the icon.
    void embedded();
    /// The tray has put the icon out again, or the window is gone.
    void expelled();
    /// The left or the right mouse button went down on it; the mouse is free to be grabbed. `place`: as above.
    void pressed(QRect place);
    void entered();
    void left();

  private:
    Q_DISABLE_COPY_MOVE(XembedIcon)

    void createWindow(xcb_window_t tray);
    void describeWindow();
    void requestMinimumSize(uint32_t side);
    template <typename Values>
    void setProperty(xcb_atom_t property, xcb_atom_t type, uint8_t bits, const Values& values);
    void askForDock(xcb_window_t tray);
    void handleEvent(const xcb_generic_event_t& event);
    void onResized(QSize size);
    void onReparented(xcb_window_t parent);
    void onPress(const xcb_button_press_event_t& event);
    void paint();
    /// What the tray shows in that square of the window; nothing while it cannot be had.
    std::optional<QImage> grabBackground(QRect area);

    X11Connection& connection_;
    StatusIcon icon_;
    /// What the tray is asked for.
    uint16_t wantedSide_;
    xcb_window_t window_ = XCB_WINDOW_NONE;
    xcb_gcontext_t context_ = 0;
    xcb_colormap_t colormap_ = XCB_NONE;
    uint8_t depth_ = 0;
    QImage::Format format_ = QImage::Format_Invalid;
    QSize size_;
    /// Whether the tray stands upright; absent where it does not say.
    std::optional<bool> upright_;
    bool hasAskedForMore_ = false;
    bool embedded_ = false;
    bool needsPainting_ = false;
    bool wasPressed_ = false;
};

} // namespace skylet
