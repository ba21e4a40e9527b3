#include "platform/linux/statusitem/hostless/XembedIcon.h"

#include <QFontDatabase>
#include <QPainter>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string_view>
#include <utility>

namespace skylet {

using namespace std::string_view_literals;

namespace {

// From the System Tray Protocol and XEmbed specifications.
constexpr uint32_t requestDock = 0;
constexpr uint32_t uprightTray = 1;
constexpr uint32_t xembedVersion = 0;
constexpr uint32_t xembedMapped = 1;
// From X11's WM_NORMAL_HINTS (ICCCM 4.1.2.3): the minimum size is given.
constexpr uint32_t minimumSizeHint = 1U << 4;

// What most trays give an icon, in logical pixels; they stretch or shrink the window as they like.
constexpr double usualSide = 22;
// More than a panel's icon ever has, even on a screen of scale 3.
constexpr int largestSide = 128;
constexpr uint8_t depthWithAlpha = 32;
constexpr uint32_t eventMask = XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_BUTTON_PRESS |
                               XCB_EVENT_MASK_ENTER_WINDOW | XCB_EVENT_MASK_LEAVE_WINDOW;

struct Visual {
    uint8_t depth = 0;
    const xcb_visualtype_t* type = nullptr;
};

Visual findVisual(const xcb_screen_t& screen, xcb_visualid_t wanted) {
    for (auto depths = xcb_screen_allowed_depths_iterator(&screen); depths.rem > 0; xcb_depth_next(&depths)) {
        for (auto visuals = xcb_depth_visuals_iterator(depths.data); visuals.rem > 0; xcb_visualtype_next(&visuals)) {
            if (visuals.data->visual_id == wanted) {
                return {depths.data->depth, visuals.data};
            }
        }
    }
    return {};
}

/// Qt's name for the layout of a visual's pixels; invalid where it has none.
QImage::Format formatOf(const Visual& visual) {
    const auto isOf = [&visual](uint32_t red, uint32_t green, uint32_t blue) {
        return visual.type != nullptr && visual.type->red_mask == red && visual.type->green_mask == green &&
               visual.type->blue_mask == blue;
    };
    if (isOf(0xff0000, 0xff00, 0xff)) {
        return visual.depth == depthWithAlpha ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32;
    }
    if (isOf(0x3ff00000, 0xffc00, 0x3ff)) {
        return QImage::Format_RGB30;
    }
    if (isOf(0x3ff, 0xffc00, 0x3ff00000)) {
        return QImage::Format_BGR30;
    }
    return isOf(0xf800, 0x7e0, 0x1f) ? QImage::Format_RGB16 : QImage::Format_Invalid;
}

} // namespace

XembedIcon::XembedIcon(X11Connection& connection, xcb_window_t tray, StatusIcon icon, double scale)
    : connection_(connection), icon_(std::move(icon)),
      wantedSide_(static_cast<uint16_t>(std::lround(std::clamp(usualSide * scale, usualSide, double{largestSide})))),
      size_(wantedSide_, wantedSide_) {
    connect(&connection_, &X11Connection::received, this, &XembedIcon::handleEvent);
    connect(&connection_, &X11Connection::batchRead, this, [this] {
        if (std::exchange(needsPainting_, false)) {
            paint();
        }
        if (std::exchange(wasPressed_, false)) {
            Q_EMIT pressed(place());
        }
    });
    createWindow(tray);
    describeWindow();
    if (format_ != QImage::Format_Invalid) {
        askForDock(tray);
    }
    connection_.flush();
}

XembedIcon::~XembedIcon() {
    xcb_connection_t* const server = connection_.get();
    xcb_free_gc(server, context_);
    xcb_destroy_window(server, window_);
    xcb_free_colormap(server, colormap_);
    connection_.flush();
}

void XembedIcon::createWindow(xcb_window_t tray) {
    xcb_connection_t* const server = connection_.get();
    const xcb_screen_t& screen = connection_.screen();
    // A tray that can show transparency names a visual for it.
    const xcb_visualid_t wanted =
        connection_.property(tray, "_NET_SYSTEM_TRAY_VISUAL", XCB_ATOM_VISUALID).value_or(XCB_NONE);
    Visual visual = findVisual(screen, wanted);
    if (visual.depth != depthWithAlpha) {
        visual = findVisual(screen, screen.root_visual);
    }
    depth_ = visual.depth;
    format_ = formatOf(visual);
    const xcb_visualid_t id = depth_ == depthWithAlpha ? wanted : screen.root_visual;
    colormap_ = xcb_generate_id(server);
    xcb_create_colormap(server, XCB_COLORMAP_ALLOC_NONE, colormap_, screen.root, id);
    window_ = xcb_generate_id(server);
    const std::array<uint32_t, 4> values = {0, 0, eventMask, colormap_};
    xcb_create_window(server, depth_, window_, screen.root, -1, -1, wantedSide_, wantedSide_, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, id,
                      XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_EVENT_MASK | XCB_CW_COLORMAP, values.data());
    if (const auto orientation = connection_.property(tray, "_NET_SYSTEM_TRAY_ORIENTATION", XCB_ATOM_CARDINAL)) {
        upright_ = *orientation == uprightTray;
    }
    context_ = xcb_generate_id(server);
    xcb_create_gc(server, context_, window_, 0, nullptr);
}

void XembedIcon::describeWindow() {
    setProperty(XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8, "Skylet"sv);
    setProperty(XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8, "skylet\0skylet\0"sv);
    const xcb_atom_t info = connection_.atom("_XEMBED_INFO");
    setProperty(info, info, 32, std::array{xembedVersion, xembedMapped});
    requestMinimumSize(wantedSide_);
}

void XembedIcon::requestMinimumSize(uint32_t side) {
    std::array<uint32_t, 18> hints{};
    hints[0] = minimumSizeHint;
    hints[5] = side;
    hints[6] = side;
    setProperty(XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS, 32, hints);
}

template <typename Values>
void XembedIcon::setProperty(xcb_atom_t property, xcb_atom_t type, uint8_t bits, const Values& values) {
    xcb_change_property(connection_.get(), XCB_PROP_MODE_REPLACE, window_, property, type, bits,
                        static_cast<uint32_t>(values.size()), values.data());
}

void XembedIcon::askForDock(xcb_window_t tray) {
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = tray;
    message.type = connection_.atom("_NET_SYSTEM_TRAY_OPCODE");
    message.data.data32[0] = XCB_CURRENT_TIME;
    message.data.data32[1] = requestDock;
    message.data.data32[2] = window_;
    xcb_send_event(connection_.get(), 0, tray, XCB_EVENT_MASK_NO_EVENT, reinterpret_cast<const char*>(&message));
}

void XembedIcon::setIcon(const StatusIcon& icon) {
    if (icon != icon_) {
        icon_ = icon;
        paint();
    }
}

QRect XembedIcon::place() const {
    const auto cookie = xcb_translate_coordinates(connection_.get(), window_, connection_.screen().root, 0, 0);
    const XcbReply<xcb_translate_coordinates_reply_t> reply(
        xcb_translate_coordinates_reply(connection_.get(), cookie, nullptr));
    connection_.readSoon();
    return reply ? QRect(QPoint(reply->dst_x, reply->dst_y), size_) : QRect();
}

void XembedIcon::handleEvent(const xcb_generic_event_t& event) {
    // Null where the event, of whose type `window` is a field, is about another window.
    const auto mine = [&]<typename Event>(xcb_window_t Event::*window) -> const Event* {
        const auto& typed = reinterpret_cast<const Event&>(event);
        return typed.*window == window_ ? &typed : nullptr;
    };
    switch (event.response_type) {
    case XCB_REPARENT_NOTIFY:
        if (const auto* reparented = mine(&xcb_reparent_notify_event_t::window)) {
            onReparented(reparented->parent);
        }
        break;
    case XCB_CONFIGURE_NOTIFY:
        if (const auto* configured = mine(&xcb_configure_notify_event_t::window)) {
            onResized(QSize(configured->width, configured->height));
        }
        break;
    case XCB_EXPOSE:
        if (const auto* exposed = mine(&xcb_expose_event_t::window); exposed != nullptr && exposed->count == 0) {
            needsPainting_ = true;
        }
        break;
    case XCB_DESTROY_NOTIFY:
        if (mine(&xcb_destroy_notify_event_t::window) != nullptr) {
            embedded_ = false;
            Q_EMIT expelled();
        }
        break;
    case XCB_BUTTON_PRESS:
        if (const auto* press = mine(&xcb_button_press_event_t::event)) {
            onPress(*press);
        }
        break;
    case XCB_ENTER_NOTIFY:
        if (mine(&xcb_enter_notify_event_t::event) != nullptr) {
            Q_EMIT entered();
        }
        break;
    case XCB_LEAVE_NOTIFY:
        if (mine(&xcb_leave_notify_event_t::event) != nullptr) {
            Q_EMIT left();
        }
        break;
    default:
        break;
    }
}

void XembedIcon::onResized(QSize size) {
    if (size == size_) {
        return;
    }
    size_ = size;
    // Many trays make an icon as thick as themselves, but only as long as it asks to be. Asked once: a tray that adds
    // something of its own to what an icon wants would grow and grow.
    const bool isWide = size.width() > size.height();
    const int thickness = upright_.value_or(isWide) ? size.width() : size.height();
    const int length = upright_.value_or(isWide) ? size.height() : size.width();
    if (!hasAskedForMore_ && thickness > length) {
        hasAskedForMore_ = true;
        requestMinimumSize(static_cast<uint32_t>(std::min(thickness, largestSide)));
        connection_.flush();
    }
    needsPainting_ = true;
}

void XembedIcon::onReparented(xcb_window_t parent) {
    const bool inside = parent != connection_.screen().root;
    if (inside == embedded_) {
        return;
    }
    embedded_ = inside;
    if (inside) {
        Q_EMIT embedded();
    } else {
        // A tray that ends leaves its icons on the bare screen.
        xcb_unmap_window(connection_.get(), window_);
        connection_.flush();
        Q_EMIT expelled();
    }
}

void XembedIcon::onPress(const xcb_button_press_event_t& event) {
    // The wheel comes as buttons, too.
    if (event.detail == XCB_BUTTON_INDEX_1 || event.detail == XCB_BUTTON_INDEX_3) {
        // The press has given the mouse to this connection, but the menu opens on Qt's.
        xcb_ungrab_pointer(connection_.get(), event.time);
        wasPressed_ = true;
    }
}

std::optional<QImage> XembedIcon::grabBackground(QRect area) {
    const auto x = static_cast<int16_t>(area.x());
    const auto y = static_cast<int16_t>(area.y());
    const int side = area.width();
    const auto length = static_cast<uint16_t>(side);
    // Possible in a parent of the same depth alone; in another one the window keeps its plain ground.
    const uint32_t parentRelative = XCB_BACK_PIXMAP_PARENT_RELATIVE;
    xcb_change_window_attributes(connection_.get(), window_, XCB_CW_BACK_PIXMAP, &parentRelative);
    xcb_clear_area(connection_.get(), 0, window_, x, y, length, length);
    const auto cookie =
        xcb_get_image(connection_.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, window_, x, y, length, length, ~uint32_t{0});
    const XcbReply<xcb_get_image_reply_t> reply(xcb_get_image_reply(connection_.get(), cookie, nullptr));
    connection_.readSoon();
    QImage image(area.size(), format_);
    // Refused while the area is not on the screen.
    if (!reply || xcb_get_image_data_length(reply.get()) != image.sizeInBytes()) {
        return std::nullopt;
    }
    std::memcpy(image.bits(), xcb_get_image_data(reply.get()), static_cast<std::size_t>(image.sizeInBytes()));
    if (format_ == QImage::Format_RGB30 || format_ == QImage::Format_BGR30) {
        // Qt takes the two bits that the server does not use for an opacity.
        for (int row = 0; row < side; ++row) {
            auto* const line = reinterpret_cast<uint32_t*>(image.scanLine(row));
            std::for_each(line, line + side, [](uint32_t& pixel) { pixel |= 0xc0000000; });
        }
    }
    return image;
}

void XembedIcon::paint() {
    const int side = std::min({size_.width(), size_.height(), largestSide});
    if (!embedded_ || side <= 0) {
        return;
    }
    const QRect area((size_.width() - side) / 2, (size_.height() - side) / 2, side, side);
    QImage image(area.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    if (depth_ != depthWithAlpha) {
        const std::optional<QImage> below = grabBackground(area);
        if (!below) {
            return;
        }
        image = *below;
    }
    QPainter(&image).drawImage(0, 0,
                               paintStatusIcon(icon_, side, QFontDatabase::systemFont(QFontDatabase::GeneralFont)));
    const auto length = static_cast<uint16_t>(side);
    xcb_put_image(connection_.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, window_, context_, length, length,
                  static_cast<int16_t>(area.x()), static_cast<int16_t>(area.y()), 0, depth_,
                  static_cast<uint32_t>(image.sizeInBytes()), image.constBits());
    connection_.flush();
}

} // namespace skylet
