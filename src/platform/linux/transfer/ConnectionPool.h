#pragma once

#include "platform/Lifetime.h"
#include "platform/linux/transfer/curl/CurlMulti.h"
#include "platform/transfer/TransferSession.h"

#include <QTimer>
#include <QUrl>

#include <chrono>
#include <functional>
#include <list>
#include <memory>

namespace skylet {

/// The connections to one host, and the requests on them. A request ends for its caller at the limit or when cancelled;
/// on the wire it may go on unseen, so that an answer or a handshake that is under way still warms the connection for
/// the next request. It judges whether its connections deserve to be used again, and leaves it to the session to act on
/// that.
class ConnectionPool {
  public:
    enum class HttpVersion : long {
        http1 = CURL_HTTP_VERSION_1_1,
        /// HTTP/2 where the server speaks it.
        negotiated = CURL_HTTP_VERSION_2TLS,
    };

    struct Request {
        QUrl url;
        TransferSession::Accepts accepts;
        /// For the exchange as a whole, name look-ups included.
        std::chrono::milliseconds limit;
        NameResolver::Freshness names = NameResolver::Freshness::kept;
        /// Whether a connection that is still being made at the limit may be finished unseen.
        bool mayRunOn = true;
    };

    /// `names` and `share` (TLS sessions to resume) outlive the pool. `onSettled` is called from the event loop after a
    /// request has ended or the pool has lost its trust, possibly after the pool has gone; it may destroy the pool.
    ConnectionPool(NameResolver& names, CURLSH* share, HttpVersion version, std::function<void()> onSettled);
    ~ConnectionPool();
    ConnectionPool(const ConnectionPool&) = delete;
    ConnectionPool& operator=(const ConnectionPool&) = delete;
    ConnectionPool(ConnectionPool&&) = delete;
    ConnectionPool& operator=(ConnectionPool&&) = delete;

    std::shared_ptr<TransferTask> head(Request request, TransferSession::Completion completion);

    /// False once a request has failed here, or brought an answer that its asker does not accept: a connection is used
    /// again only while it has never disappointed.
    bool isTrusted() const { return trusted_; }
    void distrust();
    /// A proxy was asked for a connection and has not made it within a request's limit. It is waited for all the same,
    /// for `proxyLimit`: whoever gave up each time would never get one. The next request should not wait for it.
    bool isBehindSlowProxy() const { return behindSlowProxy_; }
    /// An answer came over the newest connection.
    bool isProven() const { return answered_; }
    /// The peer has ended the connection since. libcurl may take one of HTTP/2 for one that still works.
    bool isClosedByPeer() const;
    /// When the newest connection was begun.
    CurlMulti::SteadyClock::time_point newestConnection() const { return newestConnection_; }
    /// What the next pool for this host should speak. HTTP/2 forbids answers that HTTP/1.1 gets along with, a body
    /// after the head of a 204 among them (RFC 9113, 8.1.1); a server that sends those is asked in HTTP/1.1.
    HttpVersion successorVersion() const { return malformedHttp2_ ? HttpVersion::http1 : version_; }
    /// No further request comes: drops what runs on unseen.
    void retire();
    /// Ends every request for its caller.
    void cancelAll();
    /// Nothing runs any more.
    bool isIdle() const { return exchanges_.empty(); }

  private:
    class Exchange;
    class Task;

    /// Longer than proxies take to find out that a target does not answer (TCP gives up after some 20 s).
    static constexpr std::chrono::seconds proxyLimit{25};

    void done(CURL* handle, CURLcode result);
    void limitReached(const std::shared_ptr<Exchange>& exchange);
    void discard(const std::shared_ptr<Exchange>& exchange);
    void disappointed(const Exchange& exchange);
    /// Whether a new connection is on its way to its first answer. On a link with a round trip of a second or more none
    /// can answer within the limit; dropped each time, it never would.
    bool isProgressing() const;
    void connectionBegins();
    void settle();

    CURLSH* share_;
    const HttpVersion version_;
    const std::function<void()> onSettled_;
    bool trusted_ = true;
    bool behindSlowProxy_ = false;
    bool malformedHttp2_ = false;
    bool retired_ = false;
    bool answered_ = false;
    CurlMulti::SteadyClock::time_point newestConnection_ = CurlMulti::SteadyClock::now();
    CurlMulti multi_;
    std::list<std::shared_ptr<Exchange>> exchanges_;
    Lifetime lifetime_;
};

} // namespace skylet
