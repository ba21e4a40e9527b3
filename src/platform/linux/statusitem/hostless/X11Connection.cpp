#include "platform/linux/statusitem/hostless/X11Connection.h"

namespace skylet {

namespace {

/// Marks an event that another client sent (X protocol, "Event format").
constexpr int sentByClient = 0x80;
// Whoever sends events without end must not keep the rest of the program from running.
constexpr int mostEventsAtOnce = 1000;

const xcb_screen_t* screenOf(xcb_connection_t* connection, int number) {
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (; number > 0 && screens.rem > 0; --number) {
        xcb_screen_next(&screens);
    }
    return screens.rem > 0 ? screens.data : nullptr;
}

} // namespace

std::unique_ptr<X11Connection> X11Connection::open(const QByteArray& display) {
    if (display.isEmpty()) {
        return nullptr;
    }
    int number = 0;
    xcb_connection_t* connection = xcb_connect(display.constData(), &number);
    if (xcb_connection_has_error(connection) != 0 || screenOf(connection, number) == nullptr) {
        xcb_disconnect(connection);
        return nullptr;
    }
    return std::unique_ptr<X11Connection>(new X11Connection(connection, number));
}

X11Connection::X11Connection(xcb_connection_t* connection, int screenNumber)
    : connection_(connection), screenNumber_(screenNumber), screen_(screenOf(connection, screenNumber)),
      notifier_(xcb_get_file_descriptor(connection), QSocketNotifier::Read) {
    connect(&notifier_, &QSocketNotifier::activated, this, &X11Connection::read);
}

X11Connection::~X11Connection() {
    xcb_disconnect(connection_);
}

xcb_atom_t X11Connection::atom(std::string_view name) {
    const xcb_atom_t result = internAtom(connection_, name);
    readSoon();
    return result;
}

std::optional<quint32> X11Connection::property(xcb_window_t window, std::string_view name, xcb_atom_t type) {
    const auto cookie = xcb_get_property(connection_, 0, window, atom(name), type, 0, 1);
    const XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection_, cookie, nullptr));
    readSoon();
    const bool usable = reply && reply->format == 32 && xcb_get_property_value_length(reply.get()) >= 4;
    if (!usable) {
        return std::nullopt;
    }
    return *static_cast<const quint32*>(xcb_get_property_value(reply.get()));
}

void X11Connection::readSoon() {
    if (!readingScheduled_) {
        readingScheduled_ = true;
        QMetaObject::invokeMethod(this, &X11Connection::read, Qt::QueuedConnection);
    }
}

void X11Connection::read() {
    readingScheduled_ = false;
    for (int count = 0; const XcbReply<xcb_generic_event_t> event{xcb_poll_for_event(connection_)};) {
        event->response_type &= static_cast<uint8_t>(~sentByClient);
        if (event->response_type != 0) {
            Q_EMIT received(*event);
        }
        if (++count == mostEventsAtOnce) {
            readSoon();
            break;
        }
    }
    Q_EMIT batchRead();
    if (xcb_connection_has_error(connection_) != 0) {
        notifier_.setEnabled(false);
        Q_EMIT lost();
    }
}

} // namespace skylet
