#pragma once

#include "platform/Lifetime.h"
#include "platform/linux/transfer/CurlHandles.h"

#include <QSocketNotifier>
#include <QTimer>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace skylet {

/// Runs libcurl transfers, and keeps their connections, on the Qt event loop through the multi-socket interface: no
/// thread of its own, no polling, no wake-up while nothing is to be done. The handles added belong to the caller.
class CurlMulti {
  public:
    /// Called from the event loop, never from inside libcurl: the handler may add and remove handles, but must not
    /// destroy the CurlMulti. The handle has been removed by then.
    using DoneHandler = std::function<void(CURL* handle, CURLcode result)>;

    /// How many transfers a connection may carry at once.
    enum class Connections : long { shared = CURLPIPE_MULTIPLEX, exclusive = CURLPIPE_NOTHING };

    explicit CurlMulti(DoneHandler done, Connections connections = Connections::shared);
    ~CurlMulti();
    CurlMulti(const CurlMulti&) = delete;
    CurlMulti& operator=(const CurlMulti&) = delete;
    CurlMulti(CurlMulti&&) = delete;
    CurlMulti& operator=(CurlMulti&&) = delete;

    /// Starts the transfer; nothing of it happens before the event loop runs again.
    void add(CURL* handle);
    /// Ends the transfer without a call to the done handler.
    void remove(CURL* handle);
    /// The processor's time that libcurl has taken so far, what it is at included. A busy machine adds nothing to it.
    std::chrono::nanoseconds effort() const;

  private:
    struct Notifiers {
        std::unique_ptr<QSocketNotifier, void (*)(QSocketNotifier*)> read;
        std::unique_ptr<QSocketNotifier, void (*)(QSocketNotifier*)> write;
    };

    static int watchSocket(CURL* handle, curl_socket_t socket, int what, void* self, void* socketData);
    static int setTimer(CURLM* multi, long timeoutMs, void* self);
    void watch(curl_socket_t socket, bool read, bool write);
    void act(curl_socket_t socket, int events);

    DoneHandler done_;
    QTimer timer_;
    std::map<curl_socket_t, Notifiers> notifiers_;
    /// Of what it has finished.
    std::chrono::nanoseconds effort_{0};
    /// Processor time at which it began what it is at.
    std::optional<std::chrono::nanoseconds> workingSince_;
    CurlMultiHandle multi_;
    Lifetime lifetime_;
};

} // namespace skylet
