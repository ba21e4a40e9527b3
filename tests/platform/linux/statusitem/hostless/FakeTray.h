#pragma once

#include "platform/linux/statusitem/hostless/X11Connection.h"

#include <QByteArray>
#include <QColor>
#include <QImage>
#include <QObject>
#include <QProcess>
#include <QSize>

#include <gtest/gtest.h>

#include <memory>
#include <string_view>

namespace skylet {

/// An X server of a test's own, on a display that it chooses itself.
class VirtualScreen {
  public:
    explicit VirtualScreen(int depth = 24);
    ~VirtualScreen();
    VirtualScreen(const VirtualScreen&) = delete;
    VirtualScreen& operator=(const VirtualScreen&) = delete;
    VirtualScreen(VirtualScreen&&) = delete;
    VirtualScreen& operator=(VirtualScreen&&) = delete;

    const QByteArray& display() const { return display_; }
    void kill();

  private:
    QProcess server_;
    QByteArray display_;
};

/// What needs a virtual screen, and is skipped where there is no server for one.
class VirtualScreenTest : public testing::Test {
  protected:
    static void SetUpTestSuite();
};

/// A system tray on the X11 screen: owns the selection, and takes what asks to be docked into a window of its own.
class FakeTray final : public QObject {
    Q_OBJECT

  public:
    /// Those that stretch give an icon a fixed thickness, and the length that it asks for.
    enum class Manner { takesIcons, ignoresThem, stretchesIcons, stretchesIconsSideways };

    FakeTray(const QByteArray& display, const QColor& ground, Manner manner = Manner::takesIcons);

    /// The windows that asked to be docked.
    int requests() const { return requests_; }
    xcb_window_t icon() const { return icon_; }
    /// The least size that the icon asks for in its hints.
    QSize wantedSize();
    /// The pixels of the screen, as Qt calls them.
    QImage::Format format() const;
    void setProperty(std::string_view name, xcb_atom_t type, uint32_t value);
    /// The icon as it is to be seen, in the screen's own format.
    QImage picture();
    void resizeIcon(QSize size);
    /// As if the user had pressed the mouse button there.
    void press(xcb_button_t button = XCB_BUTTON_INDEX_1);
    /// As if the mouse had come there, or gone.
    void enter();
    void leave();
    /// Puts the icon out onto the bare screen.
    void expel();

  private:
    uint32_t pixelOf(const QColor& color) const;
    void handleEvent(const xcb_generic_event_t& event);
    /// To the icon.
    template <typename Event>
    void send(Event event, uint32_t mask);
    void takeRequest(xcb_window_t icon);
    void giveWantedLength();

    std::unique_ptr<X11Connection> connection_;
    Manner manner_;
    xcb_window_t window_;
    xcb_atom_t opcode_;
    xcb_window_t icon_ = XCB_WINDOW_NONE;
    QSize size_{24, 24};
    int requests_ = 0;
};

} // namespace skylet
