#pragma once

#include "platform/linux/DeleteLater.h"
#include "platform/linux/transfer/curl/CurlHandles.h"
#include "platform/linux/transfer/names/NameResolver.h"

#include <QSocketNotifier>
#include <QTimer>

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace skylet {

class CurlTransfer;

/// A socket that was opened for libcurl. Its number may belong to another file by now: libcurl says nothing when it
/// closes a socket that has not got a connection.
struct CurlSocket {
    curl_socket_t number = CURL_SOCKET_BAD;
    ino_t inode = 0;

    bool isOpen() const;
};

/// Runs CurlTransfers, and keeps their connections, on the Qt event loop through libcurl's multi-socket interface: no
/// polling, no wake-up while nothing is to be done. A peer that sends too many records without any progress of the
/// transfers (frames without meaning, pings, TLS session tickets) loses its connection.
/// Connections are closed by a reset: what the kernel still holds of them is not sent any more.
class CurlMulti {
  public:
    /// `receiveBufferBytes`: each socket's SO_RCVBUF (socket(7)); absent: the system's. Must not be destroyed from
    /// inside CurlTransfer::ended.
    explicit CurlMulti(NameResolver& names, std::optional<int> receiveBufferBytes = {});
    ~CurlMulti();

    /// The sockets of all connections, kept ones included.
    std::vector<curl_socket_t> openSockets() const;

    // For CurlTransfer:

    NameResolver& names() const { return names_; }
    /// When the event loop last found that there is something to do.
    std::chrono::steady_clock::time_point lastEvent() const { return lastEvent_; }
    void add(CurlTransfer& transfer);
    void remove(CurlTransfer& transfer);
    /// Opens a socket for libcurl. Its number is CURL_SOCKET_BAD where none can be had.
    CurlSocket openSocket(const curl_sockaddr& address);
    static int closeSocket(void* self, curl_socket_t socket);
    /// libcurl has read a TLS record or a message of a handshake; perhaps one of many that it reads at one go.
    void recordRead();
    /// Cuts every connection off, whatever the peer has sent already.
    void cutConnections();

  private:
    using Notifier = std::unique_ptr<QSocketNotifier, DeleteLater>;

    Q_DISABLE_COPY_MOVE(CurlMulti)

    static int watchSocket(CURL* handle, curl_socket_t socket, int what, void* self, void* socketData);
    static int setTimer(CURLM* multi, long timeoutMs, void* self);

    void watch(curl_socket_t socket, QSocketNotifier::Type type, int event);
    void handleEvents(curl_socket_t socket, int events);
    bool carriesRequest(curl_socket_t socket) const;
    /// Grows whenever a transfer gets anywhere.
    std::int64_t progress() const;

    NameResolver& names_;
    const std::optional<int> receiveBufferBytes_;
    QTimer timer_;
    std::multimap<curl_socket_t, Notifier> notifiers_;
    std::vector<CurlTransfer*> transfers_;
    std::vector<CurlSocket> sockets_;
    std::chrono::steady_clock::time_point lastEvent_;
    std::int64_t ended_ = 0;
    std::int64_t lastProgress_ = 0;
    /// Records and messages of handshakes since the transfers last got anywhere.
    int uselessRecords_ = 0;
    CurlMultiHandle multi_;
};

} // namespace skylet
