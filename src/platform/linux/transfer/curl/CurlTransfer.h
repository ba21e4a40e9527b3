#pragma once

#include "platform/linux/transfer/curl/CurlMulti.h"
#include "platform/linux/transfer/names/NameResolver.h"
#include "platform/linux/transfer/names/TransferNames.h"

#include <QString>
#include <QUrl>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace skylet {

/// One HTTPS request over libcurl, as all of the program's are: with the system's certificates, names looked up by the
/// NameResolver, the proxy of the environment, and a head of limited size. Derived classes say what to ask for and
/// follow what comes; they own nothing that libcurl needs after `stop`. Held by shared pointers; its owner stops it
/// before the CurlMulti goes.
class CurlTransfer : public std::enable_shared_from_this<CurlTransfer> {
  public:
    using SteadyClock = std::chrono::steady_clock;

    virtual ~CurlTransfer() = default;

    /// Nothing of it happens before the event loop runs again.
    void start();
    /// Takes it off the wire. `ended` is not called.
    void stop();

    CURL* handle() const { return easy_.get(); }
    const QUrl& url() const { return url_; }
    /// The status of the final answer, once its head is complete; libcurl alone would take one that breaks off, too.
    std::optional<int> status() const { return status_; }
    /// The connection that carries the request; CURL_SOCKET_BAD before the request goes out, and when it is closed.
    curl_socket_t socket() const { return socket_; }
    /// Grows whenever the transfer gets anywhere before its end.
    virtual std::int64_t progress() const { return 0; }

    // For CurlMulti:

    /// It has been removed.
    void libcurlIsDone(CURLcode result);
    void socketCloses(curl_socket_t socket);

  protected:
    CurlTransfer(CurlMulti& multi, const QUrl& url, NameResolver::Freshness freshness = NameResolver::Freshness::kept);

    /// Called from the event loop, last of all.
    virtual void ended(CURLcode result) = 0;
    virtual void connectionOpens() {}
    virtual void requestStarts() {}
    virtual void headArrived() {}
    /// False: the transfer shall fail.
    virtual bool bodyArrived(std::size_t count) = 0;
    /// The connection that carries the request is about to be closed: the last chance to ask about it.
    virtual void connectionCloses() {}

    const CurlEasy& easy() const { return easy_; }
    /// What libcurl says of the failure.
    QString errorText(CURLcode result) const;
    std::size_t headBytes() const { return headBytes_; }
    SteadyClock::time_point started() const { return started_; }
    std::chrono::milliseconds elapsed() const;
    /// When what is being read now was found to be there.
    SteadyClock::time_point found() const { return multi_.lastEvent(); }
    /// When libcurl began to work on it; absent while names are being looked up.
    std::optional<SteadyClock::time_point> begun() const { return begun_; }
    /// The kernel's round trip to the proxy or the target, on the connection that was opened for this transfer; absent
    /// until the peer has accepted that. libcurl's CURLINFO_CONNECT_TIME says nothing before TLS is up.
    std::optional<std::chrono::microseconds> roundTrip() const;
    /// It is connected to a proxy, which has not made its connection to the target yet.
    bool isWaitingForProxy() const { return isConnectingThroughProxy() && roundTrip(); }
    /// When the proxy had made its connection to the target, and the TLS handshake began. Absent before, without a
    /// proxy, and on a connection that was there already.
    std::optional<SteadyClock::time_point> proxyConnected() const { return proxyConnected_; }
    /// Tells the resolver whether the addresses led to the right server; if not, it looks them up again, and others are
    /// tried first.
    void reportNames(bool areRight);

  private:
    Q_DISABLE_COPY_MOVE(CurlTransfer)

    static int nameWanted(void* state, void* reserved, void* self);
    static curl_socket_t openSocket(void* self, curlsocktype purpose, curl_sockaddr* address);
    static int onPreRequest(void* self, char* address, char* localAddress, int port, int localPort);
    static std::size_t headReceived(const char* data, std::size_t size, std::size_t count, void* self);
    static std::size_t bodyReceived(const char* data, std::size_t size, std::size_t count, void* self);
    static int debug(CURL* handle, curl_infotype type, char* data, std::size_t size, void* self);

    /// Looks up what is needed, from the `next`-th name on, and begins.
    void lookUp(std::size_t next);
    void begin();
    bool isConnectingThroughProxy() const { return isThroughProxy_ && !proxyConnected_; }
    void finish(CURLcode result);

    CurlMulti& multi_;
    const QUrl url_;
    const NameResolver::Freshness freshness_;
    const std::optional<Proxy> proxy_;
    const std::vector<HostAndPort> names_;
    /// The value for CURLOPT_RESOLVE.
    CurlList resolveEntries_;
    /// Of `names_`, as far as they were looked up for this transfer: the address that libcurl tries first.
    NameResolver::Addresses firstAddresses_;
    std::array<char, CURL_ERROR_SIZE> errorBuffer_{};
    CurlEasy easy_;
    const SteadyClock::time_point started_ = SteadyClock::now();
    bool isRunning_ = false;
    bool areNamesKnown_ = false;
    /// libcurl asked for a name that is not known yet.
    bool isNameWanted_ = false;
    std::optional<SteadyClock::time_point> begun_;
    /// The connections that were begun for this transfer.
    std::vector<CurlSocket> opened_;
    curl_socket_t socket_ = CURL_SOCKET_BAD;
    /// A connection was begun for it that leads to a proxy.
    bool isThroughProxy_ = false;
    std::optional<SteadyClock::time_point> proxyConnected_;
    std::size_t proxyHeadBytes_ = 0;
    std::size_t headBytes_ = 0;
    std::optional<int> status_;
};

} // namespace skylet
