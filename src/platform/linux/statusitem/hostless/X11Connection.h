#pragma once

#include "platform/linux/desktop/Xcb.h"

#include <QByteArray>
#include <QObject>
#include <QSocketNotifier>

#include <memory>
#include <optional>
#include <string_view>

namespace skylet {

/// A connection of our own to the X server, read from the event loop. Beside Qt's one, so that nothing here can upset
/// the events that Qt has asked for, and what goes wrong in a window of ours ends this connection at worst.
class X11Connection final : public QObject {
    Q_OBJECT

  public:
    /// `display`: as in DISPLAY. Null when there is no such server.
    static std::unique_ptr<X11Connection> open(const QByteArray& display);
    ~X11Connection() override;

    xcb_connection_t* get() const { return connection_; }
    const xcb_screen_t& screen() const { return *screen_; }
    int screenNumber() const { return screenNumber_; }
    /// Asks the server, so each is to be asked for once.
    xcb_atom_t atom(std::string_view name);
    /// The first 32-bit value of a property, where there is one.
    std::optional<quint32> property(xcb_window_t window, std::string_view name, xcb_atom_t type);
    void flush() { xcb_flush(connection_); }
    /// To be called after a reply was waited for: what came in before it lies in memory, where the socket does not tell
    /// of it.
    void readSoon();

  Q_SIGNALS:
    /// Valid during the signal, in which the connection must not be destroyed. Errors do not come this way. The server
    /// is not to be asked in it: while a reply is waited for events come in, faster than they are handled if every one
    /// of them has its question.
    void received(const xcb_generic_event_t& event);
    /// After one or more events: the time for what takes long, once for all of them.
    void batchRead();
    /// The server has gone; nothing comes any more.
    void lost();

  private:
    Q_DISABLE_COPY_MOVE(X11Connection)

    X11Connection(xcb_connection_t* connection, int screenNumber);
    void read();

    xcb_connection_t* connection_;
    int screenNumber_;
    const xcb_screen_t* screen_ = nullptr;
    QSocketNotifier notifier_;
    bool readingScheduled_ = false;
};

} // namespace skylet
