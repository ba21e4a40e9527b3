#include "platform/linux/statusitem/hostless/FakeTray.h"

#include "support/EventLoop.h"
#include "support/PrivateBus.h"

#include <QStandardPaths>

#include <array>
#include <cstring>

namespace skylet {

namespace {

using test::waitUntil;

constexpr uint16_t traySide = 200;
constexpr int thickness = 48;

} // namespace

VirtualScreen::VirtualScreen(int depth) {
    server_.setStandardErrorFile(QProcess::nullDevice());
    server_.start(QStringLiteral("Xvfb"),
                  {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"), QStringLiteral("0"),
                   QStringLiteral("320x240x%1").arg(depth), QStringLiteral("-nolisten"), QStringLiteral("tcp")});
    EXPECT_TRUE(waitUntil([this] { return server_.canReadLine(); }, std::chrono::seconds(20))) << "no Xvfb";
    display_ = ':' + server_.readLine().trimmed();
}

VirtualScreen::~VirtualScreen() {
    kill();
}

void VirtualScreen::kill() {
    server_.terminate();
    server_.waitForFinished();
}

void VirtualScreenTest::SetUpTestSuite() {
    if (QStandardPaths::findExecutable(QStringLiteral("Xvfb")).isEmpty()) {
        GTEST_SKIP() << "there is no Xvfb";
    }
}

FakeTray::FakeTray(const QByteArray& display, const QColor& ground, Manner manner)
    : connection_(X11Connection::open(display)), manner_(manner), window_(xcb_generate_id(connection_->get())),
      opcode_(connection_->atom("_NET_SYSTEM_TRAY_OPCODE")) {
    connect(connection_.get(), &X11Connection::received, this, &FakeTray::handleEvent);
    xcb_connection_t* const server = connection_->get();
    const xcb_screen_t& screen = connection_->screen();
    const std::array<uint32_t, 2> values = {pixelOf(ground), 1};
    xcb_create_window(server, screen.root_depth, window_, screen.root, 0, 0, traySide, traySide, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen.root_visual, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT,
                      values.data());
    xcb_map_window(server, window_);
    const xcb_atom_t selection = connection_->atom("_NET_SYSTEM_TRAY_S0");
    xcb_set_selection_owner(server, window_, selection, XCB_CURRENT_TIME);
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = screen.root;
    message.type = connection_->atom("MANAGER");
    message.data.data32[1] = selection;
    message.data.data32[2] = window_;
    xcb_send_event(server, 0, screen.root, XCB_EVENT_MASK_STRUCTURE_NOTIFY, reinterpret_cast<const char*>(&message));
    connection_->flush();
}

QImage::Format FakeTray::format() const {
    switch (connection_->screen().root_depth) {
    case 16:
        return QImage::Format_RGB16;
    case 30:
        return QImage::Format_RGB30;
    default:
        return QImage::Format_RGB32;
    }
}

uint32_t FakeTray::pixelOf(const QColor& color) const {
    QImage image(1, 1, format());
    image.fill(color);
    uint32_t pixel = 0;
    std::memcpy(&pixel, image.constBits(), static_cast<std::size_t>(image.depth() / 8));
    return static_cast<uint32_t>(pixel & ((uint64_t{1} << connection_->screen().root_depth) - 1));
}

void FakeTray::setProperty(std::string_view name, xcb_atom_t type, uint32_t value) {
    xcb_change_property(connection_->get(), XCB_PROP_MODE_REPLACE, window_, connection_->atom(name), type, 32, 1,
                        &value);
    // An answer stands for all that was sent before it.
    connection_->atom("ATOM");
}

void FakeTray::handleEvent(const xcb_generic_event_t& event) {
    if (event.response_type == XCB_CLIENT_MESSAGE) {
        const auto& message = reinterpret_cast<const xcb_client_message_event_t&>(event);
        if (message.type == opcode_ && message.data.data32[1] == 0) {
            takeRequest(message.data.data32[2]);
        }
    } else if (event.response_type == XCB_PROPERTY_NOTIFY) {
        const auto& change = reinterpret_cast<const xcb_property_notify_event_t&>(event);
        if (change.window == icon_ && change.atom == XCB_ATOM_WM_NORMAL_HINTS) {
            giveWantedLength();
        }
    }
}

void FakeTray::takeRequest(xcb_window_t icon) {
    ++requests_;
    if (manner_ == Manner::ignoresThem) {
        return;
    }
    icon_ = icon;
    if (manner_ == Manner::takesIcons) {
        resizeIcon(size_);
    } else {
        const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_change_window_attributes(connection_->get(), icon_, XCB_CW_EVENT_MASK, &mask);
        giveWantedLength();
    }
    xcb_reparent_window(connection_->get(), icon_, window_, 8, 8);
    xcb_map_window(connection_->get(), icon_);
    connection_->flush();
}

QSize FakeTray::wantedSize() {
    const auto cookie =
        xcb_get_property(connection_->get(), 0, icon_, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS, 0, 18);
    const XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection_->get(), cookie, nullptr));
    connection_->readSoon();
    if (!reply || xcb_get_property_value_length(reply.get()) < 28) {
        return {};
    }
    const auto* hints = static_cast<const int32_t*>(xcb_get_property_value(reply.get()));
    return {hints[5], hints[6]};
}

void FakeTray::giveWantedLength() {
    const int wanted = wantedSize().width();
    resizeIcon(manner_ == Manner::stretchesIcons ? QSize(wanted, thickness) : QSize(thickness, wanted));
}

QImage FakeTray::picture() {
    const auto cookie = xcb_get_image(connection_->get(), XCB_IMAGE_FORMAT_Z_PIXMAP, window_, 8, 8,
                                      static_cast<uint16_t>(size_.width()), static_cast<uint16_t>(size_.height()), ~0U);
    const XcbReply<xcb_get_image_reply_t> reply(xcb_get_image_reply(connection_->get(), cookie, nullptr));
    connection_->readSoon();
    QImage image(size_, format());
    if (!reply || xcb_get_image_data_length(reply.get()) != image.sizeInBytes()) {
        return {};
    }
    std::memcpy(image.bits(), xcb_get_image_data(reply.get()), static_cast<std::size_t>(image.sizeInBytes()));
    if (image.format() == QImage::Format_RGB30) {
        // Of the two bits that are no colour Qt wants to see ones.
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                reinterpret_cast<uint32_t*>(image.scanLine(y))[x] |= 0xc0000000;
            }
        }
    }
    return image;
}

void FakeTray::resizeIcon(QSize size) {
    size_ = size;
    const std::array<uint32_t, 2> values = {static_cast<uint32_t>(size.width()), static_cast<uint32_t>(size.height())};
    xcb_configure_window(connection_->get(), icon_, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, values.data());
    connection_->flush();
}

template <typename Event>
void FakeTray::send(Event event, uint32_t mask) {
    event.event = icon_;
    xcb_send_event(connection_->get(), 0, icon_, mask, reinterpret_cast<const char*>(&event));
    connection_->flush();
}

void FakeTray::press(xcb_button_t button) {
    xcb_button_press_event_t event{};
    event.response_type = XCB_BUTTON_PRESS;
    event.detail = button;
    send(event, XCB_EVENT_MASK_BUTTON_PRESS);
}

void FakeTray::enter() {
    xcb_enter_notify_event_t event{};
    event.response_type = XCB_ENTER_NOTIFY;
    send(event, XCB_EVENT_MASK_ENTER_WINDOW);
}

void FakeTray::leave() {
    xcb_leave_notify_event_t event{};
    event.response_type = XCB_LEAVE_NOTIFY;
    send(event, XCB_EVENT_MASK_LEAVE_WINDOW);
}

void FakeTray::expel() {
    xcb_reparent_window(connection_->get(), icon_, connection_->screen().root, 0, 0);
    connection_->flush();
}

} // namespace skylet
