#include "fuzz/Fuzz.h"
#include "platform/linux/statusitem/hostless/FakeTray.h"
#include "platform/linux/statusitem/hostless/X11Tray.h"
#include "platform/linux/statusitem/hostless/XembedIcon.h"
#include "support/EventLoop.h"

#include <QStandardPaths>

#include <array>
#include <cstring>

namespace skylet::test {
namespace {

constexpr int mostEvents = 64;

/// A screen with a tray that takes the icon, and an icon that takes any events.
struct Screen {
    VirtualScreen server;
    FakeTray tray{server.display(), QColor(226, 226, 220)};
    std::unique_ptr<X11Connection> connection = X11Connection::open(server.display());
    X11Tray knownTray{*connection};
};

std::unique_ptr<Screen> onlyScreen;

Screen& screen() {
    if (QStandardPaths::findExecutable(QStringLiteral("Xvfb")).isEmpty()) {
        skip("there is no Xvfb");
    }
    if (!onlyScreen) {
        onlyScreen = std::make_unique<Screen>();
        qAddPostRoutine([] { onlyScreen.reset(); });
    }
    return *onlyScreen;
}

template <typename Event>
Event eventOf(uint8_t type) {
    Event event{};
    event.response_type = type;
    return event;
}

template <typename Event>
void send(X11Connection& connection, const Event& event) {
    static_assert(sizeof event <= sizeof(xcb_generic_event_t));
    xcb_generic_event_t generic{};
    std::memcpy(&generic, &event, sizeof event);
    Q_EMIT connection.received(generic);
}

void sendEvent(FuzzInput& input, X11Connection& connection, xcb_window_t window) {
    const auto kind = input.byte() % 10;
    // Now and then about a window of somebody else's.
    const xcb_window_t about = input.byte() % 16 == 0 ? input.number<xcb_window_t>() : window;
    switch (kind) {
    case 0: {
        auto event = eventOf<xcb_reparent_notify_event_t>(XCB_REPARENT_NOTIFY);
        event.window = about;
        event.parent = input.flag() ? connection.screen().root : input.number<xcb_window_t>();
        send(connection, event);
        break;
    }
    case 1:
    case 2: {
        auto event = eventOf<xcb_configure_notify_event_t>(XCB_CONFIGURE_NOTIFY);
        event.window = about;
        // Usual sizes more often than others.
        event.width = kind == 1 ? input.byte() : input.number<uint16_t>();
        event.height = kind == 1 ? input.byte() : input.number<uint16_t>();
        send(connection, event);
        break;
    }
    case 3: {
        auto event = eventOf<xcb_expose_event_t>(XCB_EXPOSE);
        event.window = about;
        event.count = input.byte() % 2;
        send(connection, event);
        break;
    }
    case 4: {
        auto event = eventOf<xcb_destroy_notify_event_t>(XCB_DESTROY_NOTIFY);
        event.window = about;
        send(connection, event);
        break;
    }
    case 5: {
        auto event = eventOf<xcb_button_press_event_t>(XCB_BUTTON_PRESS);
        event.event = about;
        event.detail = input.byte() % 8;
        send(connection, event);
        break;
    }
    case 6:
    case 7: {
        auto event = eventOf<xcb_enter_notify_event_t>(kind == 6 ? XCB_ENTER_NOTIFY : XCB_LEAVE_NOTIFY);
        event.event = about;
        send(connection, event);
        break;
    }
    case 8:
        Q_EMIT connection.batchRead();
        break;
    default:
        send(connection, input.number<std::array<std::uint8_t, 32>>());
        break;
    }
}

void takeTrayEvents(FuzzInput input) {
    Screen& at = screen();
    const int requests = at.tray.requests();
    XembedIcon icon(*at.connection, at.knownTray.window(), {Presentation::badge, Status::online, QStringLiteral("87")},
                    1);
    require(waitUntil([&] { return icon.isEmbedded() && at.tray.requests() > requests; }), "the tray takes the icon");
    int taken = 0;
    int expulsions = 0;
    int presses = 0;
    QObject::connect(&icon, &XembedIcon::embedded, &icon, [&taken] { ++taken; });
    QObject::connect(&icon, &XembedIcon::expelled, &icon, [&expulsions] { ++expulsions; });
    QObject::connect(&icon, &XembedIcon::pressed, &icon, [&presses] { ++presses; });
    int batches = 0;
    QObject::connect(at.connection.get(), &X11Connection::batchRead, &icon, [&batches] { ++batches; });
    for (int events = 0; events < mostEvents && !input.isEmpty(); ++events) {
        sendEvent(input, *at.connection, at.tray.icon());
        if (input.byte() % 8 == 0) {
            icon.setIcon({Presentation::badge, Status::online, QString::number(events)});
        }
    }
    Q_EMIT at.connection->batchRead();
    require(presses <= batches, "a batch of events presses once");
    require(taken <= expulsions, "it is taken only after it was expelled");
    QCoreApplication::processEvents();
}

const FuzzTarget trayTarget("tray", takeTrayEvents);

} // namespace
} // namespace skylet::test
