#pragma once

#include "platform/Lifetime.h"
#include "platform/linux/transfer/curl/CurlHandles.h"
#include "platform/linux/transfer/curl/RecordGuard.h"
#include "platform/linux/transfer/names/NameResolver.h"

#include <QSocketNotifier>
#include <QTimer>
#include <QUrl>

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace skylet {

/// Runs libcurl transfers, and keeps their connections, on the Qt event loop through the multi-socket interface: no
/// polling, no wake-up while nothing is to be done. Names are looked up by the resolver it is given, never by libcurl;
/// proxies are those of the environment. A peer that keeps it busy to no purpose loses its connection. Connections are
/// closed by a reset: what the kernel still holds of them is not sent any more. The handles added belong to the caller.
class CurlMulti {
  public:
    /// Called from the event loop, never from inside libcurl or `add`: the handler may add and remove handles, but must
    /// not destroy the CurlMulti. The handle has been removed by then.
    using DoneHandler = std::function<void(CURL* handle, CURLcode result)>;
    using SteadyClock = std::chrono::steady_clock;

    struct Settings {
        /// Of each connection's socket, as SO_RCVBUF takes it (socket(7)); absent: as the system has it.
        std::optional<int> receiveBufferBytes;
        /// Grows whenever a transfer gets anywhere; asked at each TLS record that arrives. Absent: whenever one ends.
        std::function<std::int64_t()> progress;
        /// A connection is about to be opened.
        std::function<void()> opening;
        /// The connection of this socket is about to be closed.
        std::function<void(curl_socket_t)> closing;
    };

    CurlMulti(NameResolver& names, Settings settings, DoneHandler done);
    ~CurlMulti();
    CurlMulti(const CurlMulti&) = delete;
    CurlMulti& operator=(const CurlMulti&) = delete;
    CurlMulti(CurlMulti&&) = delete;
    CurlMulti& operator=(CurlMulti&&) = delete;

    /// Starts the transfer, which asks for `target`; nothing of it happens before the event loop runs again. `fresh`:
    /// names are looked up anew for it.
    void add(CURL* handle, const QUrl& target, NameResolver::Freshness names = NameResolver::Freshness::kept);
    /// Ends the transfer without a call to the done handler.
    void remove(CURL* handle);

    /// A request for `target` failed, perhaps because the addresses are wrong that its names are said to have.
    void doubtNames(const QUrl& target);
    /// A request for `target` succeeded.
    void confirmNames(const QUrl& target);

    /// When libcurl began to work on it; absent while names are being looked up.
    std::optional<SteadyClock::time_point> beginning(CURL* handle) const;
    /// To the proxy or the target, as the kernel has it, of the connection that was opened for it; absent until the
    /// peer has accepted that. libcurl's CURLINFO_CONNECT_TIME says nothing before TLS is up, behind proxies too.
    std::optional<std::chrono::microseconds> roundTrip(CURL* handle) const;
    /// It is connected to a proxy, which has not made its connection to the target yet.
    bool isWaitingForProxy(CURL* handle) const;
    /// When the proxy had made its connection to the target, and the TLS handshake began. Absent before, without a
    /// proxy, and on a connection that was there already.
    std::optional<SteadyClock::time_point> proxyPassed(CURL* handle) const;
    /// The socket of the connection that the handle used last; CURL_SOCKET_BAD when there is none any more.
    curl_socket_t socketOf(CURL* handle) const;
    /// Of every connection, kept ones included.
    std::vector<curl_socket_t> openSockets() const;

  private:
    struct Notifiers {
        std::unique_ptr<QSocketNotifier, void (*)(QSocketNotifier*)> read;
        std::unique_ptr<QSocketNotifier, void (*)(QSocketNotifier*)> write;
    };
    struct Transfer;

    static int watchSocket(CURL* handle, curl_socket_t socket, int what, void* self, void* socketData);
    static int setTimer(CURLM* multi, long timeoutMs, void* self);
    static int resolverStarts(void* state, void* reserved, void* transfer);
    static curl_socket_t openSocket(void* transfer, curlsocktype purpose, curl_sockaddr* address);
    static int closeSocket(void* self, curl_socket_t socket);
    static int debug(CURL* handle, curl_infotype type, char* data, std::size_t size, void* transfer);

    void configure(CURL* handle, Transfer& transfer);
    /// Looks up what the transfer needs, from its `next`-th name on, and begins it.
    void lookUp(CURL* handle, std::size_t next);
    void begin(CURL* handle);
    void watch(curl_socket_t socket, bool read, bool write);
    void act(curl_socket_t socket, int events);
    void takeOut(CURL* handle);
    void ended(CURL* handle, CURLcode result);
    void cutConnections();

    NameResolver& names_;
    const Settings settings_;
    const DoneHandler done_;
    QTimer timer_;
    std::map<curl_socket_t, Notifiers> notifiers_;
    std::map<CURL*, std::shared_ptr<Transfer>> transfers_;
    /// With the inode of each; some may have been closed since.
    std::map<curl_socket_t, ino_t> sockets_;
    std::int64_t ended_ = 0;
    RecordGuard guard_;
    CurlMultiHandle multi_;
    Lifetime lifetime_;
};

} // namespace skylet
